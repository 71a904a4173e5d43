#include "platform/security/directory.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>

#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"

namespace platform {
namespace {

struct CloseStream {
  void operator()(DIR* stream) const noexcept { ::closedir(stream); }
};

ItemKind kindOfMode(mode_t mode) {
  if (S_ISREG(mode))
    return ItemKind::file;
  if (S_ISDIR(mode))
    return ItemKind::directory;
  return S_ISLNK(mode) ? ItemKind::link : ItemKind::special;
}

ItemStatus itemStatus(const struct stat& status) {
  const bool isFile = S_ISREG(status.st_mode);
  return {.kind = kindOfMode(status.st_mode),
          .identity = {.device = status.st_dev, .inode = status.st_ino},
          .size = static_cast<std::uint64_t>(status.st_size),
          .isExecutable = (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0,
          .hasHardLinks = isFile && status.st_nlink > 1};
}

/// Throws `SystemError` for a descriptor of anything but a regular file.
ItemStatus fileStatus(const FileDescriptor& descriptor, const std::string& path) {
  struct stat status {};
  if (::fstat(descriptor.get(), &status) != 0)
    throw SystemError(quoted(path) + " could not be inspected", errno);
  if (!S_ISREG(status.st_mode))
    throw SystemError(quoted(path) + " is not a regular file", EINVAL);
  return itemStatus(status);
}

FileDescriptor openItem(const FileDescriptor& directory, const std::string& name, int flags,
                        const std::string& path) {
  FileDescriptor opened(uninterrupted(
      [&] { return ::openat(directory.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | flags); }));
  if (!opened.isOpen())
    throw SystemError(quoted(path) + " could not be opened", errno);
  return opened;
}

}  // namespace

CodeFile::CodeFile(FileDescriptor descriptor, std::string path)
    : descriptor_(std::move(descriptor)), path_(std::move(path)), status_(fileStatus(descriptor_, path_)) {}

void CodeFile::readAt(std::uint64_t offset, std::span<char> buffer) const {
  while (!buffer.empty()) {
    const auto count = uninterrupted(
        [&] { return ::pread(descriptor_.get(), buffer.data(), buffer.size(), static_cast<off_t>(offset)); });
    if (count < 0)
      throw SystemError(quoted(path_) + " could not be read", errno);
    if (count == 0)
      throw Error(quoted(path_) + " became shorter while it was read.");
    offset += static_cast<std::uint64_t>(count);
    buffer = buffer.subspan(static_cast<std::size_t>(count));
  }
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
  throw SystemError(quoted(url.path()) + " could not be inspected", errno);
}

Directory Directory::subdirectory(const std::string& name) const {
  const std::string path = pathOf(name);
  return {openItem(*descriptor_, name, O_DIRECTORY, path), path};
}

CodeFile Directory::openFile(const std::string& name) const {
  const std::string path = pathOf(name);
  // Opening a pipe would otherwise wait for its writer.
  return {openItem(*descriptor_, name, O_NONBLOCK, path), path};
}

std::string Directory::readFile(const std::string& name, std::uint64_t limit) const {
  const CodeFile file = openFile(name);
  if (file.size() > limit)
    throw Error(quoted(file.path()) + " is too large.");
  return file.read(0, file.size());
}

std::optional<ItemStatus> Directory::statusOf(const std::string& name) const {
  struct stat status {};
  if (::fstatat(descriptor_->get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    return itemStatus(status);
  if (errno == ENOENT)
    return std::nullopt;
  throw SystemError(quoted(pathOf(name)) + " could not be inspected", errno);
}

std::optional<ItemKind> Directory::kindOf(const std::string& name) const {
  const std::optional<ItemStatus> status = statusOf(name);
  return status ? std::optional(status->kind) : std::nullopt;
}

std::string Directory::linkTarget(const std::string& name) const {
  std::array<char, PATH_MAX> target{};
  const auto length = ::readlinkat(descriptor_->get(), name.c_str(), target.data(), target.size());
  if (length < 0)
    throw SystemError("The link " + quoted(pathOf(name)) + " could not be read", errno);
  return {target.data(), static_cast<std::size_t>(length)};
}

std::vector<DirectoryEntry> Directory::entries() const {
  FileDescriptor again = openItem(*descriptor_, ".", O_DIRECTORY, path_);
  const std::unique_ptr<DIR, CloseStream> stream(::fdopendir(again.get()));
  if (!stream)
    throw SystemError(quoted(path_) + " could not be listed", errno);
  again.release();
  std::vector<DirectoryEntry> entries;
  while (true) {
    errno = 0;
    const dirent* next =
        ::readdir(stream.get());  // NOLINT(concurrency-mt-unsafe): the stream is this call's own
    if (next == nullptr)
      break;
    std::string name(static_cast<const char*>(next->d_name));
    if (name == "." || name == "..")
      continue;
    if (const std::optional<ItemStatus> status = statusOf(name))
      entries.push_back({*status, std::move(name)});
  }
  if (errno != 0)
    throw SystemError(quoted(path_) + " could not be listed", errno);
  std::sort(entries.begin(), entries.end(),
            [](const auto& left, const auto& right) { return left.name < right.name; });
  return entries;
}

}  // namespace platform
