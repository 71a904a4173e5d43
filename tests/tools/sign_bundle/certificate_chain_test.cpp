#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/files.hpp"
#include "tests/support/program.hpp"
#include "tests/support/sample_application.hpp"

namespace fs = std::filesystem;

namespace {

using test::SampleChain;
using testing::HasSubstr;

constexpr const char* kOpenSsl = "/usr/bin/openssl";

std::string described(const fs::path& certificate) {
  return test::runProgram(kOpenSsl, {"x509", "-in", certificate, "-noout", "-text"}).output;
}

/// Whether the `openssl` program accepts the chain, with the private extensions
/// and the time left out of account.
bool leadsToRoot(const fs::path& chain) {
  return test::runProgram(kOpenSsl,
                          {"verify", "-ignore_critical", "-no_check_time", "-purpose", "any", "-CAfile",
                           chain / "root.pem", "-untrusted", chain / "chain.pem", chain / "leaf.pem"})
             .exitStatus == 0;
}

/// What matters of a certificate, a letter each: the extension of a Developer
/// ID authority or leaf, the usage for signing code, an unknown critical
/// extension, an end in the past.
std::string traitsOf(const fs::path& certificate) {
  const std::string text = described(certificate);
  std::string traits;
  for (const auto& [mark, letter] : {std::pair("1.2.840.113635.100.6.2.6: critical", 'A'),
                                     {"1.2.840.113635.100.6.1.13: critical", 'L'},
                                     {"Code Signing", 'S'},
                                     {"1.3.6.1.4.1.55555.1.1: critical", '?'},
                                     {"Not After : Dec 31 23:59:59 2014", 'E'}}) {
    if (text.find(mark) != std::string::npos)
      traits += letter;
  }
  return traits;
}

TEST(CertificateChain, HasExactlyTheDefectAskedFor) {
  struct Case {
    const char* defect;
    const char* leaf;
    const char* intermediate;  ///< the lowest certificate above the leaf
    bool leadsToRoot = true;
  };
  const test::TemporaryDirectory directory;
  for (const Case& expected : {Case{"", "LS", "A"},
                               {"intermediate-without-extension", "LS", ""},
                               {"leaf-without-extension", "S", "A"},
                               {"intermediate-extension-in-leaf", "ALS", "A"},
                               {"leaf-extension-in-intermediate", "LS", "AL"},
                               {"leaf-without-code-signing-usage", "L", "A"},
                               {"unknown-critical-extension-in-leaf", "LS?", "A"},
                               {"unknown-critical-extension-in-intermediate", "LS", "A?"},
                               {"self-signed-leaf", "LS", "A", false},
                               {"without-intermediate", "LS", ""},
                               {"expired", "LSE", "AE"}}) {
    SCOPED_TRACE(expected.defect);
    std::vector<std::string> options;
    if (*expected.defect != '\0')
      options = {"--defect", expected.defect};
    const SampleChain chain(directory / (std::string("chain ") + expected.defect), SampleChain::kTeam,
                            options);
    EXPECT_EQ(traitsOf(chain.directory() / "leaf.pem"), expected.leaf);
    EXPECT_EQ(traitsOf(chain.directory() / "chain.pem"), expected.intermediate);
    EXPECT_EQ(leadsToRoot(chain.directory()), expected.leadsToRoot);
    EXPECT_THAT(described(chain.directory() / "leaf.pem"), HasSubstr("OU = QS7TEAM123"));
  }
}

TEST(CertificateChain, HasKeysOfEitherKindForTheirOwnerAloneAndReplacesNothing) {
  const test::TemporaryDirectory directory;
  for (const auto& [kind, bits] : {std::pair("rsa", "(2048 bit)"), std::pair("ec", "(256 bit)")}) {
    const fs::path chain = directory / kind;
    const std::vector<std::string> make = {"make-chain", chain, "--team", "TEAM", "--keys", kind};
    test::runSignBundle(make);
    EXPECT_THAT(described(chain / "leaf.pem"), HasSubstr(bits));
    EXPECT_TRUE(leadsToRoot(chain));
    for (const char* name : {"leaf_key.pem", "time_stamp_key.pem"})
      EXPECT_EQ(fs::status(chain / name).permissions(), fs::perms(0600)) << name;
    const auto before = test::inventory(chain);
    EXPECT_THROW(test::runSignBundle(make), std::runtime_error);
    EXPECT_EQ(test::inventory(chain), before);
  }
}

}  // namespace
