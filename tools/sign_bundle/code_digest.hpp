#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/url.hpp"

struct evp_md_st;

namespace sign_bundle {

/// The algorithms of the format, weakest first. The numbers are its hash types.
enum class DigestAlgorithm : std::uint8_t { sha1 = 1, sha256 = 2, sha384 = 4 };

std::size_t digestSize(DigestAlgorithm algorithm);
const evp_md_st* libraryDigest(DigestAlgorithm algorithm);

std::string digestOf(std::string_view bytes, DigestAlgorithm algorithm);

/// The digests of a file, one for each of `algorithms`, from one reading in pieces. Throws `SystemError`.
std::vector<std::string> digestsOfFile(const platform::URL& file,
                                       const std::vector<DigestAlgorithm>& algorithms);

}  // namespace sign_bundle
