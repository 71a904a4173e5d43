#pragma once

#include "platform/files/directory.hpp"

namespace platform::ditto {

/// Makes `copy`, which does not exist, a copy of the regular file `source` with all its attributes. Throws
/// `Error`, also when the source is seen to change; a copy that has been begun stays.
void copyFile(const Entry& source, const Entry& copy);

/// Makes `copy`, which does not exist, the same symbolic link as `source`, whose status is given. Throws
/// `Error`.
void copyLink(const Entry& source, const struct stat& status, const Entry& copy);

}  // namespace platform::ditto
