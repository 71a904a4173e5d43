#include "platform/ditto/directory_copy.hpp"

#include <algorithm>
#include <utility>

#include "platform/ditto/attributes_copy.hpp"
#include "platform/foundation/error.hpp"

namespace platform::ditto {
namespace {

constexpr std::size_t kPortion = 1024;

}  // namespace

DirectoryCopy::DirectoryCopy(Directory source, Directory copy)
    : source_(std::move(source)),
      copy_(std::move(copy)),
      status_(statusOf(source_.descriptor(), source_.path())),
      copyIdentity_(identityOf(statusOf(copy_.descriptor(), copy_.path()))) {}

void DirectoryCopy::leave() {
  if (--users_ > 0)
    return;
  requireUnchanged(source_.descriptor(), status_, source_.path());
  copyAttributes(source_.descriptor(), source_.path(), status_, copy_.descriptor(), copy_.path());
}

std::vector<std::string> nextNames(DirectoryReader& reader, const std::string& path) {
  std::vector<std::pair<ino_t, std::string>> entries;
  while (entries.size() < kPortion) {
    const dirent* entry = reader.next();
    if (entry == nullptr)
      break;
    entries.emplace_back(entry->d_ino, static_cast<const char*>(entry->d_name));
  }
  if (reader.failure() != 0)
    throw SystemError(quoted(path) + " could not be read", reader.failure());
  std::ranges::sort(entries);
  std::vector<std::string> names;
  names.reserve(entries.size());
  for (auto& [number, name] : entries)
    names.push_back(std::move(name));
  return names;
}

}  // namespace platform::ditto
