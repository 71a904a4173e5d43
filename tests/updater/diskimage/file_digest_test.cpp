#include "updater/diskimage/file_digest.hpp"

#include <gtest/gtest.h>

#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"

namespace {

TEST(FileDigestTest, IsThatOfTheWholeFileAtSizesAroundAChunk) {
  constexpr std::size_t kChunk = 1048576;
  const test::TemporaryDirectory directory;
  const std::string path = (directory / "file").native();
  for (const std::size_t size : {std::size_t{0}, std::size_t{55}, std::size_t{64}, kChunk - 1, kChunk,
                                 kChunk + 1, 2 * kChunk + 4097}) {
    std::string content(size, '\0');
    for (std::size_t index = 0; index < size; ++index)
      content[index] = static_cast<char>(index * 2654435761U >> 13U);
    test::writeFile(path, content);
    const std::string digest = QuorinOstrevalUpdater::sha256(platform::URL::fileURLWithPath(path));
    EXPECT_EQ(digest + "  " + path + "\n", test::runProgram("/usr/bin/sha256sum", {path}).output) << size;
  }
}

}  // namespace
