#include <gtest/gtest.h>

#include "tests/platform/security/signed_sample.hpp"

namespace fs = std::filesystem;

namespace {

using test::Verdict;
using test::workshop;

TEST(ByteMutation, everyByteOfTheComponentsBinds) {
  const fs::path application = workshop().signedPlainApplication({"--time-stamp"});
  for (const char* component : {"_CodeSignature/CodeDirectory", "_CodeSignature/CodeResources", "Info.plist",
                                "_CodeSignature/CodeRequirements"}) {
    const fs::path file = application / "Contents" / component;
    const std::string content = test::readFile(file);
    EXPECT_GT(content.size(), 100U) << file;
    for (std::size_t index = 0; index < content.size(); ++index) {
      std::string changed = content;
      changed[index] = static_cast<char>(changed[index] ^ 0x01);
      test::writeFile(file, changed);
      const Verdict verdict = workshop().judge(application, test::sampleRequirement());
      EXPECT_FALSE(verdict.accepted()) << file << index;
      EXPECT_NE(verdict.status, platform::errSecCSReqFailed) << index << ": " << verdict.sentence;
    }
    test::writeFile(file, content);
  }
  EXPECT_TRUE(workshop().judge(application).accepted());
}

}  // namespace
