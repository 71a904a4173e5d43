#include <gmock/gmock.h>

#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"

namespace {

/// Otherwise the volume contains one of them under another name.
TEST(MakeDiskImage, refusesNamesThatTheVolumeCannotKeep) {
  struct Case {
    std::vector<std::string> paths;
    std::string sentence;
  };
  const std::string collision =
      " are one item on the usual file system of a Mac, which ignores case and Unicode normalisation.\n";
  const std::vector<Case> cases{
      {{"A/Foo", "A/foo"}, "\"A/Foo\" and \"A/foo\"" + collision},
      {{"A/one", "a/two"}, "\"A\" and \"a\"" + collision},
      {{"u\u0308ber", "\u00FCber"}, "\"u\u0308ber\" and \"\u00FCber\"" + collision},
      {{"ab", "a\u200Db"}, " cannot have this name on an HFS Plus volume.\n"},
      {{"\xFF\xFE"}, "\"\\xFF\\xFE\" cannot have this name on an HFS Plus volume.\n"},
  };
  for (const Case& each : cases) {
    const test::TemporaryDirectory directory;
    for (const std::string& path : each.paths)
      test::writeFile(directory / "folder" / path, "");
    const test::Inventory before = test::inventory(directory.path());
    const test::Outcome made =
        test::runProgram(test::buildPrefix() / "bin/make_disk_image",
                         {(directory / "folder").native(), "Volume", (directory / "image.dmg").native()});
    EXPECT_EQ(made.exitStatus, 1);
    EXPECT_THAT(made.error, testing::EndsWith(each.sentence));
    EXPECT_EQ(test::difference(before, test::inventory(directory.path())), "");
  }
}

}  // namespace
