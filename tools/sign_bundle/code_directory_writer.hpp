#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/crypto/digest.hpp"

namespace sign_bundle {

/// What a code directory says of code and binds.
struct CodeDescription {
  std::string identifier;
  /// Empty: no team.
  std::string team;
  std::uint32_t flags = 0;
  /// All the code that is bound.
  std::string_view code;
  /// The power of two that is a page's size; 0 for one page that is as long as the code.
  unsigned pageSizeExponent = 12;
  std::uint64_t executableSegmentBase = 0;
  std::uint64_t executableSegmentLimit = 0;
  std::uint64_t executableSegmentFlags = 0;
  /// The version of the hardened runtime, for code that has it.
  std::optional<std::uint32_t> runtimeVersion;
  /// The whole content of each special slot that is in use.
  std::map<std::uint32_t, std::string> specialSlots;
};

std::size_t codeDirectorySize(const CodeDescription& code, platform::DigestAlgorithm algorithm);

/// The code directory as a blob.
std::string makeCodeDirectory(const CodeDescription& code, platform::DigestAlgorithm algorithm);

/// The name under which the system knows the code: the directory's digest by its own algorithm, cut to 20
/// bytes.
std::string codeDirectoryHash(std::string_view codeDirectory, platform::DigestAlgorithm algorithm);

}  // namespace sign_bundle
