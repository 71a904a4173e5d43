#include "platform/ditto/hard_link_table.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "platform/foundation/error.hpp"

namespace platform::ditto {

void HardLinkTable::add(const FileIdentity& source, nlink_t names, Copy copy) {
  files_.insert_or_assign(source, File{std::move(copy), names - 1});
}

HardLinkTable::Copy HardLinkTable::take(const FileIdentity& source) {
  const auto file = files_.find(source);
  if (--file->second.remainingNames > 0)
    return file->second.copy;
  Copy last = std::move(file->second.copy);
  files_.erase(file);
  return last;
}

void linkCopy(const Entry& root, const HardLinkTable::Copy& copy, const Entry& newName) {
  constexpr int kFlags = O_PATH | O_DIRECTORY;
  Directory directory(root.open(kFlags), root.path());
  std::size_t begin = 0;
  // Name by name: no symbolic link is followed, and the path may be longer than PATH_MAX.
  for (std::size_t end = 0; (end = copy.path.find('/', begin)) != std::string::npos; begin = end + 1) {
    const Entry next = directory.entry(copy.path.substr(begin, end - begin));
    directory = Directory(next.open(kFlags), root.path());
  }
  const std::string name = copy.path.substr(begin);
  if (::linkat(directory.get(), name.c_str(), newName.directory.get(), newName.name.c_str(), 0) != 0)
    throw SystemError(quoted(newName.path()) + " could not be created", errno);
  if (identityOf(newName.status()) != copy.identity)
    throw Error("The copy in " + quoted(root.path()) + " was changed while it was being created.");
}

}  // namespace platform::ditto
