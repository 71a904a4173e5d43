#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/security/security_error.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/sample_application.hpp"

namespace test {

/// The result of a check: success, or a status and a sentence.
struct Verdict {
  platform::OSStatus status = platform::errSecSuccess;
  std::string sentence;

  bool accepted() const { return status == platform::errSecSuccess; }
};

/// A temporary directory with a certificate chain, whose root is the only trusted one, for applications that
/// it signs.
class SigningWorkshop {
 public:
  /// `options` are those of the chain.
  explicit SigningWorkshop(const std::vector<std::string>& options = {});

  const SampleChain& chain() const { return chain_; }
  std::filesystem::path anchors() const { return directory_ / "anchors"; }
  std::filesystem::path operator/(std::string_view name) const { return directory_ / name; }

  /// The verdict on code, with a requirement if one is given.
  Verdict judge(const std::filesystem::path& code, const std::optional<std::string>& requirement = {}) const;

  /// A new signed application with every kind of item that a signature covers.
  std::filesystem::path signedApplication(const SampleOptions& sample = {},
                                          const std::vector<std::string>& options = {}) const;
  /// A new small signed application.
  std::filesystem::path signedPlainApplication(const std::vector<std::string>& options = {}) const;

 private:
  std::filesystem::path newDirectory() const;

  TemporaryDirectory directory_;
  SampleChain chain_;
};

/// Shared by all tests that do not need their own.
const SigningWorkshop& workshop();

/// Creates the directory `anchors` with `root` as the only trusted root.
void trustOnly(const std::filesystem::path& root, const std::filesystem::path& anchors);

/// The requirement for an application with this identifier and the sample's team.
std::string sampleRequirement(const std::string& identifier = "com.example.sample");

}  // namespace test
