#include "platform/files/file_manager.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/file_descriptor.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"

namespace platform {
namespace {

bool isDirectory(const char* path) {
  struct stat status {};
  return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

void makeDirectory(const URL& url, IntermediateDirectories existing,
                   DirectoryAccess access = DirectoryAccess::asTheMaskSays) {
  const char* path = systemPath(url);
  if (::mkdir(path, access == DirectoryAccess::ownerOnly ? 0700 : 0777) == 0)
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
  return presenceOfItemAtPath(path) == ItemPresence::present;
}

ItemPresence NSFileManager::presenceOfItemAtPath(const std::string& path) const {
  struct stat status {};
  if (path.find('\0') != std::string::npos)
    return ItemPresence::absent;
  if (::stat(path.c_str(), &status) == 0)
    return ItemPresence::present;
  const bool isAbsent = errno == ENOENT || errno == ENOTDIR || errno == ELOOP || errno == ENAMETOOLONG;
  return isAbsent ? ItemPresence::absent : ItemPresence::unknown;
}

bool NSFileManager::leadToOneItem(const URL& one, const URL& other) const {
  struct stat first {};
  struct stat second {};
  return ::stat(systemPath(one), &first) == 0 && ::stat(systemPath(other), &second) == 0 &&
         identityOf(first) == identityOf(second);
}

void NSFileManager::createDirectoryAtURL(const URL& url, IntermediateDirectories intermediates,
                                         DirectoryAccess access) const {
  if (intermediates == IntermediateDirectories::yes && !isDirectory(systemPath(url))) {
    const std::string& path = url.path();
    for (auto slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
      makeDirectory(URL::fileURLWithPath(path.substr(0, slash)), intermediates);
  }
  makeDirectory(url, intermediates, access);
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
  removeTree(Entry::at(url));
}

void NSFileManager::removeItemAtURL(const URL& url, const HeldItem& spared) const {
  removeTree(Entry::at(url), &spared);
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
  const Entry oldEntry = Entry::at(from);
  const Entry newEntry = Entry::at(to);
  if (const int failure = renameExclusively(oldEntry, newEntry); failure != 0)
    throw SystemError(quoted(from.path()) + " could not be moved to " + quoted(to.path()), failure);
  // The item has moved; a failure reported now would claim that it has not.
  bestEffort([&] { syncDirectory(newEntry.directory.descriptor(), to.path()); });
}

void NSFileManager::exchangeItems(const URL& one, const URL& other) const {
  const Entry oneEntry = Entry::at(one);
  const Entry otherEntry = Entry::at(other);
  if (const int failure = exchangeNames(oneEntry, otherEntry); failure != 0)
    throw SystemError(quoted(one.path()) + " could not be exchanged with " + quoted(other.path()), failure);
  // The items are exchanged; a failure reported now would claim that they are not.
  bestEffort([&] { syncDirectory(oneEntry.directory.descriptor(), one.path()); });
  if (!areInOneDirectory(oneEntry, otherEntry))
    bestEffort([&] { syncDirectory(otherEntry.directory.descriptor(), other.path()); });
}

}  // namespace platform
