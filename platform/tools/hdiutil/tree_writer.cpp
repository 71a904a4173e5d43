#include "platform/tools/hdiutil/tree_writer.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"
#include "platform/tools/hdiutil/disk.hpp"
#include "platform/tools/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

void require(int result, const std::string& path) {
  if (result == 0)
    return;
  const int reason = errno;
  if (reason == EEXIST)
    throw ImageError("it holds " + quoted(path) + " more than once.");
  throw SystemError(quoted(path) + " could not be written", reason);
}

}  // namespace

bool isEntryName(std::string_view name) {
  constexpr std::string_view kForbidden("/\0", 2);
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(kForbidden) == std::string_view::npos;
}

std::vector<std::string> namesInPath(std::string_view path) {
  std::vector<std::string> names;
  for (bool isLast = false; !isLast;) {
    const auto slash = path.find('/');
    isLast = slash == std::string_view::npos;
    const std::string_view name = path.substr(0, slash);
    if (!isEntryName(name))
      throw ImageError("the name of a file in its volume cannot stand in a path.");
    names.emplace_back(name);
    path.remove_prefix(isLast ? path.size() : slash + 1);
  }
  return names;
}

TreeWriter::Place TreeWriter::find(const std::string& path) {
  if (path == ".")
    return {root_, path};
  std::vector<std::string> names = namesInPath(path);
  std::string name = std::move(names.back());
  names.pop_back();
  if (names.empty())
    return {root_, std::move(name)};
  if (!folder_.isOpen() || names != folderNames_) {
    constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
    FileDescriptor folder = FileDescriptor::openAt(root_, names.front(), kFolder);
    for (std::size_t depth = 1; depth < names.size(); ++depth)
      folder = FileDescriptor::openAt(folder, names[depth], kFolder);
    folder_ = std::move(folder);
    folderNames_ = std::move(names);
  }
  return {folder_, std::move(name)};
}

void TreeWriter::makeDirectory(const std::string& path) {
  const Place place = find(path);
  require(::mkdirat(place.folder.get(), place.name.c_str(), 0700), path);
}

void TreeWriter::makeFile(const std::string& path) {
  close();
  const Place place = find(path);
  open_ = FileDescriptor(uninterrupted([&] {
    return ::openat(place.folder.get(), place.name.c_str(),
                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  }));
  require(open_.isOpen() ? 0 : -1, path);
  openPath_ = path;
}

void TreeWriter::makeSymbolicLink(const std::string& path, const std::string& text) {
  if (text.find('\0') != std::string::npos)
    throw ImageError("a link in its volume is damaged.");
  const Place place = find(path);
  require(::symlinkat(text.c_str(), place.folder.get(), place.name.c_str()), path);
}

void TreeWriter::makeHardLink(const std::string& existing, const std::string& path) {
  const Place source = find(existing);
  const FileDescriptor folder = FileDescriptor::openAt(source.folder, ".", O_RDONLY | O_DIRECTORY);
  const Place place = find(path);
  require(::linkat(folder.get(), source.name.c_str(), place.folder.get(), place.name.c_str(), 0), path);
}

void TreeWriter::write(const std::string& path, std::uint64_t offset, std::span<const char> bytes) {
  if (!open_.isOpen() || openPath_ != path) {
    close();
    const Place place = find(path);
    open_ = FileDescriptor::openAt(place.folder, place.name, O_WRONLY | O_NOFOLLOW);
    openPath_ = path;
  }
  writeAt(open_, offset, bytes);
}

void TreeWriter::setMetadata(const std::string& path, const EntryMetadata& metadata) {
  close();
  const Place place = find(path);
  // Links are not changed by permissions, and no other entry of ours leads anywhere.
  // Everything here is this user's: what is meant to run as its owner would run as this user, for anybody.
  const mode_t permissions = metadata.permissions & (S_IRWXU | S_IRWXG | S_IRWXO);
  if (!metadata.isSymbolicLink)
    require(::fchmodat(place.folder.get(), place.name.c_str(), permissions, 0), path);
  const std::array<timespec, 2> times{
      timespec{.tv_sec = 0, .tv_nsec = UTIME_OMIT},
      timespec{.tv_sec = metadata.modified.seconds, .tv_nsec = metadata.modified.nanoseconds}};
  require(::utimensat(place.folder.get(), place.name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), path);
}

void TreeWriter::close() {
  if (open_.isOpen())
    open_.close(openPath_);
}

}  // namespace platform::hdiutil
