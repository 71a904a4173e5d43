#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace sign_bundle {

/// A signature's components by their slot, each a whole blob.
using Components = std::map<std::uint32_t, std::string>;

/// A blob: magic, length of the whole, payload.
std::string makeBlob(std::uint32_t magic, std::string_view payload);

/// A blob that holds others, with a table of their types and places.
std::string makeSuperBlob(std::uint32_t magic, const Components& blobs);

}  // namespace sign_bundle
