#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>

#include "platform/formats/property_list.hpp"
#include "rehearse/findings/signature_facts.hpp"
#include "rehearse/record/rehearsal.hpp"
#include "rehearse/start/bundle_tree.hpp"
#include "rehearse/start/start_check.hpp"

namespace rehearse {

/// What findings are made of. An object of this type refers to the files, which must not change.
struct BundleFacts {
  ApplicationName name;
  std::string whyNotIdentified;  ///< as in `Identity`
  BundleTree tree;
  bool hasInformation = false;                   ///< there is an Info.plist that can be read
  platform::PropertyList information;            ///< without it, empty
  const BundleTree::Item* executable = nullptr;  ///< null when there is none
  /// Of the main executable's code; nothing for a script, which all run.
  std::optional<std::set<std::string>> architectures;
  std::optional<SystemVersion> leastSystem;
  std::optional<SignatureFacts> signature;
  std::string whyNotSigned;  ///< a sentence when there is no signature
};

/// Throws `platform::Error` unless the bundle can be read. A damaged Info.plist, executable or signature
/// counts as none.
BundleFacts readFacts(const std::filesystem::path& application, const std::string& source);

}  // namespace rehearse
