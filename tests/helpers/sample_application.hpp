#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace test {

/// Runs the signing tool with `arguments`. Throws `std::runtime_error` with what it says when it fails.
void runSignBundle(const std::vector<std::string>& arguments);

/// A throw-away certificate chain of Developer ID shape below a directory of its own, on fast keys. `root()`
/// is its anchor.
class SampleChain {
 public:
  static constexpr const char* kTeam = "QS7TEAM123";

  /// Makes the chain in `directory`, which must not exist. `options` go to the tool as they are, such as
  /// `{"--defect", "expired"}`.
  explicit SampleChain(std::filesystem::path directory, const std::string& team = kTeam,
                       const std::vector<std::string>& options = {});

  const std::filesystem::path& directory() const { return directory_; }
  std::filesystem::path root() const { return directory_ / "root.pem"; }

  /// Signs a bundle or a Mach-O file with everything nested in it. `options` go to the tool as they are.
  void sign(const std::filesystem::path& code, const std::vector<std::string>& options = {}) const;

 private:
  std::filesystem::path directory_;
};

enum class SampleExecutable { script, machO };

/// Part of a test's name.
inline void PrintTo(SampleExecutable executable, std::ostream* stream) {
  *stream << (executable == SampleExecutable::script ? "script" : "Mach-O");
}

struct SampleOptions {
  std::string name = "Sample Application";
  std::string identifier = "com.example.sample";
  std::string shortVersion = "1.2.3";
  std::string version = "42";
  SampleExecutable executable = SampleExecutable::script;
  /// What the main executable does where it is a script.
  std::string script = "#!/bin/sh\nexit 0\n";
};

/// Builds the unsigned application `<name>.app` in `parent` and returns its path. It holds one of everything
/// that a signature deals with: a framework with versions, links and another framework inside, libraries, a
/// helper tool, services, extensions and a bundle of resources, a login item, a system extension that is
/// sealed file by file, debugging symbols, localised and omitted files, a relative link, a provisioning
/// profile, a notarization ticket, empty and executable files, and names with blanks and characters outside
/// ASCII.
std::filesystem::path makeSampleApplication(const std::filesystem::path& parent,
                                            const SampleOptions& options = {});

/// A small application with a script, one resource and nothing else, for tests where size matters.
std::filesystem::path makePlainApplication(const std::filesystem::path& parent,
                                           const SampleOptions& options = {});

/// A script for an application that adds its version to the file "starts" in the directory above the
/// bundle's.
std::string startingScript(const std::string& version);

/// Installs the updater and its tools below `prefix`, where they trust these roots only.
void installUpdater(const std::filesystem::path& prefix, const std::vector<std::filesystem::path>& roots);

/// Writes a bundle's property list; without `executable`, that of a bundle of resources.
void writeInfoPlist(const std::filesystem::path& path, std::string_view identifier,
                    std::string_view executable, std::string_view shortVersion, std::string_view version);

}  // namespace test
