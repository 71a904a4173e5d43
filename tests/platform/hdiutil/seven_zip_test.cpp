#include "platform/hdiutil/seven_zip.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/hdiutil/image_error.hpp"
#include "tests/helpers/files.hpp"
#include "tests/platform/hdiutil/image_builder.hpp"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const std::string kHeader = "Type = APFS\nvolume_name: Volume\n\n----------\n";

/// The listing of a file, with more lines at its end.
std::string listed(const std::string& path, const std::string& more = "") {
  return "Path = " + path + "\nFolder = -\nSize = 5\nModified = 2022-01-14 07:19:41\n" + more + "\n";
}

std::string listedFolder(const std::string& path) {
  return "Path = " + path + "\nFolder = +\nSize = \nModified = 2022-01-14 07:19:41\nMode = drwxr-xr-x\n\n";
}

TEST(SevenZipProgramTest, IsTheFirstThatIsNewEnough) {
  const test::TemporaryDirectory directory;
  const auto program = [&](const std::string& name, const std::string& banner) {
    test::writeFile(directory / name, "#!/bin/sh\necho '\n" + banner + " : Copyright (c) 1999'\nexit 1\n");
    fs::permissions(directory / name, fs::perms::owner_all);
    return (directory / name).native();
  };
  const std::string missing = directory / "missing";
  const std::string old = program("old", "7-Zip [64] 16.02");
  const std::string foreign = program("foreign", "Unzip 30.0");
  using platform::hdiutil::suitableSevenZip;
  for (const char* banner : {"7-Zip (z) 22.01 (x64)", "7-Zip 25.01 (x64)"}) {
    const std::string current = program("current", banner);
    EXPECT_EQ(suitableSevenZip({missing, old, current, "/bin/false"}), current) << banner;
  }
  try {
    ADD_FAILURE() << suitableSevenZip({missing, old, foreign});
  } catch (const platform::hdiutil::ImageError& error) {
    EXPECT_EQ(error.reason(), "unpacking it needs 7-Zip 22 or newer, which is not installed as \"" + missing +
                                  "\" or \"" + old + "\" or \"" + foreign + "\"");
  }
}

TEST(ListingTest, ReadsEveryKindOfEntry) {
  using Kind = platform::hdiutil::ListedEntry::Kind;
  const auto listing = platform::hdiutil::parseListing(
      kHeader + listedFolder("folder") + listed("folder/tool", "Mode = -rwsr-sr-T\n") +
      listed("link", "Mode = lrwxr-xr-x\nSymbolic Link = there\n") + listed(".fseventsd"));
  ASSERT_EQ(listing.volumes.size(), 1U);
  EXPECT_EQ(listing.volumes[0].name, "Volume");
  ASSERT_EQ(listing.entries.size(), 3U);
  EXPECT_EQ(listing.entries[0].kind, Kind::folder);
  EXPECT_EQ(listing.entries[0].metadata.permissions, 0755);
  EXPECT_EQ(listing.entries[1].kind, Kind::file);
  EXPECT_EQ(listing.entries[1].size, 5U);
  EXPECT_EQ(listing.entries[1].metadata.permissions, 07754);
  EXPECT_EQ(listing.entries[1].metadata.modified.seconds, 1642144781);
  EXPECT_EQ(listing.entries[2].kind, Kind::symbolicLink);
  EXPECT_EQ(listing.entries[2].linkText, "there");
}

TEST(ListingTest, ReadsSeveralVolumesOfAContainer) {
  const std::string header =
      "Volume: 1\nvolume_name: One\nvol_uuid: 01\nVolume: 2\nvolume_name: Two\n----------\n";
  const auto listing = platform::hdiutil::parseListing(header + "Path = Volume1\nModified = \n\n" +
                                                       listed("Volume1/.fseventsd") + "Path = Volume2\n\n" +
                                                       listed("Volume2/file"));
  ASSERT_EQ(listing.volumes.size(), 2U);
  EXPECT_EQ(listing.volumes[0].identifier, "01");
  EXPECT_EQ(listing.volumes[1].name, "Two");
  EXPECT_EQ(listing.volumes[1].folder, "Volume2");
  ASSERT_EQ(listing.entries.size(), 1U);
  EXPECT_EQ(listing.entries[0].path, "Volume2/file");
  EXPECT_THROW(platform::hdiutil::parseListing(header + listed("Volume3/file")),
               platform::hdiutil::ImageError);
}

