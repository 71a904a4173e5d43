#include "platform/ditto/directory_reader.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/foundation/error.hpp"

namespace platform::ditto {
namespace {

constexpr std::size_t kPortion = 1024;

}  // namespace

DirectoryReader::DirectoryReader(const Item& directory) : path_(directory.path) {
  FileDescriptor opened = openItem(directory, O_RDONLY | O_DIRECTORY);
  stream_.reset(::fdopendir(opened.get()));
  if (!stream_)
    throw SystemError(quoted(path_) + " could not be read", errno);
  static_cast<void>(opened.release());  // the stream closes it
}

std::vector<std::string> DirectoryReader::nextNames() {
  std::vector<std::pair<ino_t, std::string>> entries;
  while (entries.size() < kPortion) {
    errno = 0;
    const dirent* entry = ::readdir(stream_.get());  // NOLINT(concurrency-mt-unsafe): a stream of our own
    if (entry == nullptr && errno != 0)
      throw SystemError(quoted(path_) + " could not be read", errno);
    if (entry == nullptr)
      break;
    const std::string_view name = static_cast<const char*>(entry->d_name);
    if (name != "." && name != "..")
      entries.emplace_back(entry->d_ino, name);
  }
  std::ranges::sort(entries);
  std::vector<std::string> names;
  names.reserve(entries.size());
  for (auto& [number, name] : entries)
    names.push_back(std::move(name));
  return names;
}

}  // namespace platform::ditto
