#include "platform/tools/hdiutil/seven_zip.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/tools/hdiutil/image_error.hpp"
#include "tests/platform/tools/hdiutil/fat_volume_builder.hpp"
#include "tests/platform/tools/hdiutil/image_builder.hpp"
#include "tests/support/files.hpp"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using test::FatEntry;

FatEntry folder(const std::string& name, const std::vector<FatEntry>& entries) {
  return {name, {}, true, entries};
}

TEST(FatTest, HandsOutTheEntriesAndNoHousekeeping) {
  const test::TemporaryDirectory directory;
  const test::Images images;
  const std::string large(3000, 'l');
  test::writeFile(directory / "image",
                  test::fatVolume({{"a long name.txt", "content"},
                                   {".journal", "a user's"},
                                   folder("folder", {{"large", large}, {".Trashes", "a user's"}}),
                                   folder(".Trashes", {{"gone", "x"}})}));
  const auto attached = images.attach(directory / "image");
  ASSERT_EQ(attached.failure, "");
  EXPECT_EQ(attached.mountPoint.filename(), "Untitled");
  const test::Inventory expected{{"a long name.txt", "file 777 content"},
                                 {".journal", "file 777 a user's"},
                                 {"folder", "directory 777"},
                                 {"folder/large", "file 777 " + test::digestWhereLong(large)},
                                 {"folder/.Trashes", "file 777 a user's"}};
  EXPECT_EQ(test::inventory(attached.mountPoint), expected);
  EXPECT_EQ(images.detach(attached.device), "");
}

/// Above the volume's tree are its directory in the registry, the registry and a directory of the test.
TEST(FatTest, NothingOutsideOfTheTreeIsTouched) {
  struct Case {
    const char* name;
    std::vector<FatEntry> entries;
  };
  const FatEntry up = folder("..", {folder("..", {folder("..", {folder("images", {})})})});
  const Case cases[] = {
      {"a folder ..", {up}},
      {"made up for by housekeeping", {up, folder(".journal", {{"1", "x"}, {"2", "x"}})}},
      {"made up for by more of it", {up, folder(".journal", {{"1", "x"}, {"2", "x"}, {"3", "x"}})}},
      {"a line break", {{"a\nb", "x"}}},
      {"two of one name", {{"a", "x"}, {"a", "y"}}},
      {"a link by its name", {{"a\nMode = lrwxrwxrwx\nSymbolic Link = /tmp", std::string(4, '\0')}}},
  };
  const test::TemporaryDirectory directory;
  const test::Images images;
  const fs::path outside = images.location().parent_path();
  const fs::perms before = fs::status(outside).permissions();
  for (const Case& example : cases) {
    test::writeFile(directory / "image", test::fatVolume(example.entries));
    EXPECT_NE(images.attach(directory / "image").failure, "") << example.name;
    EXPECT_THAT(images.leftovers(), IsEmpty()) << example.name;
    EXPECT_EQ(fs::status(images.location()).permissions(), fs::perms::owner_all) << example.name;
    EXPECT_EQ(fs::status(outside).permissions(), before) << example.name;
  }
}

}  // namespace
