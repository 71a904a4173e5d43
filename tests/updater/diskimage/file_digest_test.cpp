#include "updater/diskimage/file_digest.hpp"

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>

#include "platform/foundation/error.hpp"
#include "tests/support/files.hpp"
#include "tests/support/program.hpp"
#include "tests/support/syscall_fault.hpp"

namespace {

using platform::URL;

TEST(FileDigestTest, IsThatOfTheWholeFileAtSizesAroundAChunk) {
  constexpr std::size_t kChunk = 1048576;
  const test::TemporaryDirectory directory;
  const std::string path = (directory / "file").native();
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{55}, std::size_t{64}, kChunk - 1,
                                 kChunk, kChunk + 1, 2 * kChunk, 2 * kChunk + 4097}) {
    std::string content(size, '\0');
    for (std::size_t index = 0; index < size; ++index)
      content[index] = static_cast<char>(index * 2654435761U >> 13U);
    test::writeFile(path, content);
    const std::string digest = QuorinOstrevalUpdater::sha256(URL::fileURLWithPath(path));
    EXPECT_EQ(digest.size(), 64U) << size;
    EXPECT_EQ(digest + "  " + path + "\n", test::runProgram("/usr/bin/sha256sum", {path}).output) << size;
  }
}

/// The last read of the second, shorter chunk fails: the only one that asks for just what is left of it.
TEST(FileDigestTest, AFailureBehindTheFirstChunkIsNoEnd) {
  constexpr std::size_t kRest = 524288;
  const test::TemporaryDirectory directory;
  const std::string path = (directory / "file").native();
  test::writeFile(path, std::string(3 * kRest, 'x'));
  const auto digestOnFailingDisk = [&] {
    if (!test::inject({.number = SYS_read, .errorNumber = EIO, .argument = {{.index = 2, .value = kRest}}}))
      return 77;
    try {
      QuorinOstrevalUpdater::sha256(URL::fileURLWithPath(path));
      return 1;
    } catch (const platform::SystemError& error) {
      return error.errorNumber() == EIO ? 0 : 2;
    }
  };
  const int result = test::inChild(digestOnFailingDisk);
  if (result == 77)
    GTEST_SKIP() << "system calls cannot be made to fail here";
  EXPECT_EQ(result, 0);
}

}  // namespace
