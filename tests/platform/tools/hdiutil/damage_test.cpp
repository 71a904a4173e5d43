#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/platform/tools/hdiutil/hfs_volume_builder.hpp"
#include "tests/platform/tools/hdiutil/image_builder.hpp"
#include "tests/support/bytes.hpp"
#include "tests/support/files.hpp"
#include "tests/support/program.hpp"
#include "tests/support/syscall_fault.hpp"

namespace fs = std::filesystem;
using testing::EndsWith;
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
    std::uint32_t state = 1;
    for (char& byte : noise)
      byte = static_cast<char>((state = state * 1664525U + 1013904223U) >> 24U);
    builder.addFile(folder, u"noise", noise, {.isFragmented = true});
    builder.addFile(folder, u"text", std::string(5000, 't'));
    builder.addLink(folder, u"link", "/Applications");
    volume_ = builder.build();
  }

  fs::path image() const { return directory_ / "image.dmg"; }

  /// Attaching must fail with a whole sentence, and nothing may stay.
  void expectRefused(const std::string& content, const std::string& what) {
    test::writeFile(image(), content);
    const auto attached = images_.attach(image());
    EXPECT_THAT(attached.failure, EndsWith(".")) << what;
    EXPECT_THAT(images_.leftovers(), IsEmpty()) << what;
    if (attached.failure.empty())
      images_.detach(attached.device);
  }

  /// Damage that nothing covers may go unseen, but then the tree is the right one.
  void expectRefusedOrRight(const std::string& content, const std::map<std::string, std::string>& tree,
                            const std::string& what) {
    test::writeFile(image(), content);
    const auto attached = images_.attach(image());
    if (!attached.failure.empty()) {
      EXPECT_THAT(attached.failure, EndsWith(".")) << what;
    } else {
      EXPECT_EQ(test::inventory(attached.mountPoint), tree) << what;
      EXPECT_EQ(images_.detach(attached.device), "") << what;
    }
    EXPECT_THAT(images_.leftovers(), IsEmpty()) << what;
  }

  std::map<std::string, std::string> treeOf(const std::string& content) {
    test::writeFile(image(), content);
    const auto attached = images_.attach(image());
    auto tree = test::inventory(attached.mountPoint);
    images_.detach(attached.device);
    return tree;
  }

  std::string compressed(const quorin_tools::BlockEncoding& encoding) {
    test::writeUdif(image(), {{"whole disk", volume_}}, encoding);
    return test::readFile(image());
  }

  static std::string flipped(std::string bytes, std::size_t place) {
    bytes.at(place) = static_cast<char>(bytes.at(place) ^ 0x40);
    return bytes;
  }

  /// Where the stored blocks end and the list begins.
  static std::size_t listOffset(const std::string& content) { return content.find("<?xml"); }

  test::TemporaryDirectory directory_;
  test::Images images_;
  std::string volume_;
};

TEST_F(DamageTest, ADiskThatIsEmptyAlmostWithoutEndIsRefusedAtOnce) {
  test::writeFile(directory_ / "volume", volume_);
  platform::hdiutil::RawDisk disk(platform::FileDescriptor::open(
      platform::URL::fileURLWithPath((directory_ / "volume").native()), O_RDONLY));
  const auto output = platform::FileDescriptor::open(platform::URL::fileURLWithPath(image().native()),
                                                     O_WRONLY | O_CREAT, 0600);
  quorin_tools::UdifWriter writer(output);
  writer.addTable({"volume", disk, 0, volume_.size(), 0}, quorin_tools::zlibEncoding());
  writer.addTable({"far away", disk, 0, 512, std::uint64_t{1} << 30U}, quorin_tools::zlibEncoding());
  writer.finish();
  EXPECT_THAT(images_.attach(image()).failure, HasSubstr("64 GiB"));
}