TEST(ListingTest, RefusesAmbiguousListings) {
  const std::pair<const char*, std::string> cases[] = {
      {"no entries' line", "volume_name: Volume\n"},
      {"two volumes", "volume_name: One\nvolume_name: Two\n----------\n"},
      {"a folder above", kHeader + listedFolder("..")},
      {"a file above", kHeader + listedFolder("a") + listedFolder("a/..") + listed("a/../b")},
      {"the folder itself", kHeader + listedFolder(".")},
      {"an absolute path", kHeader + listed("/etc")},
      {"an empty name within", kHeader + listedFolder("a") + listed("a//b")},
      {"a folder that is not listed", kHeader + listed("a/b")},
      {"a file as a folder", kHeader + listed("a") + listed("a/b")},
      {"a line break in a name", kHeader + listed("a\nb")},
      {"a field in a name", kHeader + listed("a\nSize = 5")},
      {"a link of another size", kHeader + listed("a", "Mode = lrwxr-xr-x\nSymbolic Link = elsewhere\n")},
      {"a link to nothing", kHeader + listed("a", "Mode = lrwxr-xr-x\n")},
      {"a device", kHeader + listed("a", "Mode = brw-r--r--\n")},
      {"no size", kHeader + "Path = a\nModified = 2022-01-14 07:19:41\n"},
      {"no time", kHeader + "Path = a\nSize = 5\n"},
  };
  for (const auto& [name, text] : cases)
    EXPECT_THROW(platform::hdiutil::parseListing(text), platform::hdiutil::ImageError) << name;
}

TEST(TreeWriterTest, NeverLeavesItsDirectory) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory / "outside/file", "content");
  fs::create_directory(directory / "tree");
  fs::create_symlink("../outside", directory / "tree/link");
  using platform::Directory;
  const auto open = [&](const char* name) {
    return Directory::open(platform::URL::fileURLWithPath((directory / name).native()),
                           Directory::Links::refused);
  };
  const Directory root = open("tree");
  const Directory outside = open("outside");
  const auto before = test::inventory(directory.path());
  for (const std::string where : {"link/", "../outside/", "./", "/tmp/"}) {
    platform::hdiutil::TreeWriter writer(root);
    const std::string file = where + "file";
    EXPECT_THROW(writer.makeDirectory(where + "new"), platform::Error) << where;
    EXPECT_THROW(writer.makeEmptyFile(where + "new"), platform::Error) << where;
    EXPECT_THROW(writer.makeSymbolicLink(where + "new", "text"), platform::Error) << where;
    EXPECT_THROW(writer.linkFile(outside.entry("file"), where + "new"), platform::Error) << where;
    EXPECT_THROW(writer.setMetadata(file, {false, 0, {0, 0}}), platform::Error) << where;
  }
  fs::create_symlink("../outside/made", directory / "tree/file");
  EXPECT_THROW(platform::hdiutil::TreeWriter(root).makeEmptyFile("file"), platform::hdiutil::ImageError);
  fs::remove(directory / "tree/file");
  EXPECT_EQ(test::inventory(directory.path()), before);
}

TEST(FatTest, WritesTheEntriesWithoutHousekeeping) {
  const test::TemporaryDirectory directory;
  const test::Images images;
  for (const auto& [path, content] : {std::pair("a long name.txt", std::string("content")),
                                      {".journal", "a user's"},
                                      {"folder/large", std::string(3000, 'l')},
                                      {"folder/.Trashes", "a user's"}})
    test::writeFile(directory / "content" / path, content);
  for (const auto& entry : fs::recursive_directory_iterator(directory / "content"))
    fs::permissions(entry.path(), fs::perms(0777));  // FAT has no permissions
  const auto expected = test::inventory(directory / "content");
  test::writeFile(directory / "content/.Trashes/gone", "x");
  test::writeFile(directory / "image", test::fatVolumeOf(directory / "content"));
  const auto attached = images.attach(directory / "image");
  ASSERT_EQ(attached.failure, "");
  EXPECT_EQ(attached.mountPoint.filename(), "Untitled");
  EXPECT_EQ(test::difference(expected, test::inventory(attached.mountPoint)), "");
}

/// The parents of the volume's tree: its directory in the registry, the registry and a directory of the test.
TEST(FatTest, NothingOutsideOfTheTreeIsTouched) {
  struct Case {
    std::vector<std::string> files;
    std::pair<std::string, std::string> renamed;
  };
  const Case cases[] = {
      {{"Up/Up/Up/images/"}, {"Up", ".."}},
      // With entries of the system, so that as many entries exist as are listed, or more.
      {{"Up/Up/Up/images/", ".journal/1", ".journal/2"}, {"Up", ".."}},
      {{"Up/Up/Up/images/", ".journal/1", ".journal/2", ".journal/3"}, {"Up", ".."}},
      {{"Aa#b"}, {"#", "\n"}},
      {{"Aa", "Ab"}, {"Ab", "Aa"}},
      {{"A#Mode = lrwxrwxrwx#Symbolic Link = tmp"}, {"#", "\n"}},
  };
  const test::Images images;
  const fs::path outside = images.location().parent_path();
  const fs::perms before = fs::status(outside).permissions();
  for (const Case& example : cases) {
    SCOPED_TRACE(example.files.back());
    const test::TemporaryDirectory directory;
    for (const std::string& file : example.files) {
      if (file.ends_with('/'))
        fs::create_directories(directory / "content" / file);
      else
        test::writeFile(directory / "content" / file, std::string(3, '\0'));
    }
    test::writeFile(directory / "image", test::fatVolumeOf(directory / "content", example.renamed));
    EXPECT_NE(images.attach(directory / "image").failure, "");
    EXPECT_THAT(images.leftovers(), IsEmpty());
    EXPECT_EQ(fs::status(images.location()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(outside).permissions(), before);
  }
}

}  // namespace
