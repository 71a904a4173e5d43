#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/support/program.hpp"
#include "tests/support/sample_application.hpp"

namespace fs = std::filesystem;

namespace {

using test::SampleChain;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kOpenSsl = "/usr/bin/openssl";
constexpr const char* kIntermediateExtension = "1.2.840.113635.100.6.2.6: critical";
constexpr const char* kLeafExtension = "1.2.840.113635.100.6.1.13: critical";

std::string describe(const fs::path& certificate) {
  return test::runProgram(kOpenSsl, {"x509", "-in", certificate, "-noout", "-text"}).output;
}

/// The verdict of the `openssl` program on the chain, with the private extensions and the time left out of
/// account.
std::string verdict(const fs::path& chain) {
  const auto outcome = test::runProgram(
      kOpenSsl, {"verify", "-ignore_critical", "-no_check_time", "-purpose", "any", "-CAfile",
                 chain / "root.pem", "-untrusted", chain / "chain.pem", chain / "leaf.pem"});
  return outcome.output + outcome.error;
}

struct Case {
  std::vector<std::string> options;
  std::vector<std::string> leafHas;
  std::vector<std::string> leafLacks;
  std::vector<std::string> intermediateHas;
  std::vector<std::string> intermediateLacks;
  bool leadsToRoot = true;
};

std::ostream& operator<<(std::ostream& stream, const Case& value) {
  for (const std::string& option : value.options)
    stream << option << ' ';
  return stream;
}

class Chains : public testing::TestWithParam<Case> {};

TEST_P(Chains, HaveExactlyTheDefectAskedFor) {
  const Case& expected = GetParam();
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain", SampleChain::kTeam, expected.options);

  const std::string leaf = describe(chain.directory() / "leaf.pem");
  EXPECT_THAT(leaf, HasSubstr("OU = QS7TEAM123"));
  for (const std::string& text : expected.leafHas)
    EXPECT_THAT(leaf, HasSubstr(text));
  for (const std::string& text : expected.leafLacks)
    EXPECT_THAT(leaf, Not(HasSubstr(text)));
  // The program shows the first certificate of the file: the lowest above the leaf.
  const std::string intermediate = describe(chain.directory() / "chain.pem");
  for (const std::string& text : expected.intermediateHas)
    EXPECT_THAT(intermediate, HasSubstr(text));
  for (const std::string& text : expected.intermediateLacks)
    EXPECT_THAT(intermediate, Not(HasSubstr(text)));
  EXPECT_THAT(verdict(chain.directory()),
              expected.leadsToRoot ? HasSubstr("leaf.pem: OK") : HasSubstr("verification failed"));
}

const std::string kUnknown = "1.3.6.1.4.1.55555.1.1: critical";

INSTANTIATE_TEST_SUITE_P(Table, Chains,
                         testing::Values(Case{{},
                                              {kLeafExtension, "Code Signing"},
                                              {kIntermediateExtension, kUnknown},
                                              {kIntermediateExtension},
                                              {kLeafExtension, kUnknown}},
                                         Case{{"--defect", "intermediate-without-extension"},
                                              {kLeafExtension},
                                              {},
                                              {},
                                              {kIntermediateExtension}},
                                         Case{{"--defect", "leaf-without-extension"},
                                              {"Code Signing"},
                                              {kLeafExtension},
                                              {kIntermediateExtension},
                                              {}},
                                         Case{{"--defect", "intermediate-extension-in-leaf"},
                                              {kIntermediateExtension, kLeafExtension},
                                              {},
                                              {kIntermediateExtension},
                                              {kLeafExtension}},
                                         Case{{"--defect", "leaf-extension-in-intermediate"},
                                              {kLeafExtension},
                                              {kIntermediateExtension},
                                              {kIntermediateExtension, kLeafExtension},
                                              {}},
                                         Case{{"--defect", "leaf-without-code-signing-usage"},
                                              {kLeafExtension},
                                              {"Code Signing"},
                                              {kIntermediateExtension},
                                              {}},
                                         Case{{"--defect", "unknown-critical-extension-in-leaf"},
                                              {kLeafExtension, kUnknown},
                                              {},
                                              {},
                                              {kUnknown}},
                                         Case{{"--defect", "unknown-critical-extension-in-intermediate"},
                                              {kLeafExtension},
                                              {kUnknown},
                                              {kUnknown},
                                              {}},
                                         Case{{"--defect", "self-signed-leaf"},
                                              {kLeafExtension, "Code Signing"},
                                              {},
                                              {kIntermediateExtension},
                                              {},
                                              false},
                                         Case{{"--defect", "without-intermediate"},
                                              {kLeafExtension},
                                              {},
                                              {"Throw-away Root CA"},
                                              {kIntermediateExtension}},
                                         Case{{"--defect", "expired"},
                                              {kLeafExtension, "Not After : Dec 31 23:59:59 2014"},
                                              {},
                                              {kIntermediateExtension, "Not After : Dec 31 23:59:59 2014"},
                                              {}}));

TEST(CertificateChain, KeepsKeysToTheirOwnerAndReplacesNothing) {
  const test::TemporaryDirectory directory;
  const SampleChain chain(directory / "chain", "TEAM", {"--name", "J\xC3\xA4ger & Co"});
  for (const char* name : {"leaf_key.pem", "time_stamp_key.pem"})
    EXPECT_EQ(fs::status(chain.directory() / name).permissions(), fs::perms(0600)) << name;
  const auto before = test::inventory(directory.path());
  EXPECT_THROW(SampleChain(directory / "chain", "OTHER"), std::runtime_error);
  EXPECT_EQ(test::inventory(directory.path()), before);
}

TEST(CertificateChain, IsMadeWithKeysOfEitherKind) {
  const test::TemporaryDirectory directory;
  for (const auto& [kind, bits] : {std::pair("rsa", "(2048 bit)"), std::pair("ec", "(256 bit)")}) {
    const fs::path chain = directory / kind;
    test::runSignBundle({"make-chain", chain, "--team", "TEAM", "--keys", kind});
    EXPECT_THAT(describe(chain / "leaf.pem"), HasSubstr(bits));
    EXPECT_THAT(verdict(chain), HasSubstr("leaf.pem: OK"));
  }
}

}  // namespace
