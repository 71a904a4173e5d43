#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>

#include "tests/helpers/files.hpp"
#include "tests/helpers/syscall_fault.hpp"
#include "tests/platform/ditto/tree_description.hpp"

namespace fs = std::filesystem;
using test::describeTree;
using test::ditto;
using test::TemporaryDirectory;
using test::writeFile;

namespace {

MATCHER(IsSilentSuccess, "") {
  *result_listener << "status " << arg.exitStatus << ", signal " << arg.signal << ", error " << arg.error;
  return arg.exitStatus == 0 && arg.output.empty() && arg.error.empty();
}

/// One of everything that a bundle may contain.
void makeTree(const fs::path& root) {
  writeFile(root / "Contents/MacOS/Quorin Ostreval", std::string(3'000'001, 'x'));
  writeFile(root /
                "Contents/Resources/de.lproj/\xC3\xBC"
                "bersicht\n2.txt",
            "text");
  writeFile(root / "Contents/Resources/locked/read-only", "r");
  writeFile(root / "Contents/empty", "");
  fs::create_directories(root / "Contents/Resources/empty");
  for (int number = 0; number < 100; ++number)
    writeFile(root / "Contents/many" / std::to_string(number), std::to_string(number));
  // Holes and data alternate, with a hole at either end.
  const fs::path sparse = root / "Contents/sparse";
  writeFile(sparse, "");
  for (const std::uintmax_t hole : {1U << 20U, 3U << 20U}) {
    fs::resize_file(sparse, hole);
    std::ofstream(sparse, std::ios::app) << std::string(5000, 'a');
  }
  fs::resize_file(sparse, 5 << 20);

  fs::create_symlink("MacOS/Quorin Ostreval", root / "Contents/relative");
  fs::create_symlink("../../../secret", root / "Contents/outside");
  fs::create_directory_symlink("/", root / "Contents/absolute");
  fs::create_symlink("self", root / "Contents/self");
  fs::create_symlink(std::string(1000, 'd'), root / "Contents/dangling");
  fs::create_hard_link(root / "Contents/MacOS/Quorin Ostreval", root / "Contents/Resources/same");
  fs::create_hard_link(root / "Contents/MacOS/Quorin Ostreval", root / "same too");
  fs::create_hard_link(root / "Contents/self", root / "Contents/Resources/self");
  fs::create_hard_link(root / "Contents/empty", root / ".." / "a name outside the bundle");

  const std::pair<const char*, mode_t> modes[] = {{"Contents/MacOS/Quorin Ostreval", 0755},
                                                  {"Contents/Resources/locked/read-only", 0400},
                                                  {"Contents/Resources/locked", 0555},
                                                  {"Contents/Resources/empty", 03777},
                                                  {"Contents/many/1", 06755},
                                                  {"Contents/many/2", 0666},
                                                  {".", 0775}};
  for (const auto& [path, mode] : modes)
    ASSERT_EQ(::chmod((root / path).c_str(), mode), 0);
  if (::geteuid() == 0) {
    for (const char* path : {"Contents/many/2", "Contents/dangling", "Contents/Resources/de.lproj"})
      ASSERT_EQ(::lchown((root / path).c_str(), 4711, 4712), 0);
  }
  for (const char* path :
       {"Contents/sparse", "Contents/relative", "Contents/Resources/empty", "Contents", "."})
    test::setModificationTime(root / path, -86'400, 123'456'789);
}

class DittoTest : public testing::Test {
 protected:
  DittoTest() { makeTree(source); }

  void expectSame(const fs::path& made) const { EXPECT_EQ(describeTree(made), describeTree(source)); }

  TemporaryDirectory directory;
  const fs::path source = directory / "Quorin Ostreval.app";
  const fs::path copy = directory / ".quorin-update.app";
};

TEST_F(DittoTest, CopiesEverythingThatBelongsToATreeWhateverTheMask) {
  for (const mode_t mask : {0000U, 0777U}) {
    const fs::path masked = directory / std::to_string(mask);
    EXPECT_THAT(ditto(source, masked, [&] { ::umask(mask); }), IsSilentSuccess()) << std::oct << mask;
    expectSame(masked);
  }
}

TEST_F(DittoTest, CopiesWithoutTheKernelsHelp) {
  constexpr std::uint32_t kSeekData = SEEK_DATA;
  const auto inject = [](const test::SyscallFault& fault) {
    return [=] { return test::inject(fault) ? void() : ::_exit(126); };
  };
  EXPECT_THAT(ditto(source, copy, inject({SYS_copy_file_range, EXDEV})), IsSilentSuccess());
  expectSame(copy);
  // Without SEEK_DATA the content is still the same.
  const fs::path other = directory / "other";
  EXPECT_THAT(ditto(source, other, inject({SYS_lseek, EINVAL, test::SyscallFault::Argument{2, kSeekData}})),
              IsSilentSuccess());
  EXPECT_EQ(test::inventory(other), test::inventory(source));
}

TEST_F(DittoTest, CopiesExtendedAttributesAndAccessControlLists) {
  const std::pair<const char*, std::string> attributes[] = {
      {"user.empty", ""},
      {"user.quarantine", std::string("0081;\0\xFF", 7)},
      {"user.long", std::string(3000, 'l')}};
  for (const char* path : {".", "Contents/MacOS/Quorin Ostreval"}) {
    for (const auto& [name, value] : attributes) {
      if (!test::setExtendedAttribute(source / path, name, value))
        GTEST_SKIP() << "the file system has no extended attributes";
    }
  }
  const std::string list = test::accessControlList(4711);
  const bool lists =
      test::setExtendedAttribute(source / "Contents/many/3", "system.posix_acl_access", list) &&
      test::setExtendedAttribute(source / "Contents/Resources", "system.posix_acl_default", list);
  EXPECT_THAT(ditto(source, copy), IsSilentSuccess());
  expectSame(copy);
  if (!lists)
    GTEST_SKIP() << "the file system has no access control lists";
  // An access control list inherited from the parent directory is not part of the source.
  const fs::path generous = directory / "generous";
  fs::create_directory(generous);
  ASSERT_TRUE(
      test::setExtendedAttribute(generous, "system.posix_acl_default", test::accessControlList(4712)));
  EXPECT_THAT(ditto(source, generous / "copy"), IsSilentSuccess());
  expectSame(generous / "copy");
  EXPECT_THAT(ditto(source / "Contents/many/4", generous / "file"), IsSilentSuccess());
  EXPECT_EQ(describeTree(generous / "file"), describeTree(source / "Contents/many/4"));
}

TEST_F(DittoTest, CopiesSingleFilesAndWhatLinksLeadTo) {
  fs::create_directory_symlink(source, directory / "link.app");
  fs::create_symlink("link.app", directory / "link to the link.app");
  const std::pair<fs::path, fs::path> cases[] = {
      {source / "Contents/many/1", source / "Contents/many/1"},
      {source / "Contents/sparse", source / "Contents/sparse"},
      {source / "Contents/relative", source / "Contents/MacOS/Quorin Ostreval"},
      {directory / "link to the link.app", source}};
  for (const auto& [from, meant] : cases) {
    const fs::path made = directory / ("copy of " + from.filename().native());
    EXPECT_THAT(ditto(from, made), IsSilentSuccess()) << from;
    EXPECT_EQ(describeTree(made), describeTree(meant)) << from;
  }
  const auto enter = [&] { return ::chdir(directory.path().c_str()) == 0 ? void() : ::_exit(126); };
  EXPECT_THAT(ditto("Quorin Ostreval.app/", "./relative/", enter), IsSilentSuccess());
  expectSame(directory / "relative");
}

TEST_F(DittoTest, TheCopyOfAUserWithoutPrivilegesIsTheUsersOwn) {
  if (::geteuid() != 0)
    GTEST_SKIP() << "only root can create files of other users";
  fs::permissions(source / "Contents/Resources/locked/read-only", fs::perms(0444));
  const fs::path open = directory / "open";
  fs::create_directory(open);
  fs::permissions(open, fs::perms(0777));
  // Other users may not be able to search the build tree.
  const fs::path program = directory / "ditto";
  fs::copy_file(test::buildPrefix() / "libexec/quorin/ditto", program);
  fs::permissions(directory.path(), fs::perms(0755));
  const fs::path own = open / "own";
  const auto prepare = [] {
    // It then copies without threads.
    const rlimit one{1, 1};
    ::setrlimit(RLIMIT_NPROC, &one);
    ::umask(0777);
    test::becomeNobody();
  };
  ASSERT_THAT(test::runProgram(program, {source, own}, prepare), IsSilentSuccess());
  struct stat status {};
  ASSERT_EQ(::lstat((own / "Contents/many/1").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 65534U);
  EXPECT_EQ(status.st_mode & 07777U, 0755U) << "no other user's privileges are handed on";
  // Apart from that they are the same.
  for (const char* path : {"Contents/many/1", "Contents/Resources/empty"}) {
    fs::permissions(source / path, fs::perms(0755));
    fs::permissions(own / path, fs::perms(0755));
  }
  EXPECT_EQ(test::inventory(own), test::inventory(source));
}

TEST(DittoDepthTest, CopiesTreesOfAnyDepthAndBreadthWithFewDescriptors) {
  const TemporaryDirectory directory;
  // Each half is almost PATH_MAX long, and both together are longer.
  fs::path half;
  for (int level = 0; level < 200; ++level)
    half /= "name of level";
  const fs::path lower = directory / "lower";
  writeFile(lower / half / "file", "low");
  for (int number = 0; number < 100; ++number)
    writeFile(directory / "deep" / std::to_string(number) / "file", "wide");
  writeFile(directory / "deep" / half / "file", "hard");
  fs::create_hard_link(directory / "deep" / half / "file", lower / half / "same");
  const auto expected = describeTree(lower);
  fs::rename(lower, directory / "deep" / half / "lower");

  const auto limitDescriptors = [] {
    const rlimit limit{128, 128};
    ::setrlimit(RLIMIT_NOFILE, &limit);
  };
  ASSERT_THAT(ditto(directory / "deep", directory / "copy", limitDescriptors), IsSilentSuccess());
  fs::rename(directory / "copy" / half / "lower", lower);
  EXPECT_EQ(describeTree(lower), expected);
  EXPECT_TRUE(fs::equivalent(directory / "copy" / half / "file", lower / half / "same"));
  EXPECT_EQ(test::readFile(directory / "copy/99/file"), "wide");
}

}  // namespace
