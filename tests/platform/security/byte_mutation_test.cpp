#include <gtest/gtest.h>

#include <iostream>
#include <set>

#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;

namespace {

using test::SigningWorkshop;
using test::Verdict;

const SigningWorkshop& workshop() {
  static const SigningWorkshop shared;
  return shared;
}

struct Tally {
  std::size_t tried = 0;
  std::set<std::size_t> accepted;
};

/// Flips a bit of every byte of the file, one at a time.
Tally flipEveryByte(const fs::path& application, const fs::path& file) {
  const std::string content = test::readFile(file);
  Tally tally;
  for (std::size_t index = 0; index < content.size(); ++index) {
    std::string changed = content;
    changed[index] = static_cast<char>(changed[index] ^ 0x01);
    test::writeFile(file, changed);
    const Verdict verdict = workshop().judge(application, test::sampleRequirement());
    ++tally.tried;
    if (verdict.accepted())
      tally.accepted.insert(index);
    EXPECT_NE(verdict.status, platform::errSecCSReqFailed) << index << ": " << verdict.sentence;
  }
  test::writeFile(file, content);
  EXPECT_TRUE(workshop().judge(application).accepted());
  std::cout << file.filename() << ": " << tally.tried << " changes, " << tally.accepted.size()
            << " bytes bind nothing\n";
  return tally;
}

/// The DER of the certificates in a PEM file, one behind the other.
std::string rootBytes() {
  const std::string pem = test::readFile(workshop().chain().root());
  std::string bits;
  std::string bytes;
  static const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  unsigned buffer = 0;
  unsigned count = 0;
  const std::size_t begin = pem.find('\n');
  for (const char character : pem.substr(begin, pem.find("-----END") - begin)) {
    const std::size_t value = kAlphabet.find(character);
    if (value == std::string::npos)
      continue;
    buffer = buffer << 6U | static_cast<unsigned>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes += static_cast<char>(buffer >> count & 0xFFU);
    }
  }
  return bytes;
}

TEST(ByteMutation, everyByteOfTheComponentsBinds) {
  const fs::path application = workshop().signedPlainApplication({"--time-stamp"});
  const fs::path contents = application / "Contents";
  for (const char* file : {"_CodeSignature/CodeDirectory", "_CodeSignature/CodeResources", "Info.plist",
                           "_CodeSignature/CodeRequirements"}) {
    const Tally tally = flipEveryByte(application, contents / file);
    EXPECT_GT(tally.tried, 100U) << file;
    EXPECT_EQ(tally.accepted, std::set<std::size_t>()) << file;
  }
}

/// What of a signature binds nothing beside the copy of the root, for the anchor is taken from the prefix:
/// the name of the signature's algorithm, which key and digest determine; the type of the time stamp's
/// attribute, which may as well be missing; the versions of the structures, and the empty parameters of an
/// algorithm.
std::vector<std::string> unboundParts() {
  using namespace std::string_literals;
  return {"\x2A\x86\x48\xCE\x3D\x04\x03\x02", "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x02\x0E", "\x02\x01\x01"s,
          "\x02\x01\x03"s, "\x05\x00"s};
}

constexpr std::size_t kMostUnboundBytes = 33;

TEST(ByteMutation, onlyExplainedBytesOfTheSignatureBindNothing) {
  const fs::path application = workshop().signedPlainApplication({"--time-stamp"});
  const fs::path signature = application / "Contents/_CodeSignature/CodeSignature";
  const std::string content = test::readFile(signature);
  std::set<std::size_t> unexplained = flipEveryByte(application, signature).accepted;
  const auto explain = [&](const std::string& part) {
    for (std::size_t at = content.find(part); at != std::string::npos; at = content.find(part, at + 1)) {
      for (std::size_t index = at; index < at + part.size(); ++index)
        unexplained.erase(index);
    }
  };
  explain(rootBytes());
  // The other parts are short and could be found by chance where they bind, so they are counted.
  std::cout << unexplained.size() << " of them outside of the root\n";
  EXPECT_LE(unexplained.size(), kMostUnboundBytes);
  for (const std::string& part : unboundParts())
    explain(part);
  EXPECT_EQ(unexplained, std::set<std::size_t>());
}

}  // namespace
