#include "platform/hdiutil/attach.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>

#include "platform/foundation/text.hpp"
#include "tests/helpers/bytes.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/sample_application.hpp"
#include "tests/platform/hdiutil/hfs_volume_builder.hpp"
#include "tests/platform/hdiutil/image_builder.hpp"

namespace fs = std::filesystem;
using test::littleEndian;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// The content of a release, with all kinds of entries of an application and with unusual names.
class AttachTest : public testing::Test {
 protected:
  AttachTest() {
    const fs::path folder = content();
    test::makeSampleApplication(folder);
    std::string large(3 << 20U, '\0');
    for (std::size_t index = 0; index < large.size(); ++index)
      large[index] = static_cast<char>(index * index >> 11U);
    test::writeFile(folder / "large", large);
    for (const char* name :
         {"a:b", "a_b", "u\xCC\x88 \xE6\x97\xA5", "back\\slash*?[x]", "Icon\r", "read only/x"})
      test::writeFile(folder / name, name);
    fs::create_directory(folder / "empty");
    fs::create_symlink("/Applications", folder / "Applications");
    fs::create_symlink("../../outside", folder / "up");
    fs::permissions(folder / "a:b", fs::perms(0600));
    fs::permissions(folder / "a_b", fs::perms(0666));
    fs::permissions(folder / "read only/x", fs::perms(0444));
    fs::permissions(folder / "read only", fs::perms(0555));
    fs::last_write_time(folder / "a:b", fs::file_time_type::clock::from_sys(
                                            std::chrono::sys_seconds(std::chrono::seconds(1000000000))));
  }

  fs::path content() const { return directory_ / "content"; }
  fs::path image() const { return directory_ / "image.dmg"; }

  /// Attaches the image, compares its tree with the folder, entry by entry, and detaches it.
  void expectContent(const std::string& name) {
    const auto attached = images_.attach(image());
    ASSERT_EQ(attached.failure, "") << name;
    EXPECT_EQ(test::inventory(attached.mountPoint), test::inventory(content())) << name;
    EXPECT_EQ(timesIn(attached.mountPoint), timesIn(content())) << name;
    EXPECT_EQ(images_.detach(attached.device), "") << name;
    EXPECT_THAT(images_.leftovers(), IsEmpty()) << name;
  }

  /// The modification times of files and folders, in seconds.
  static std::map<std::string, std::int64_t> timesIn(const fs::path& root) {
    std::map<std::string, std::int64_t> times;
    for (const auto& entry : fs::recursive_directory_iterator(root))
      if (!entry.is_symlink())
        times[platform::canonicallyDecomposed(entry.path().lexically_relative(root).native())] =
            std::chrono::floor<std::chrono::seconds>(entry.last_write_time()).time_since_epoch().count();
    return times;
  }

  test::TemporaryDirectory directory_;
  test::Images images_;
};

TEST_F(AttachTest, VolumesWhereverTheyLie) {
  const std::string volume = test::hfsVolumeOf(content());
  const std::string empty = test::HfsVolumeBuilder(u"Empty").build();
  const std::string other = std::string(4096, 'o');
  const std::pair<std::string, std::string> cases[] = {
      {"a volume and nothing else", volume},
      {"an Apple partition map", test::appleDisk({volume})},
      {"a GUID partition table", test::guidDisk({volume})},
      {"a master boot record", test::masterBootDisk({volume})},
      {"after a partition without a volume", test::guidDisk({other, volume})},
      {"after an empty volume", test::appleDisk({empty, volume})}};
  for (const auto& [name, disk] : cases) {
    test::writeFile(image(), disk);
    expectContent(name);
    test::writeUdif(image(), {{"whole disk", disk}});
    expectContent(name + ", compressed");
  }
  test::writeUdif(image(), {{"Map", std::string(1024, 'm')},
                            {"(Apple_Free : 1)", std::string(4096, '\0')},
                            {"disk image (Apple_HFS : 2)", empty},
                            {"disk image (Apple_HFS : 3)", volume},
                            {"(Apple_Free : 4)", std::string(1024, '\0')}});
  expectContent("a block table for each partition");
}

TEST_F(AttachTest, EveryVolumeIsMountedButThoseOfTheSystem) {
  test::HfsVolumeBuilder builder(u"Volume");
  builder.addFile(test::kRootFolder, u"file", "content");
  const std::string volume = builder.build();
  std::string broken = volume;
  broken.replace(1024 + 272, 8, std::string("\0\0\0\0\x1F\0\0\0", 8));
  std::string disk = test::guidDisk({volume, volume, broken, std::string(512, 'x'), volume});
  // The first partition is the EFI system partition.
  disk.replace(1024, 16, "\x28\x73\x2A\xC1\x1F\xF8\xD2\x11\xBA\x4B\x00\xA0\xC9\x3E\xC9\x3B", 16);
  // The sixth is the same as the second and must not be mounted twice.
  disk.replace(1024 + 5 * 128, 128, disk, 1024 + 128, 128);
  test::writeFile(image(), disk);
  const std::string type = "48484848-4848-4848-4848-484848484848";
  for (const std::string name : {"/dev/disk1s1", "/dev/disk1", "Volume", "Volume 1"}) {
    const auto attached = images_.attach(image());
    ASSERT_EQ(attached.failure, "");
    const std::vector<std::string> expected{
        "disk1",           "disk1s1 EFI",     "disk1s2 " + type + " -> Volume",
        "disk1s3 " + type, "disk1s4 " + type, "disk1s5 " + type + " -> Volume 1",
        "disk1s6 " + type};
    EXPECT_EQ(attached.entities, expected);
    const fs::path tree = images_.location() / "disk1";
    EXPECT_EQ(test::inventory(tree).size(), 4U);
    EXPECT_EQ(test::readFile(tree / "Volume 1/file"), "content");
    EXPECT_EQ(images_.detach(name.front() == '/' ? name : (tree / name).native()), "") << name;
    EXPECT_THAT(images_.leftovers(), IsEmpty());
  }
}

