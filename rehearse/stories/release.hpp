#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "rehearse/files/private_prefix.hpp"
#include "rehearse/files/trees.hpp"
#include "rehearse/record/rehearsal.hpp"
#include "updater/records/install_plan.hpp"

namespace rehearse {

/// An application that was copied for the rehearsal.
struct Application {
  std::filesystem::path bundle;
  ApplicationName name;
  Inventory inventory;
  std::string whyNotIdentified;  ///< as in `Identity`
  std::string team;  ///< that has signed it with a Developer ID; empty without a valid signature of one
  std::string signatureFailure;  ///< why there is no such team, a sentence; empty if it is not identified
  bool isChanged = false;        ///< the signature is valid, and an item was changed, added or removed since
  std::uint64_t size = 0;        ///< of its files, in bytes
};

/// Reads an application whose copy is `bundle`. Throws `platform::Error` when it cannot be read.
Application readApplication(const PrivatePrefix& prefix, const std::filesystem::path& bundle,
                            const std::string& source);

std::string replaceAll(std::string text, const std::string& what, std::string_view by);

/// A sentence whose paths below `directory` are relative to it.
std::string withoutDirectory(std::string sentence, const std::filesystem::path& directory);

/// What is to be published.
struct OfferedRelease {
  std::filesystem::path image;             ///< a copy
  std::string source;                      ///< as it was given
  std::string digest;                      ///< SHA-256 of the image, lower-case hexadecimal
  std::optional<Application> application;  ///< nothing when the image contains none
};

/// Copies the image and the application in it into `directory`. `identifier` says which one is meant if there
/// are several. Throws `platform::Error` when the image cannot be read.
OfferedRelease readRelease(const PrivatePrefix& prefix, const std::filesystem::path& image,
                           const std::string& source, const std::string& identifier,
                           const std::filesystem::path& directory);

/// The plan that the installed application writes to install the release. Its paths are examples. What cannot
/// be known of the release, such as the team of one that is not signed, is that of the installed one.
QuorinOstrevalUpdater::InstallPlan planFor(const OfferedRelease& release, const Application& installed);

/// The plan as JSON text for a person, with a line for each member.
std::string textOf(const QuorinOstrevalUpdater::InstallPlan& plan);

struct Difference {
  std::string what;  ///< such as "version"
  std::string
      sentence;  ///< such as "The plan expects the version "2.1", the application in the image has "2.0"."
};

/// In what the plan's expectations differ from the release.
std::vector<Difference> differences(const QuorinOstrevalUpdater::InstallPlan& plan,
                                    const OfferedRelease& release);

}  // namespace rehearse
