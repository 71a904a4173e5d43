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

/// A symbolic link with exactly this target.
struct SealedLink {
  std::string target;
};

/// Nested code, which must be valid itself and satisfy the requirement; without a requirement it must have
/// the hash.
struct SealedCode {
  std::optional<std::string> codeDirectoryHash;
  std::optional<std::string> requirement;
};

struct SealedItem {
  std::variant<SealedFile, SealedLink, SealedCode> content;
  bool optional = false;  ///< may be missing
};

/// A bundle's items except its main executable and Info.plist, by path relative to its content directory.
struct ResourceSeal {
  using Items = std::map<std::string, SealedItem, std::less<>>;

  Items items;  ///< by `sealKey` of the path
  ResourceRules rules;

  /// Reads version 2 of the seal from the file `CodeResources`; version 1, which has only weak digests, is
  /// ignored. Throws `FormatError`.
  static ResourceSeal read(const Data& file);
};

/// The canonical decomposition of a path (Unicode Standard Annex #15), by which paths are compared: the file
/// system on which a bundle was sealed may have normalized names differently.
std::string sealKey(std::string_view path);

}  // namespace platform