TEST_F(DamageTest, ACatalogLargerThanItsVolumeTakesNoMemory) {
  // The size of the catalog's fork, of which the volume has nothing.
  test::writeFile(image(), volume_.replace(1024 + 272, 8, std::string("\0\0\0\0\x1F\0\0\0", 8)));
  EXPECT_THAT(images_.attach(image()).failure, HasSubstr("its volume's catalog is damaged"));
}

TEST_F(DamageTest, AFlippedByteInAnyStoredBlock) {
  for (const auto& [name, encoding] : test::blockEncodings()) {
    const std::string content = compressed(encoding);
    const std::size_t end = listOffset(content);
    for (std::size_t place = 0; place < end; place += end / 12)
      expectRefused(flipped(content, place), name + " at " + std::to_string(place));
    for (std::size_t place = end - 12; place < end; ++place)
      expectRefused(flipped(content, place), name + " at " + std::to_string(place));
  }
}

TEST_F(DamageTest, AFlippedByteWhereOnlyTheContentHasAChecksum) {
  // Without the checksum of the image as it is stored, as newer makers leave it out.
  for (const std::size_t kind : {std::size_t{0}, test::blockEncodings().size() - 1}) {
    const auto [name, encoding] = test::blockEncodings()[kind];
    // With a part that is not stored, the unpacking program does not look at the checksum either.
    test::writeUdif(image(), {{"whole disk", volume_ + std::string(2 << 20U, '\0')}}, encoding);
    std::string content = test::readFile(image());
    content.replace(content.size() - kTrailerSize + 80, 12, 12, '\0');
    const auto tree = treeOf(content);
    ASSERT_FALSE(tree.empty());
    const std::size_t end = listOffset(content);
    for (std::size_t place = 0; place < end; place += end / 12)
      expectRefused(flipped(content, place), name + " at " + std::to_string(place));
    // The last bits of a compressed stream may have no meaning.
    for (const std::size_t place : {std::size_t{1}, end - 6, end - 5, end - 4, end - 3, end - 2, end - 1})
      expectRefusedOrRight(flipped(content, place), tree, name + " at " + std::to_string(place));
  }
}

TEST_F(DamageTest, ATruncatedImage) {
  const std::string content = compressed(quorin_tools::zlibEncoding());
  for (std::size_t length = 0; length < content.size(); length += content.size() / 40)
    expectRefused(content.substr(0, length), std::to_string(length));
  expectRefused(content.substr(0, content.size() - 1), "one byte");
  expectRefused(content.substr(1), "from the front");
  const std::size_t middle = listOffset(content) / 2;
  expectRefused(content.substr(0, middle) + content.substr(middle + 1), "from the middle");
}

TEST_F(DamageTest, AFlippedByteInTheTrailer) {
  const std::string content = compressed(quorin_tools::zlibEncoding());
  const auto tree = treeOf(content);
  ASSERT_FALSE(tree.empty());
  for (std::size_t place = content.size() - kTrailerSize; place < content.size(); ++place) {
    const std::size_t field = place - (content.size() - kTrailerSize);
    const bool isLookedAt = field < 12 || (field >= 24 && field < 40) || (field >= 60 && field < 64) ||
                            (field >= 80 && field < 92) || (field >= 216 && field < 232) ||
                            (field >= 352 && field < 364);
    if (isLookedAt)
      expectRefused(flipped(content, place), std::to_string(field));
    else if (field % 7 == 0)
      expectRefusedOrRight(flipped(content, place), tree, std::to_string(field));
  }
}

TEST_F(DamageTest, AFlippedByteInTheBlockTables) {
  const std::string content = compressed(quorin_tools::zlibEncoding());
  const auto tree = treeOf(content);
  for (std::size_t place = listOffset(content); place < content.size() - kTrailerSize; place += 3)
    expectRefusedOrRight(flipped(content, place), tree, std::to_string(place));
}

