#pragma once

#include <vector>

#include "platform/security/code_directory.hpp"
#include "platform/security/signed_attributes.hpp"

namespace platform {

/// Checks the signer's own lists of code directories, which bind those beside the first. Each list that is
/// there names every directory and no other; where there are several directories, one list has to be there.
/// Throws `FormatError`.
void requireDirectoriesAreSigned(const SignedAttributes& attributes,
                                 const std::vector<CodeDirectory>& directories);

}  // namespace platform
