#include <gtest/gtest.h>

#include <iostream>
#include <set>

#include "tests/helpers/program.hpp"
#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;

namespace {

using test::Verdict;
using test::workshop;

/// The places of the bytes of which a bit can be flipped, one at a time, and nobody notices.
std::set<std::size_t> unboundBytes(const fs::path& application, const fs::path& file) {
  const std::string content = test::readFile(file);
  EXPECT_GT(content.size(), 100U) << file;
  std::set<std::size_t> accepted;
  for (std::size_t index = 0; index < content.size(); ++index) {
    std::string changed = content;
    changed[index] = static_cast<char>(changed[index] ^ 0x01);
    test::writeFile(file, changed);
    const Verdict verdict = workshop().judge(application, test::sampleRequirement());
    if (verdict.accepted())
      accepted.insert(index);
    EXPECT_NE(verdict.status, platform::errSecCSReqFailed) << index << ": " << verdict.sentence;
  }
  test::writeFile(file, content);
  EXPECT_TRUE(workshop().judge(application).accepted());
  std::cout << file.filename() << ": " << content.size() << " changes, " << accepted.size()
            << " bytes bind nothing\n";
  return accepted;
}

TEST(ByteMutation, everyByteOfTheComponentsBinds) {
  const fs::path application = workshop().signedPlainApplication({"--time-stamp"});
  for (const char* file : {"_CodeSignature/CodeDirectory", "_CodeSignature/CodeResources", "Info.plist",
                           "_CodeSignature/CodeRequirements"})
    EXPECT_EQ(unboundBytes(application, application / "Contents" / file), std::set<std::size_t>()) << file;
}

/// What of a signature binds nothing beside the copy of the root, for the anchor is taken from the prefix:
/// the name of the signature's algorithm, which key and digest determine; the type of the time stamp's
/// attribute, which may as well be missing; the message's list of digests, which the signer names again; the
/// versions of the structures, and the empty parameters of an algorithm.
std::vector<std::string> unboundParts() {
  using namespace std::string_literals;
  return {"\x2A\x86\x48\xCE\x3D\x04\x03\x02",
          "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x02\x0E",
          "\x60\x86\x48\x01\x65\x03\x04\x02\x01",
          "\x02\x01\x01"s,
          "\x02\x01\x03"s,
          "\x05\x00"s};
}

constexpr std::size_t kMostUnboundBytes = 35;

TEST(ByteMutation, onlyExplainedBytesOfTheSignatureBindNothing) {
  const fs::path application = workshop().signedPlainApplication({"--time-stamp"});
  const fs::path signature = application / "Contents/_CodeSignature/CodeSignature";
  const std::string content = test::readFile(signature);
  std::set<std::size_t> unexplained = unboundBytes(application, signature);
  const auto explain = [&](const std::string& part) {
    for (std::size_t at = content.find(part); at != std::string::npos; at = content.find(part, at + 1)) {
      for (std::size_t index = at; index < at + part.size(); ++index)
        unexplained.erase(index);
    }
  };
  const std::string root = workshop().chain().root().native();
  explain(test::runProgram("/bin/sh", {"-c", "grep -v -- - '" + root + "' | base64 -d"}).output);
  // The other parts are short and could be found by chance where they bind, so they are counted.
  std::cout << unexplained.size() << " of them outside of the root\n";
  EXPECT_LE(unexplained.size(), kMostUnboundBytes);
  for (const std::string& part : unboundParts())
    explain(part);
  EXPECT_EQ(unexplained, std::set<std::size_t>());
}

}  // namespace
