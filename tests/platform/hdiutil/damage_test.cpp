#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "tests/helpers/bytes.hpp"
#include "tests/helpers/files.hpp"
#include "tests/platform/hdiutil/hfs_volume_builder.hpp"
#include "tests/platform/hdiutil/image_builder.hpp"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr std::size_t kTrailerSize = 512;

class DamageTest : public testing::Test {
 protected:
  DamageTest() {
    test::HfsVolumeBuilder builder(u"Volume");
    const std::uint32_t folder = builder.addFolder(test::kRootFolder, u"My App.app");
    std::string noise(40000, '\0');
    std::ranges::generate(
        noise, [random = std::minstd_rand()]() mutable { return static_cast<char>(random() >> 8U); });
    builder.addFile(folder, u"noise", noise, {.isFragmented = true});
    builder.addFile(folder, u"text", std::string(5000, 't'));
    builder.addLink(folder, u"link", "/Applications");
    volume_ = builder.build();
    test::writeFile(image(), volume_);
    const auto attached = images_.attach(image());
    tree_ = test::inventory(attached.mountPoint);
    images_.detach(attached.device);
  }

  fs::path image() const { return directory_ / "image.dmg"; }

  /// Attaches the image: "refused", with a whole sentence, or "right", with the volume's tree. Nothing may be
  /// left behind.
  std::string judge(const std::string& content) const {
    test::writeFile(image(), content);
    const auto attached = images_.attach(image());
    std::string verdict = attached.failure.ends_with('.') ? "refused" : attached.failure;
    if (attached.failure.empty()) {
      verdict = test::inventory(attached.mountPoint) == tree_ ? "right" : "another tree";
      verdict += images_.detach(attached.device);
    }
    EXPECT_THAT(images_.leftovers(), IsEmpty());
    return verdict;
  }

  /// Damage outside of all checksums may go unnoticed, but then the tree must be right.
  void expectRefusedOrRight(const std::string& content, std::size_t place) const {
    EXPECT_THAT(judge(content), testing::AnyOf("refused", "right")) << place;
  }

  std::string compressed(const std::string& disk, const make_disk_image::BlockEncoding& encoding =
                                                      make_disk_image::zlibEncoding()) const {
    test::writeUdif(image(), {{"whole disk", disk}}, encoding);
    return test::readFile(image());
  }

  static std::string flipped(std::string bytes, std::size_t place) {
    bytes.at(place) = static_cast<char>(bytes.at(place) ^ 0x40);
    return bytes;
  }

  /// The end of the stored blocks, where the list begins.
  static std::size_t listOffset(const std::string& content) { return content.find("<?xml"); }

  test::TemporaryDirectory directory_;
  test::Images images_;
  std::string volume_;
  test::Inventory tree_;
};

