#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/files/held_item.hpp"
#include "platform/files/item_place.hpp"
#include "platform/foundation/error.hpp"
#include "platform/foundation/system_call.hpp"

namespace platform {
namespace {

FileDescriptor hold(const URL& url) {
  const ItemPlace place = placeOf(url);
  FileDescriptor item(uninterrupted(
      [&] { return ::openat(place.directory.get(), place.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC); }));
  if (!item.isOpen())
    throw SystemError(quoted(url.path()) + " could not be opened", errno);
  return item;
}

}  // namespace

HeldItem::HeldItem(const URL& url) : item_(hold(url)) {}

bool HeldItem::isAt(const URL& url) const {
  const ItemPlace place = placeOf(url);
  return isAt(place.directory, place.name);
}

bool HeldItem::isAt(const FileDescriptor& directory, const std::string& name) const {
  struct stat status {};
  if (::fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    return is(status);
  if (errno == ENOENT)
    return false;
  throw SystemError(quoted(name) + " could not be compared", errno);
}

bool HeldItem::is(const struct stat& status) const {
  struct stat own {};
  if (::fstat(item_.get(), &own) != 0)
    throw SystemError("An item could not be compared", errno);
  return own.st_dev == status.st_dev && own.st_ino == status.st_ino;
}

}  // namespace platform