std::string decmpfs(std::uint32_t kind, std::uint64_t size, const std::string& content) {
  return "fpmc" + littleEndian(kind, 4) + littleEndian(size, 8) + content;
}

std::string deflated(const std::string& content) {
  return make_disk_image::zlibEncoding().encode(content);
}

/// A resource fork with blocks of 64 KiB.
std::string compressedFork(const std::string& content) {
  std::vector<std::string> blocks;
  for (std::size_t done = 0; done < content.size(); done += 65536)
    blocks.push_back(deflated(content.substr(done, 65536)));
  std::string table = littleEndian(blocks.size(), 4);
  std::string stored;
  for (const std::string& block : blocks) {
    table += littleEndian(4 + 8 * blocks.size() + stored.size(), 4) + littleEndian(block.size(), 4);
    stored += block;
  }
  return std::string("\0\0\1\0", 4) + std::string(252, '\0') + std::string(4, '\0') + table + stored;
}

class HfsPlusTest : public testing::Test {
 protected:
  test::Images::Attached attach(const test::HfsVolumeBuilder& builder,
                                std::uint32_t attributes = 0x100) const {
    test::writeFile(directory_ / "image", builder.build(attributes));
    return images_.attach(directory_ / "image");
  }

  test::TemporaryDirectory directory_;
  test::Images images_;
};

TEST_F(HfsPlusTest, WhatOnlyThisFileSystemHas) {
  test::HfsVolumeBuilder builder(u"A/B");
  const std::uint32_t folder = builder.addFolder(test::kRootFolder, u"folder", 040750);
  const std::uint32_t links = builder.addHardLinkFolder();
  builder.addFile(links, u"iNode77", "shared content", {.mode = 0100755});
  builder.addFile(test::kRootFolder, u"one", "", {.hardLinkTarget = 77});
  builder.addFile(folder, u"other", "", {.hardLinkTarget = 77});
  builder.addFile(folder, u"slash/colon", "");
  builder.addFile(folder, u"pair \xD83D\xDE00", "");
  builder.addFile(folder, u"forked", "data", {.resource = "resource"});
  std::string fragmented;
  for (int block = 0; block < 40; ++block)
    fragmented += std::string(512, static_cast<char>('A' + block % 26));
  fragmented.resize(fragmented.size() - 100);
  builder.addFile(folder, u"fragmented", fragmented, {.isFragmented = true});
  const std::string text = "text that is stored inside of an attribute";
  builder.addFile(folder, u"small", "", {.compression = decmpfs(3, text.size(), deflated(text))});
  builder.addFile(folder, u"plain", "", {.compression = decmpfs(3, text.size(), "\xFF" + text)});
  std::string large(150000, 'l');
  large.replace(70000, 5, "12345");
  builder.addFile(folder, u"large", "",
                  {.resource = compressedFork(large), .compression = decmpfs(4, large.size(), "")});
  builder.addFile(folder, u"old", "made without modes", {.mode = 0});
  builder.addFile(folder, u"owner's", "runs as its owner", {.mode = 0106755});
  for (const char16_t* name : {u".journal", u".journal_info_block"})
    builder.addFile(test::kRootFolder, name, "housekeeping");
  builder.addFile(builder.addFolder(test::kRootFolder, u".fseventsd"), u"log", "housekeeping");
  builder.addFolder(test::kRootFolder, u".HFS+ Private Directory Data\r");
  builder.addFile(test::kRootFolder, u".DS_Store", "of the user");

  const auto attached = attach(builder);
  ASSERT_EQ(attached.failure, "");
  EXPECT_EQ(attached.mountPoint.filename(), "A:B");
  const std::map<std::string, std::string> expected{
      {".DS_Store", "file 644 of the user"},
      {"folder", "directory 750"},
      {"one", "file 755 shared content"},
      {"folder/other", "file 755 shared content"},
      {"folder/slash:colon", "file 644 "},
      {"folder/pair \xF0\x9F\x98\x80", "file 644 "},
      {"folder/forked", "file 644 data"},
      {"folder/fragmented", "file 644 " + test::digestWhereLong(fragmented)},
      {"folder/small", "file 644 " + text},
      {"folder/plain", "file 644 " + text},
      {"folder/large", "file 644 " + test::digestWhereLong(large)},
      {"folder/old", "file 644 made without modes"},
      {"folder/owner's", "file 755 runs as its owner"},
  };
  EXPECT_EQ(test::inventory(attached.mountPoint), expected);
  EXPECT_EQ(fs::hard_link_count(attached.mountPoint / "one"), 2U);
}

