#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "platform/ditto/attributes_copy.hpp"
#include "platform/foundation/error.hpp"

namespace platform::ditto {
namespace {

constexpr std::string_view kAccessControlPrefix = "system.posix_acl_";
constexpr std::string_view kUserPrefix = "user.";

/// Calls `call` until `buffer` is large enough; given no buffer, it returns the size that it needs. Returns
/// false on failure, with `errno` set.
template <typename Call>
bool fill(std::string& buffer, Call call) {
  while (true) {
    const ssize_t size = call(buffer.data(), buffer.size());
    if (size >= 0 && !buffer.empty()) {
      buffer.resize(static_cast<std::size_t>(size));
      return true;
    }
    if (size < 0 && errno != ERANGE)
      return false;
    const ssize_t needed = call(nullptr, 0);
    if (needed < 0)
      return false;
    buffer.resize(std::max<std::size_t>(static_cast<std::size_t>(needed), 1));
  }
}

std::vector<std::string> attributeNames(const FileDescriptor& file, const std::string& path) {
  std::string list(256, '\0');
  if (!fill(list, [&](char* buffer, std::size_t size) { return ::flistxattr(file.get(), buffer, size); })) {
    if (errno == ENOTSUP)
      return {};
    throw SystemError("The extended attributes of " + quoted(path) + " could not be read", errno);
  }
  std::vector<std::string> names;
  for (std::size_t begin = 0; begin < list.size();) {
    const std::size_t end = std::min(list.find('\0', begin), list.size());
    names.emplace_back(list, begin, end - begin);
    begin = end + 1;
  }
  return names;
}

/// The owner may set user attributes and access control lists; all others belong to the system or its
/// administrator.
bool belongsToTheOwner(std::string_view name) {
  return name.starts_with(kUserPrefix) || name.starts_with(kAccessControlPrefix);
}

void copyAttribute(const std::string& name, const FileDescriptor& source, const std::string& sourcePath,
                   const FileDescriptor& copy, const std::string& copyPath) {
  std::string value(256, '\0');
  const bool found = fill(value, [&](char* buffer, std::size_t size) {
    return ::fgetxattr(source.get(), name.c_str(), buffer, size);
  });
  const bool required = belongsToTheOwner(name);
  if (!found && required)
    throw SystemError(
        "The extended attribute " + quoted(name) + " of " + quoted(sourcePath) + " could not be read", errno);
  if (!found)
    return;
  if (::fsetxattr(copy.get(), name.c_str(), value.data(), value.size(), 0) == 0 || errno == ENOTSUP)
    return;
  if (required || (errno != EPERM && errno != EACCES))
    throw SystemError(
        "The extended attribute " + quoted(name) + " of " + quoted(copyPath) + " could not be set", errno);
}

void copyExtendedAttributes(const FileDescriptor& source, const std::string& sourcePath,
                            const FileDescriptor& copy, const std::string& copyPath) {
  const std::vector<std::string> names = attributeNames(source, sourcePath);
  for (const std::string& name : attributeNames(copy, copyPath)) {
    const bool inherited =
        name.starts_with(kAccessControlPrefix) && std::ranges::find(names, name) == names.end();
    if (inherited && ::fremovexattr(copy.get(), name.c_str()) != 0 && errno != ENODATA)
      throw SystemError("The access control list of " + quoted(copyPath) + " could not be removed", errno);
  }
  for (const std::string& name : names)
    copyAttribute(name, source, sourcePath, copy, copyPath);
}

/// Changes what the caller is permitted to change; `change` takes the user and the group.
template <typename Change>
void changeOwner(const struct stat& wanted, Change change) {
  constexpr auto kUnchanged = static_cast<uid_t>(-1);
  if (change(wanted.st_uid, wanted.st_gid) == 0)
    return;
  // A user may still give a file to one of their groups. Otherwise the copy remains the caller's own.
  static_cast<void>(change(kUnchanged, wanted.st_gid));
}

/// The mode for a copy whose owner has been set.
mode_t permittedMode(const struct stat& source, const struct stat& copy) {
  mode_t mode = source.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO | S_ISUID | S_ISGID | S_ISVTX);
  if (copy.st_uid != source.st_uid)
    mode &= ~static_cast<mode_t>(S_ISUID);
  if (copy.st_gid != source.st_gid)
    mode &= ~static_cast<mode_t>(S_ISGID);
  return mode;
}

bool sameOwner(const struct stat& left, const struct stat& right) {
  return left.st_uid == right.st_uid && left.st_gid == right.st_gid;
}

bool sameTime(const timespec& left, const timespec& right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

}  // namespace

void requireUnchanged(const FileDescriptor& file, const struct stat& before, const std::string& path) {
  const struct stat after = statusOf(file, path);
  if (after.st_size != before.st_size || !sameTime(after.st_mtim, before.st_mtim))
    throw Error(quoted(path) + " changed while it was being copied.");
}

void copyAttributes(const FileDescriptor& source, const std::string& sourcePath, const struct stat& status,
                    const FileDescriptor& copy, const std::string& copyPath) {
  struct stat copyStatus = statusOf(copy, copyPath);
  if (!sameOwner(status, copyStatus)) {
    changeOwner(status, [&](uid_t user, gid_t group) { return ::fchown(copy.get(), user, group); });
    copyStatus = statusOf(copy, copyPath);
  }
  copyExtendedAttributes(source, sourcePath, copy, copyPath);
  // After the attributes: without write permission even the owner could not set them.
  if (::fchmod(copy.get(), permittedMode(status, copyStatus)) != 0)
    throw SystemError("The permissions of " + quoted(copyPath) + " could not be set", errno);
  const std::array times = {status.st_atim, status.st_mtim};
  if (::futimens(copy.get(), times.data()) != 0)
    throw SystemError("The modification time of " + quoted(copyPath) + " could not be set", errno);
}

void copyLinkAttributes(const struct stat& status, const Entry& copy) {
  if (!sameOwner(status, copy.status()))
    changeOwner(status, [&](uid_t user, gid_t group) {
      return ::fchownat(copy.directory.get(), copy.name.c_str(), user, group, AT_SYMLINK_NOFOLLOW);
    });
  const std::array times = {status.st_atim, status.st_mtim};
  if (::utimensat(copy.directory.get(), copy.name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0)
    throw SystemError("The modification time of " + quoted(copy.path()) + " could not be set", errno);
}

}  // namespace platform::ditto
