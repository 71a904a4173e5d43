#pragma once

#include "rehearse/proof/material.hpp"
#include "rehearse/proof/prove.hpp"

namespace rehearse {

/// What the updates of a release are made of. The files and directories of the release are used in place.
/// Throws `platform::Error` when one cannot be read.
Material materialOf(const ProvedRelease& release);

}  // namespace rehearse
