#pragma once

#include "platform/files/url.hpp"

namespace platform::ditto {

/// Copies the file or directory tree `source` to `destination`, at which nothing may be yet, with everything
/// that belongs to it: modes, times, links as they are, hard links within the tree, extended attributes and
/// access control lists, holes. A source that is a link counts as what it leads to, so that the copy never
/// depends on another place; in the tree, links are never followed. Other kinds of files are refused, and
/// whatever is made is made anew, inside the destination.
///
/// Throws `Error`: one sentence that names the item and the reason. What has been copied until then stays for
/// the caller to remove. Works at any depth with a bounded number of descriptors; memory is bounded by the
/// longest path, the number of directories side by side and the number of hard links still to be made. The
/// process's file mode creation mask must leave the owner's permissions alone.
void copyTree(const URL& source, const URL& destination);

}  // namespace platform::ditto
