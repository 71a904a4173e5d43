#include "platform/hdiutil/tree_writer.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "platform/foundation/error.hpp"
#include "platform/hdiutil/image_error.hpp"

namespace platform::hdiutil {
namespace {

void require(int result, const std::string& path) {
  if (result == 0)
    return;
  const int reason = errno;
  if (reason == EEXIST)
    throw ImageError("its volume is damaged: it contains " + quoted(path) + " more than once");
  throw SystemError(quoted(path) + " could not be written", reason);
}

/// The length of the path of the innermost folder that both paths have in common.
std::size_t commonFolder(std::string_view one, std::string_view other) {
  const auto common = static_cast<std::size_t>(
      std::mismatch(one.begin(), one.end(), other.begin(), other.end()).first - one.begin());
  const auto isWhole = [common](std::string_view path) {
    return common == path.size() || path[common] == '/';
  };
  if (isWhole(one) && isWhole(other))
    return common;
  const auto slash = one.substr(0, common).rfind('/');
  return slash == std::string_view::npos ? 0 : slash;
}

void requireEntryName(std::string_view name) {
  if (!isEntryName(name))
    throw ImageError("the name of a file in its volume is not valid in a path");
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
    requireEntryName(name);
    names.emplace_back(name);
    path.remove_prefix(isLast ? path.size() : slash + 1);
  }
  return names;
}

Entry TreeWriter::find(const std::string& path) {
  if (path == ".")
    return root_.entry(path);
  const auto slash = path.rfind('/');
  const bool isInRoot = slash == std::string::npos;
  std::string name = isInRoot ? path : path.substr(slash + 1);
  requireEntryName(name);
  if (isInRoot)
    return root_.entry(std::move(name));
  enter(std::string_view(path).substr(0, slash));
  return folder_.entry(std::move(name));
}

void TreeWriter::enter(std::string_view folder) {
  if (folder == folderPath_)
    return;
  const std::string previous = std::exchange(folderPath_, {});
  Directory current = std::exchange(folder_, root_);
  // Without their paths, which take time and memory in proportion to the depth.
  const auto open = [](const Directory& from, const std::string& name) {
    return Directory(from.entry(name).open(O_RDONLY | O_DIRECTORY), {});
  };
  const std::size_t common = commonFolder(previous, folder);
  if (common == 0)
    current = root_;
  else
    // Safe: no other process changes the tree, and no folder was entered through a link.
    for (auto up = std::count(previous.begin() + static_cast<std::ptrdiff_t>(common), previous.end(), '/');
         up > 0; --up)
      current = open(current, "..");

  for (std::size_t begin = common == 0 ? 0 : common + 1; begin < folder.size();) {
    const std::string name(folder.substr(begin, folder.find('/', begin) - begin));
    requireEntryName(name);
    current = open(current, name);
    begin += name.size() + 1;
  }
  folder_ = std::move(current);
  folderPath_ = folder;
}

void TreeWriter::makeDirectory(const std::string& path) {
  const Entry entry = find(path);
  require(::mkdirat(entry.directory.get(), entry.name.c_str(), 0700), path);
}

void TreeWriter::makeEmptyFile(const std::string& path) {
  const Entry entry = find(path);
  FileDescriptor file = FileDescriptor::tryOpenAt(entry.directory.descriptor(), entry.name,
                                                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
  require(file.isOpen() ? 0 : -1, path);
  file.close(path);
}

void TreeWriter::makeSymbolicLink(const std::string& path, const std::string& text) {
  if (text.find('\0') != std::string::npos)
    throw ImageError("a link in its volume is damaged");
  const Entry entry = find(path);
  require(::symlinkat(text.c_str(), entry.directory.get(), entry.name.c_str()), path);
}

void TreeWriter::linkFile(const Entry& file, const std::string& path) {
  const Entry entry = find(path);
  require(::linkat(file.directory.get(), file.name.c_str(), entry.directory.get(), entry.name.c_str(), 0),
          path);
}

void TreeWriter::setMetadata(const std::string& path, const EntryMetadata& metadata) {
  const Entry entry = find(path);
  // All entries belong to this user: a set-user-ID program in the image would run as this user for everyone.
  const mode_t permissions = metadata.permissions & (S_IRWXU | S_IRWXG | S_IRWXO);
  // fchmodat follows links, so it must not be called for one.
  if (!metadata.isSymbolicLink)
    require(::fchmodat(entry.directory.get(), entry.name.c_str(), permissions, 0), path);
  const std::array<timespec, 2> times{
      timespec{.tv_sec = 0, .tv_nsec = UTIME_OMIT},
      timespec{.tv_sec = metadata.modified.seconds, .tv_nsec = metadata.modified.nanoseconds}};
  require(::utimensat(entry.directory.get(), entry.name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), path);
}

}  // namespace platform::hdiutil