TEST_F(HfsPlusTest, RefusesWhatItCannotRepresent) {
  using Builder = test::HfsVolumeBuilder;
  struct Case {
    const char* name;
    std::function<void(Builder&)> fill;
    const char* reason;
    std::uint32_t attributes = 0x100;
  };
  const auto file = [](const std::u16string& name, const test::HfsFileOptions& options = {}) {
    return [=](Builder& b) { b.addFile(2, name, "", options); };
  };
  const char* damaged = "a compressed file in its volume is damaged.";
  std::string longBlock = compressedFork("12345");
  longBlock.replace(268, 4, littleEndian(1U << 20U, 4));
  const Case cases[] = {
      {"the name ..", [](Builder& b) { b.addFolder(2, u".."); }, "is not valid in a path"},
      {"the name .", file(u"."), "is not valid in a path"},
      {"an empty name", file(u""), "is not valid in a path"},
      {"a null character", file(std::u16string(u"a\0b", 3)), "is not valid in a path"},
      {"half a pair", file(u"a\xD83D"), "not valid text"},
      {"one name twice",
       [](Builder& b) {
         b.addFile(2, u"a", "1");
         b.addFile(2, u"a", "2");
       },
       "more than once"},
      {"a path that no program could open",
       [](Builder& b) {
         std::uint32_t folder = test::kRootFolder;
         for (int depth = 0; depth < 41; ++depth)
           folder = b.addFolder(folder, std::u16string(100, u'd'));
       },
       "a path in its volume is longer than 4095 bytes."},
      {"a device", file(u"a", {.mode = 020644}), "neither a file nor a folder nor a link is not supported."},
      {"a hard link to nothing", file(u"a", {.hardLinkTarget = 5}), "has no target"},
      {"outside of every folder", [](Builder& b) { b.addFile(99, u"a", ""); }, "catalog is damaged"},
      {"an empty link", [](Builder& b) { b.addLink(2, u"a", ""); }, "a link in its volume is damaged"},
      {"an unfinished journal", [](Builder&) {}, "not ejected", 0x2000},
      {"an unknown compression", file(u"a", {.compression = decmpfs(12, 5, "12345")}),
       "the compression of a file in its volume (kind 12) is not supported."},
      {"an absurd size", file(u"a", {.compression = decmpfs(4, 1ULL << 60U, "")}),
       " bytes in the temporary directory, where "},
      {"another attribute", file(u"a", {.compression = "x" + decmpfs(3, 5, "").substr(1)}), damaged},
      {"another size", file(u"a", {.compression = decmpfs(3, 6, deflated("12345"))}), damaged},
      {"another size, as it is", file(u"a", {.compression = decmpfs(3, 6, "\xFF\x31\x32")}), damaged},
      {"another plain size", file(u"a", {.compression = decmpfs(9, 6, "\xFF\x31\x32")}), damaged},
      {"more than an attribute", file(u"a", {.compression = decmpfs(3, 17U << 20U, deflated("1"))}), damaged},
      {"no fork", file(u"a", {.resource = "abc", .compression = decmpfs(4, 5, "")}), damaged},
      {"too few blocks",
       file(u"a", {.resource = compressedFork("12345"), .compression = decmpfs(4, 70000, "")}), damaged},
      {"a block beyond reason", file(u"a", {.resource = longBlock, .compression = decmpfs(4, 5, "")}),
       damaged},
  };
  for (const Case& example : cases) {
    Builder builder(u"Volume");
    example.fill(builder);
    EXPECT_THAT(attach(builder, example.attributes).failure, HasSubstr(example.reason)) << example.name;
    EXPECT_THAT(images_.leftovers(), IsEmpty()) << example.name;
  }
}

/// The type and creator of a hard link are not enough: it also has the date of the volume, and the link
/// chain's flag if its target is a folder.
TEST_F(HfsPlusTest, AnAliasIsNotALink) {
  const auto attachFile = [&](const test::HfsFileOptions& options) {
    test::HfsVolumeBuilder builder(u"Volume");
    builder.addFile(test::kRootFolder, u"Applications", "content", options);
    const auto attached = attach(builder);
    EXPECT_EQ(attached.failure.empty() ? test::readFile(attached.mountPoint / "Applications") : "content",
              "content");
    return attached.failure;
  };
  EXPECT_EQ(attachFile({.type = "fdrpMACS"}), "");
  EXPECT_EQ(attachFile({.recordFlags = 0x20, .type = "fdrpMACS", .created = 7}), "");
  EXPECT_EQ(attachFile({.hardLinkTarget = 77, .created = 7}), "");
  EXPECT_THAT(attachFile({.recordFlags = 0x20, .type = "fdrpMACS"}),
              HasSubstr("a hard link to a folder in its volume is not supported."));
}

}  // namespace
