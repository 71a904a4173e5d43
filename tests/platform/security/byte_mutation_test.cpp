#include <gtest/gtest.h>

#include <iostream>
#include <set>

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

}  // namespace
