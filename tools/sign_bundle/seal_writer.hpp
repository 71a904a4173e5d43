#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/files/data.hpp"
#include "tools/sign_bundle/bundle_layout.hpp"

namespace sign_bundle {

/// The entry for nested code in a seal.
struct SealedCode {
  std::string codeDirectoryHash;
  std::string requirementText;  ///< if empty, the hash alone identifies the code
};

/// The digests of a sealed file.
enum class SealedDigests {
  sha256,
  sha1AndSha256,
  /// The bare SHA-1, as in older software.
  sha1,
};

enum class ItemKind { file, link, nestedCode };

/// An item in a bundle other than a plain directory.
struct ContentItem {
  /// Relative to the content directory.
  std::string path;
  ItemKind kind = ItemKind::file;
  bool sealed = false;
  bool optional = false;
  /// The same by the older rules, which apply to files only.
  bool sealedByOlderRules = false;
  bool optionalByOlderRules = false;
};

/// All items that the rules apply to, sorted by path. Leaves out the signature's own files and the main
/// executable, which are never sealed. Does not descend into nested code.
std::vector<ContentItem> surveyContent(const BundleLayout& bundle);

/// The resource seal as a property list: both generations of rules and the items they seal. `nestedCode` has
/// an entry for each item of that kind.
platform::Data makeResourceSeal(const BundleLayout& bundle, const std::vector<ContentItem>& items,
                                const std::map<std::string, SealedCode>& nestedCode, SealedDigests digests);

}  // namespace sign_bundle