TEST_F(DamageTest, AFlippedByteInAVolumeOfItsOwn) {
  // A bare volume has no checksums: whatever its bytes say, the answer is a tree or a sentence.
  test::HfsVolumeBuilder builder(u"V");
  builder.addFile(builder.addFolder(test::kRootFolder, u"folder"), u"file", "content");
  builder.addLink(test::kRootFolder, u"link", "folder");
  const std::string volume = builder.build();
  const std::size_t catalog = volume.find(std::string("\0\0\0\1\0\1\0V", 8)) - 20;
  const std::size_t tree = catalog - 4096;
  // The volume's header, the tree's header, and the records and their places.
  for (const auto& [begin, end] :
       {std::pair{std::size_t{1024}, std::size_t{1536}}, std::pair{tree, tree + 64},
        std::pair{catalog, catalog + 900}, std::pair{catalog + 4080, catalog + 4096}}) {
    for (std::size_t place = begin; place < end; ++place) {
      test::writeFile(image(), flipped(volume, place));
      const auto attached = images_.attach(image());
      if (attached.failure.empty())
        EXPECT_EQ(images_.detach(attached.device), "") << place;
      else
        EXPECT_THAT(attached.failure, EndsWith(".")) << place;
      EXPECT_THAT(images_.leftovers(), IsEmpty()) << place;
    }
  }
  for (std::size_t length = 0; length < volume.size(); length += 61)
    expectRefused(volume.substr(0, length), "cut at " + std::to_string(length));
}

TEST_F(DamageTest, WhatIsNoImage) {
  const std::string content = compressed(quorin_tools::zlibEncoding());
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
      {"empty", ""},
      {"one byte", "x"},
      {"a page", "<!DOCTYPE html><html><body>Not found</body></html>"},
      {"zeros", std::string(100000, '\0')},
      {"noise", volume_.substr(3000, 20000)},
      {"a trailer and nothing else", content.substr(content.size() - kTrailerSize)},
      {"no trailer", content.substr(0, content.size() - kTrailerSize)},
      {"encrypted", "encrcdsa" + content},
      {"encrypted in the older way", volume_ + "cdsaencr"},
      {"a partition map that leads out", guid.substr(0, 20000)},
  };
  for (const auto& [name, bytes] : cases)
    expectRefused(bytes, name);
  fs::remove(image());
  EXPECT_THAT(images_.attach(image()).failure, HasSubstr("No such file"));
  EXPECT_THAT(images_.attach(directory_.path()).failure, HasSubstr("no file"));
}

TEST_F(DamageTest, NoSpaceIsReportedAsThatAndNothingStays) {
  compressed(quorin_tools::zlibEncoding());
  const fs::path report = directory_ / "report";
  const int result = test::inChild([&] {
    if (!test::inject({.number = SYS_pwrite64, .errorNumber = ENOSPC}))
      return 77;
    const std::string failure = images_.attach(image()).failure;
    return failure.find("No space left on device") != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
  EXPECT_THAT(images_.leftovers(), IsEmpty());
}

TEST_F(DamageTest, MoreThanTheFreeSpaceIsRefusedBeforeItIsWritten) {
  test::HfsVolumeBuilder builder(u"Volume");
  builder.addFile(test::kRootFolder, u"file", "content");
  std::string volume = builder.build();
  // The size and the extent of the one file, so that it seems to be a thousand million blocks long.
  const std::string size("\0\0\0\0\0\0\0\x07", 8);
  const std::size_t fork = volume.find(size, volume.find("\0f\0i\0l\0e", 0, 8));
  ASSERT_NE(fork, std::string::npos);
  volume.replace(fork, 8, std::string("\0\x7F\0\0\0\0\0\0", 8));
  test::writeFile(image(), volume);
  EXPECT_THAT(images_.attach(image()).failure, HasSubstr("no space left"));
  EXPECT_THAT(images_.leftovers(), IsEmpty());
}

}  // namespace
