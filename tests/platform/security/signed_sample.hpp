#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/security/security_error.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/sample_application.hpp"

namespace test {

/// What a check says: nothing wrong, or the status and the sentence.
struct Verdict {
  platform::OSStatus status = platform::errSecSuccess;
  std::string sentence;

  bool accepted() const { return status == platform::errSecSuccess; }
};

/// A throw-away chain of certificates, whose root is the only one that is trusted, and room for what it
/// signs.
class SigningWorkshop {
 public:
  /// `options` are those of the chain.
  explicit SigningWorkshop(const std::vector<std::string>& options = {});

  const SampleChain& chain() const { return chain_; }
  std::filesystem::path anchors() const { return directory_ / "anchors"; }
  std::filesystem::path operator/(std::string_view name) const { return directory_ / name; }

  /// The verdict on code, with a requirement if one is given.
  Verdict judge(const std::filesystem::path& code, const std::optional<std::string>& requirement = {}) const;

  /// A new application with everything that signatures deal with, signed.
  std::filesystem::path signedApplication(const SampleOptions& sample = {},
                                          const std::vector<std::string>& options = {}) const;
  /// A new small application, signed.
  std::filesystem::path signedPlainApplication(const std::vector<std::string>& options = {}) const;

 private:
  std::filesystem::path newDirectory() const;

  TemporaryDirectory directory_;
  SampleChain chain_;
};

/// One for all tests that need none of their own.
const SigningWorkshop& workshop();

/// The chain's certificates as the only trusted ones, in a directory of that name.
void trustOnly(const std::filesystem::path& root, const std::filesystem::path& anchors);

/// The requirement that an application of the sample's identifier and team is judged by.
std::string sampleRequirement(const std::string& identifier = "com.example.sample");

}  // namespace test