TEST_F(DamageTest, ADiskThatIsEmptyAlmostWithoutEndIsRefusedAtOnce) {
  test::writeFile(directory_ / "volume", volume_);
  platform::hdiutil::RawDisk disk(platform::FileDescriptor::open(
      platform::URL::fileURLWithPath((directory_ / "volume").native()), O_RDONLY));
  const auto output = platform::FileDescriptor::open(platform::URL::fileURLWithPath(image().native()),
                                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
  make_disk_image::UdifWriter writer(output);
  writer.addTable({"volume", disk, 0, volume_.size(), 0}, make_disk_image::zlibEncoding());
  writer.addTable({"far away", disk, 0, 512, std::uint64_t{1} << 30U}, make_disk_image::zlibEncoding());
  writer.finish();
  EXPECT_THAT(images_.attach(image()).failure, HasSubstr("64 GiB"));
}

TEST_F(DamageTest, ACatalogLargerThanItsVolumeTakesNoMemory) {
  // The size of the catalog's fork, far beyond the end of the volume.
  test::writeFile(image(), volume_.replace(1024 + 272, 8, std::string("\0\0\0\0\x1F\0\0\0", 8)));
  EXPECT_THAT(images_.attach(image()).failure, HasSubstr("its volume's catalog is damaged"));
}

TEST_F(DamageTest, AFlippedByteInAnyStoredBlock) {
  for (const auto& [name, encoding] : {test::blockEncodings().front(), test::blockEncodings().back()}) {
    SCOPED_TRACE(name);
    const std::string covered = compressed(volume_, encoding);
    // Newer tools leave out the checksum of the stored blocks. If a part is not stored, 7-Zip ignores the
    // checksum of the content as well.
    std::string bare = compressed(volume_ + std::string(2 << 20U, '\0'), encoding);
    bare.replace(bare.size() - kTrailerSize + 80, 12, 12, '\0');
    EXPECT_EQ(judge(bare), "right");
    for (const std::string& content : {covered, bare}) {
      const std::size_t end = listOffset(content);
      for (std::size_t place = 0; place < end; place += end / 12)
        EXPECT_EQ(judge(flipped(content, place)), "refused") << place;
    }
    // The last bits of a compressed stream may be unused.
    for (std::size_t place = listOffset(bare) - 6; place < listOffset(bare); ++place)
      expectRefusedOrRight(flipped(bare, place), place);
  }
}

/// A volume that cannot be read does not keep another from being mounted, but a damaged image is refused.
TEST_F(DamageTest, DamageInAVolumeThatIsNotMountedIsDamage) {
  test::writeFile(directory_ / "content/file", std::string(600, 'c'));
  const std::string fat = test::fatVolumeOf(directory_ / "content");
  test::writeUdif(image(),
                  {{"Map", std::string(1024, 'm')},
                   {"(Apple_HFS : 1)", volume_},
                   {"(Apple_Free : 2)", std::string(2 << 20U, '\0')},
                   {"(DOS_FAT_12 : 3)", fat}},
                  test::blockEncodings().back().second);
  std::string content = test::readFile(image());
  content.replace(content.size() - kTrailerSize + 80, 12, 12, '\0');
  EXPECT_EQ(judge(flipped(content, content.find("cccccccc"))), "refused");
}

TEST_F(DamageTest, ATruncatedImage) {
  const std::string image = compressed(volume_);
  for (const std::string& content : {image, volume_}) {
    for (std::size_t length = 0; length < content.size() - 1024; length += content.size() / 40)
      EXPECT_EQ(judge(content.substr(0, length)), "refused") << length;
  }
  const std::size_t middle = listOffset(image) / 2;
  EXPECT_EQ(judge(image.substr(0, image.size() - 1)), "refused");
  EXPECT_EQ(judge(image.substr(1)), "refused");
  EXPECT_EQ(judge(image.substr(0, middle) + image.substr(middle + 1)), "refused");
}

TEST_F(DamageTest, AFlippedByteInTheListOrTheTrailer) {
  const std::string content = compressed(volume_);
  const std::size_t list = listOffset(content);
  for (std::size_t place = list; place < content.size(); place += 5)
    expectRefusedOrRight(flipped(content, place), place);
  // The end of the stored blocks, and the fields of the trailer that are read.
  const std::size_t trailer = content.size() - kTrailerSize;
  for (const auto& [begin, end] : {std::pair{list - 6, list},
                                   {trailer, trailer + 12},
                                   {trailer + 24, trailer + 40},
                                   {trailer + 60, trailer + 64},
                                   {trailer + 80, trailer + 92},
                                   {trailer + 216, trailer + 232},
                                   {trailer + 352, trailer + 364}}) {
    for (std::size_t place = begin; place < end; ++place)
      EXPECT_EQ(judge(flipped(content, place)), "refused") << place;
  }
}

// Their boot code is not a partition map, and the last one looks like FAT.
TEST_F(DamageTest, AnIntactVolumeOfAnotherFileSystemIsNotCalledDamaged) {
  struct Case {
    const char* mark;
    const char* name;
    const char* behind;
  };
  for (const auto& [mark, name, behind] : {Case{"EXFAT   ", "exFAT", "boot cod"},
                                           {"NTFS    ", "NTFS", "boot cod"},
                                           {"-FVE-FS-", "BitLocker", "FAT32   "}}) {
    std::string disk = "\xEB\x58\x90" + std::string(mark) + std::string(1 << 20U, '\xF4');
    disk.replace(82, 8, behind).replace(510, 2, "\x55\xAA");
    test::writeFile(image(), disk);
    EXPECT_THAT(images_.attach(image()).failure,
                HasSubstr("its file system (" + std::string(name) + ") is not supported"));
  }
}

TEST_F(DamageTest, WhatIsNotAnImage) {
  const std::string content = compressed(volume_);
  const auto with = [](std::string disk, std::size_t place, const std::string& bytes) {
    return disk.replace(place, bytes.size(), bytes);
  };
  const std::string apple = test::appleDisk({volume_});
  const std::string guid = test::guidDisk({volume_});
  const std::pair<const char*, std::string> cases[] = {
      {"a partition map without its second entry", with(apple, 1024, "xx")},
      {"a partition map almost without end", with(apple, 516, test::bigEndian(300, 4))},
      {"a partition table of small entries", with(guid, 596, test::littleEndian(64, 4))},
      {"a partition that ends before it begins", with(guid, 1064, test::littleEndian(0, 8))},
      {"a partition map that leads out", guid.substr(0, 20000)},
      {"a page", "<!DOCTYPE html><html><body>Not found</body></html>"},
      {"zeros", std::string(100000, '\0')},
      {"a trailer and nothing else", content.substr(content.size() - kTrailerSize)},
      {"no trailer", content.substr(0, content.size() - kTrailerSize)},
      {"encrypted", "encrcdsa" + content},
      {"encrypted in the older way", volume_ + "cdsaencr"},
  };
  for (const auto& [name, bytes] : cases)
    EXPECT_EQ(judge(bytes), "refused") << name;
  fs::remove(image());
  EXPECT_THAT(images_.attach(image()).failure, HasSubstr("No such file"));
  EXPECT_THAT(images_.attach(directory_.path()).failure, HasSubstr("not a file"));
}

}  // namespace
