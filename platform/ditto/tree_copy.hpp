#pragma once

#include "platform/files/url.hpp"

namespace platform::ditto {

/// Copies the file or directory tree `source` to `destination`, which must not exist, with its modes, times,
/// symbolic links, hard links within the tree, extended attributes, access control lists and holes. If
/// `source` itself is a symbolic link, its target is copied; links inside the tree are never followed. Other
/// kinds of files are refused. Nothing that exists is written to or replaced.
///
/// Throws `Error` with one sentence that names the item and the reason; the caller then removes the
/// incomplete copy. Works at any depth with a bounded number of descriptors; memory is bounded by the longest
/// path, the number of directories side by side and the number of hard links still to be created. Copies
/// files on threads of its own, all of which have ended when it returns or throws. The process's umask must
/// not mask the owner's permissions.
void copyTree(const URL& source, const URL& destination);

}  // namespace platform::ditto
