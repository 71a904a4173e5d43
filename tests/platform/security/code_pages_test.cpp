#include <gtest/gtest.h>

#include "tests/platform/security/signed_sample.hpp"

namespace {

TEST(CodePages, aPageThatIsReadInPiecesBindsEveryByte) {
  const test::SigningWorkshop workshop;
  const std::filesystem::path tool = workshop / "tool";
  test::runSignBundle({"make-mach-o", tool, "--arch", "arm64", "--least-size", "1000000"});
  workshop.chain().sign(tool, {"--page-size", "unlimited"});
  const std::string content = test::readFile(tool);
  EXPECT_TRUE(workshop.judge(tool).accepted());
  for (const std::size_t place : {400'000U, 900'000U}) {
    std::string changed = content;
    changed[place] = static_cast<char>(changed[place] ^ 1);
    test::writeFile(tool, changed);
    EXPECT_EQ(workshop.judge(tool).status, platform::errSecCSSignatureFailed) << place;
  }
}

}  // namespace
