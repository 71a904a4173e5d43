#include "platform/files/directory.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "platform/files/directory_reader.hpp"
#include "platform/foundation/error.hpp"

namespace platform {
namespace {

ItemKind kindOfMode(mode_t mode) {
  if (S_ISREG(mode))
    return ItemKind::file;
  if (S_ISDIR(mode))
    return ItemKind::directory;
  return S_ISLNK(mode) ? ItemKind::link : ItemKind::special;
}

[[noreturn]] void throwNotExamined(const std::string& path) {
  const int reason = errno;
  throw SystemError(quoted(path) + " could not be examined", reason);
}

}  // namespace

FileIdentity identityOf(const struct stat& status) {
  return {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)};
}

std::optional<FileIdentity> identityOf(const FileDescriptor& file) {
  struct stat status {};
  return ::fstat(file.get(), &status) == 0 ? std::optional(identityOf(status)) : std::nullopt;
}

struct stat statusOf(const FileDescriptor& file, const std::string& path) {
  struct stat status {};
  if (::fstat(file.get(), &status) != 0)
    throwNotExamined(path);
  return status;
}

ItemStatus itemStatus(const struct stat& status) {
  return {.kind = kindOfMode(status.st_mode),
          .identity = identityOf(status),
          .size = static_cast<std::uint64_t>(status.st_size),
          .isExecutable = (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0,
          .hasHardLinks = S_ISREG(status.st_mode) && status.st_nlink > 1};
}

Directory Directory::open(const URL& url, Links links) {
  const int follow = links == Links::refused ? O_NOFOLLOW : 0;
  return {FileDescriptor::open(url, O_RDONLY | O_DIRECTORY | follow), url.path()};
}

bool Directory::isThere(const URL& url) {
  struct stat status {};
  if (::lstat(systemPath(url), &status) == 0)
    return true;
  if (errno == ENOENT || errno == ENOTDIR)
    return false;
  throwNotExamined(url.path());
}

Entry Directory::entry(std::string name) const {
  return {*this, std::move(name)};
}

Directory Directory::subdirectory(const std::string& name) const {
  return {entry(name).open(O_RDONLY | O_DIRECTORY), pathOf(name)};
}

std::optional<ItemStatus> Directory::statusOf(const std::string& name) const {
  struct stat status {};
  if (::fstatat(get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    return itemStatus(status);
  if (errno == ENOENT)
    return std::nullopt;
  throwNotExamined(pathOf(name));
}

std::optional<ItemKind> Directory::kindOf(const std::string& name) const {
  const std::optional<ItemStatus> status = statusOf(name);
  return status ? std::optional(status->kind) : std::nullopt;
}

std::string Directory::linkTarget(const std::string& name) const {
  std::array<char, PATH_MAX> target{};
  const auto length = ::readlinkat(get(), name.c_str(), target.data(), target.size());
  if (length < 0)
    throw SystemError("The link " + quoted(pathOf(name)) + " could not be read", errno);
  return {target.data(), static_cast<std::size_t>(length)};
}

std::vector<std::string> Directory::names() const {
  DirectoryReader reader(entry(".").open(O_RDONLY | O_DIRECTORY));
  std::vector<std::string> names;
  while (const dirent* next = reader.next())
    names.emplace_back(static_cast<const char*>(next->d_name));
  if (reader.failure() != 0)
    throw SystemError(quoted(path()) + " could not be listed", reader.failure());
  return names;
}

std::vector<ListedItem> Directory::entries() const {
  std::vector<std::string> sorted = names();
  std::sort(sorted.begin(), sorted.end());
  std::vector<ListedItem> entries;
  for (std::string& name : sorted) {
    if (const std::optional<ItemStatus> status = statusOf(name))
      entries.push_back({*status, std::move(name)});
  }
  return entries;
}

std::string Directory::pathOf(const std::string& name) const {
  if (name == ".")
    return path();
  return path().ends_with('/') ? path() + name : path() + '/' + name;
}

Entry Entry::at(const URL& url) {
  systemPath(url);
  const URL standard = url.standardizedFileURL();
  std::string name = standard.lastPathComponent();
  if (name.empty() || name == "/" || name == "." || name == "..")
    throw SystemError(quoted(url.path()) + " is not an item in a directory", EINVAL);
  return {Directory::open(standard.deletingLastPathComponent(), Directory::Links::followed), std::move(name)};
}

struct stat Entry::status() const {
  struct stat status {};
  if (::fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    throwNotExamined(path());
  return status;
}

std::optional<FileIdentity> Entry::identity() const {
  struct stat status {};
  const bool isKnown = ::fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  return isKnown ? std::optional(identityOf(status)) : std::nullopt;
}

bool areInOneDirectory(const Entry& one, const Entry& other) {
  const auto identity = identityOf(one.directory.descriptor());
  return identity && identity == identityOf(other.directory.descriptor());
}

FileDescriptor Entry::open(int flags, unsigned mode) const {
  FileDescriptor opened =
      FileDescriptor::tryOpenAt(directory.descriptor(), name, flags | O_NOFOLLOW | O_NONBLOCK, mode);
  if (!opened.isOpen())
    throw SystemError(quoted(path()) + " could not be opened", errno);
  return opened;
}

std::optional<URL> resolvingLinks(const URL& url) {
  struct Free {
    void operator()(char* path) const noexcept { std::free(path); }
  };
  const std::unique_ptr<char, Free> path(::realpath(systemPath(url), nullptr));
  return path ? std::optional(URL::fileURLWithPath(path.get())) : std::nullopt;
}

}  // namespace platform
