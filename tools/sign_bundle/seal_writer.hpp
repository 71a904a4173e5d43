#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/files/data.hpp"
#include "tools/sign_bundle/bundle_layout.hpp"

namespace sign_bundle {

/// What a seal says of nested code.
struct SealedCode {
  std::string codeDirectoryHash;
  std::string requirementText;  ///< empty: the hash alone names the code
};

/// How a seal states the content of a file.
enum class SealedDigests {
  sha256,
  sha1AndSha256,
  /// The bare SHA-1, as in older software.
  sha1,
};

enum class ItemKind { file, link, nestedCode };

/// One thing in a bundle that is not a plain directory.
struct ContentItem {
  /// Relative to the content directory.
  std::string path;
  ItemKind kind = ItemKind::file;
  bool sealed = false;
  bool optional = false;
  /// The same by the older rules, which know files only.
  bool sealedByOlderRules = false;
  bool optionalByOlderRules = false;
};

/// Everything that the rules decide on, sorted by path. The signature's own files and the main executable,
/// which are never part of the seal, are left out. Nested code is not descended into.
std::vector<ContentItem> surveyContent(const BundleLayout& bundle);

/// The resource seal as a property list: both generations of rules, and what they seal. `nestedCode` has an
/// entry for every item of that kind.
platform::Data makeResourceSeal(const BundleLayout& bundle, const std::vector<ContentItem>& items,
                                const std::map<std::string, SealedCode>& nestedCode, SealedDigests digests);

}  // namespace sign_bundle
