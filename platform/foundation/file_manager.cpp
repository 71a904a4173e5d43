#include "platform/foundation/file_manager.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/foundation/error.hpp"
#include "platform/foundation/file_descriptor.hpp"
#include "platform/foundation/file_removal.hpp"
#include "platform/foundation/file_rename.hpp"
#include "platform/foundation/file_sync.hpp"
#include "platform/foundation/system_call.hpp"

namespace platform {
namespace {

bool isDirectory(const char* path) {
  struct stat status {};
  return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

void makeDirectory(const URL& url, IntermediateDirectories existing) {
  const char* path = systemPath(url);
  if (::mkdir(path, 0777) == 0)
    return;
  const int reason = errno;
  if (reason == EEXIST && existing == IntermediateDirectories::yes && isDirectory(path))
    return;
  throw SystemError("The directory " + quoted(url.path()) + " could not be created", reason);
}

}  // namespace

const NSFileManager& NSFileManager::defaultManager() {
  static const NSFileManager manager;
  return manager;
}

URL NSFileManager::temporaryDirectory() const {
  return URL::fileURLWithPath("/tmp");
}

bool NSFileManager::fileExistsAtPath(const std::string& path) const {
  struct stat status {};
  return path.find('\0') == std::string::npos && ::stat(path.c_str(), &status) == 0;
}

void NSFileManager::createDirectoryAtURL(const URL& url, IntermediateDirectories intermediates) const {
  if (intermediates == IntermediateDirectories::yes && !isDirectory(systemPath(url))) {
    const std::string& path = url.path();
    for (auto slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
      makeDirectory(URL::fileURLWithPath(path.substr(0, slash)), intermediates);
  }
  makeDirectory(url, intermediates);
}

bool NSFileManager::createFileAtPath(const std::string& path) const {
  try {
    FileDescriptor::open(URL::fileURLWithPath(path), O_WRONLY | O_CREAT | O_TRUNC, 0666).close(path);
    return true;
  } catch (const SystemError&) {
    return false;
  }
}

void NSFileManager::removeItemAtURL(const URL& url) const {
  systemPath(url);
  const URL parent = url.deletingLastPathComponent();
  removeTree(FileDescriptor::open(parent, O_RDONLY | O_DIRECTORY), url.lastPathComponent(), url.path());
}

std::optional<NSDirectoryEnumerator> NSFileManager::enumeratorAtURL(
    const URL& url, DirectoryEnumerationOptions options) const {
  try {
    return NSDirectoryEnumerator(url, options);
  } catch (const SystemError&) {
    return std::nullopt;
  }
}

void NSFileManager::moveItemAtURL(const URL& from, const URL& to) const {
  systemPath(from);
  systemPath(to);
  const FileDescriptor oldDirectory =
      FileDescriptor::open(from.deletingLastPathComponent(), O_RDONLY | O_DIRECTORY);
  const FileDescriptor newDirectory =
      FileDescriptor::open(to.deletingLastPathComponent(), O_RDONLY | O_DIRECTORY);
  const int failure =
      renameExclusively({oldDirectory, from.lastPathComponent()}, {newDirectory, to.lastPathComponent()});
  if (failure != 0)
    throw SystemError(quoted(from.path()) + " could not be moved to " + quoted(to.path()), failure);
  syncDirectory(newDirectory, to.path());
}

}  // namespace platform
