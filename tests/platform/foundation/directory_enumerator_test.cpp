#include "platform/foundation/directory_enumerator.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "platform/foundation/file_manager.hpp"
#include "tests/support/files.hpp"
#include "tests/support/program.hpp"

namespace fs = std::filesystem;
using Options = platform::DirectoryEnumerationOptions;

namespace {

std::multiset<std::string> walk(const fs::path& root, Options options) {
  std::multiset<std::string> paths;
  auto enumerator = platform::NSFileManager::defaultManager().enumeratorAtURL(
      platform::URL::fileURLWithPath(root.native()), options);
  while (enumerator) {
    const auto entry = enumerator->nextObject();
    if (!entry)
      break;
    paths.insert(entry->path().substr(root.native().size() + 1));
  }
  return paths;
}

TEST(DirectoryEnumeratorTest, DeliversEveryEntryOnceUnlessTheOptionsSkipIt) {
  const test::TemporaryDirectory root;
  for (const char* file : {"a/b/c", "a/d", ".h/x", "P.app/Contents/y", "Q.App/z", "e/.f", "file.app"})
    test::writeFile(root / file, "");
  fs::create_directory_symlink("a", root / "link");
  fs::create_directory(root / "empty");
  using Paths = std::multiset<std::string>;
  struct Case {
    Options options;
    Paths paths;
  };
  const Case cases[] = {{Options::none,
                         {"a", "a/b", "a/b/c", "a/d", ".h", ".h/x", "P.app", "P.app/Contents",
                          "P.app/Contents/y", "Q.App", "Q.App/z", "e", "e/.f", "file.app", "link", "empty"}},
                        {Options::skipsHiddenFiles | Options::skipsPackageDescendants,
                         {"a", "a/b", "a/b/c", "a/d", "P.app", "Q.App", "e", "file.app", "link", "empty"}},
                        {Options::skipsSubdirectoryDescendants,
                         {"a", ".h", "P.app", "Q.App", "e", "file.app", "link", "empty"}}};
  for (const Case& expected : cases)
    EXPECT_EQ(walk(root.path(), expected.options), expected.paths) << static_cast<unsigned>(expected.options);
}

TEST(DirectoryEnumeratorTest, ThereIsNoneForWhatIsNoDirectory) {
  const test::TemporaryDirectory root;
  test::writeFile(root / "file", "");
  const auto& manager = platform::NSFileManager::defaultManager();
  for (const char* name : {"file", "missing"})
    EXPECT_FALSE(
        manager.enumeratorAtURL(platform::URL::fileURLWithPath((root / name).native()), Options::none))
        << name;
}

TEST(DirectoryEnumeratorTest, DepthHasNoLimitAndTakesNoDescriptors) {
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
              return walk(root.path(), Options::none).size() == kDepth + 1 ? 0 : 1;
            }),
            0);
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
    return walk(root.path(), Options::none) == expected ? 0 : 1;
  });
  fs::permissions(root / "closed", fs::perms::owner_all);
  fs::permissions(root / "list only", fs::perms::owner_all);
  EXPECT_EQ(result, 0);
}

}  // namespace
