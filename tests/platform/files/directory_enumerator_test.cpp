#include "platform/files/directory_enumerator.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "platform/files/file_manager.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"

namespace fs = std::filesystem;

namespace {

std::multiset<std::string> walk(const fs::path& root) {
  std::multiset<std::string> paths;
  auto enumerator = platform::NSFileManager::defaultManager().enumeratorAtURL(
      platform::URL::fileURLWithPath(root.native()), platform::DirectoryEnumerationOptions::none);
  while (const auto entry = enumerator->nextObject())
    paths.insert(entry->path().substr(root.native().size() + 1));
  return paths;
}

TEST(DirectoryEnumeratorTest, DepthHasNoLimitNorHasItForRemoval) {
  constexpr int kDepth = 3000;
  const test::TemporaryDirectory root;
  int directory = ::open(root.path().c_str(), O_RDONLY | O_DIRECTORY);
  for (int depth = 0; depth < kDepth; ++depth) {
    ASSERT_EQ(::mkdirat(directory, "deeper", 0755), 0);
    const int next = ::openat(directory, "deeper", O_RDONLY | O_DIRECTORY);
    ::close(directory);
    directory = next;
  }
  ::close(directory);
  test::writeFile(root / "zlast", "");
  EXPECT_EQ(test::inChild([&] {
              const rlimit few{.rlim_cur = 16, .rlim_max = 16};
              ::setrlimit(RLIMIT_NOFILE, &few);
              return walk(root.path()).size() == kDepth + 1 ? 0 : 1;
            }),
            0);
  platform::NSFileManager::defaultManager().removeItemAtURL(
      platform::URL::fileURLWithPath((root / "deeper").native()));
  EXPECT_FALSE(fs::exists(root / "deeper"));
}

TEST(DirectoryEnumeratorTest, PassesOverWhatCannotBeReadOrLeft) {
  const test::TemporaryDirectory root;
  for (const char* file : {"closed/x", "list only/y/z", "open/w"})
    test::writeFile(root / file, "");
  fs::permissions(root / "closed", fs::perms::none);
  fs::permissions(root / "list only", fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  const int result = test::inChild([&] {
    if (::geteuid() == 0 && ::setuid(65534) != 0)
      return 2;
    const std::multiset<std::string> expected{"closed", "list only", "list only/y", "open", "open/w"};
    return walk(root.path()) == expected ? 0 : 1;
  });
  fs::permissions(root / "closed", fs::perms::owner_all);
  fs::permissions(root / "list only", fs::perms::owner_all);
  EXPECT_EQ(result, 0);
}

}  // namespace
