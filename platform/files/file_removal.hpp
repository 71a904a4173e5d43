#pragma once

#include <string>
#include <string_view>

#include "platform/files/file_descriptor.hpp"
#include "platform/files/held_item.hpp"

namespace platform {

/// Removes the file, link or tree `name` in `directory`; `item` names it in a failure, which is a
/// `SystemError`. Another file system that is mounted in the tree is a failure; nothing in it is removed.
/// So is `spared`, which is compared where it is about to be opened or unlinked. Uses a constant number of
/// descriptors and no recursion, whatever the depth.
void removeTree(const FileDescriptor& directory, const std::string& name, std::string_view item,
                const HeldItem* spared = nullptr);

}  // namespace platform
