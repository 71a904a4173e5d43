#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace sign_bundle {

/// The components of a signature by slot, each a complete blob.
using Components = std::map<std::uint32_t, std::string>;

/// A blob: magic, total length, payload.
std::string makeBlob(std::uint32_t magic, std::string_view payload);

/// A blob that contains others behind an index of their types and offsets.
std::string makeSuperBlob(std::uint32_t magic, const Components& blobs);

}  // namespace sign_bundle
