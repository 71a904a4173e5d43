#include "platform/files/held_item.hpp"

#include <cerrno>

#include "platform/files/system_files.hpp"
#include "platform/foundation/error.hpp"

namespace platform {

HeldItem::HeldItem(const URL& url) : item_(openItself(Entry::at(url))) {}

bool HeldItem::isAt(const URL& url) const {
  return isAt(Entry::at(url));
}

bool HeldItem::isAt(const Entry& entry) const {
  if (const std::optional<FileIdentity> identity = entry.identity())
    return is(*identity);
  if (errno == ENOENT)
    return false;
  throw SystemError(quoted(entry.name) + " could not be compared", errno);
}

bool HeldItem::is(const FileIdentity& identity) const {
  const std::optional<FileIdentity> own = identityOf(item_);
  if (!own)
    throw SystemError("An item could not be compared", errno);
  return *own == identity;
}

}  // namespace platform
