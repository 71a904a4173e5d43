#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/crypto/digest.hpp"

namespace sign_bundle {

/// The content of a code directory.
struct CodeDescription {
  std::string identifier;
  /// Empty for no team.
  std::string team;
  std::uint32_t flags = 0;
  /// The code that the page digests cover.
  std::string_view code;
  /// Binary logarithm of the page size; 0 for a single page.
  unsigned pageSizeExponent = 12;
  std::uint64_t executableSegmentBase = 0;
  std::uint64_t executableSegmentLimit = 0;
  std::uint64_t executableSegmentFlags = 0;
  /// Version of the hardened runtime, if enabled.
  std::optional<std::uint32_t> runtimeVersion;
  /// The content of each special slot in use.
  std::map<std::uint32_t, std::string> specialSlots;
};

std::size_t codeDirectorySize(const CodeDescription& code, platform::DigestAlgorithm algorithm);

/// The code directory as a blob.
std::string makeCodeDirectory(const CodeDescription& code, platform::DigestAlgorithm algorithm);

/// Identifies the code: the directory's digest by its own algorithm, truncated to 20 bytes.
std::string codeDirectoryHash(std::string_view codeDirectory, platform::DigestAlgorithm algorithm);

}  // namespace sign_bundle
