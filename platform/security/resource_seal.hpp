#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>

#include "platform/crypto/digest.hpp"
#include "platform/security/resource_rules.hpp"

namespace platform {

/// A file with this content.
struct SealedFile {
  DigestAlgorithm algorithm;
  std::string digest;
};

/// A symbolic link with exactly this text.
struct SealedLink {
  std::string target;
};

/// Nested code that is valid itself and satisfies the requirement; without one, it is known by the hash.
struct SealedCode {
  std::optional<std::string> codeDirectoryHash;
  std::optional<std::string> requirement;
};

struct SealedItem {
  std::variant<SealedFile, SealedLink, SealedCode> content;
  bool optional = false;
};

/// What a bundle holds beside its main executable and its Info.plist, by path from its content directory.
struct ResourceSeal {
  using Items = std::map<std::string, SealedItem, std::less<>>;

  Items items;  ///< under the keys that `sealKey` gives
  ResourceRules rules;

  /// Reads the file `CodeResources` in its second version; the first, which knew no strong digest, does not
  /// count. Throws `FormatError`.
  static ResourceSeal read(const Data& file);
};

/// The form in which paths are compared. File systems differ in how they write an accented letter (Unicode
/// Standard Annex #15), and a seal may have been made on another one.
std::string sealKey(std::string_view path);

}  // namespace platform
