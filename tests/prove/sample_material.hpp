#pragma once

#include <filesystem>

#include "rehearse/proof/material.hpp"

namespace prove {

/// Makes below `directory` a prefix that trusts a chain made for it, signed applications that write their
/// version to the file "starts", and images of them.
rehearse::Material makeSampleMaterial(const std::filesystem::path& directory);

}  // namespace prove
