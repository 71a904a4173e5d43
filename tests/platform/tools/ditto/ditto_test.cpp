#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>

#include "platform/foundation/file_descriptor.hpp"
#include "tests/platform/tools/ditto/tree_description.hpp"
#include "tests/support/files.hpp"
#include "tests/support/syscall_fault.hpp"

namespace fs = std::filesystem;
using platform::FileDescriptor;
using test::describeTree;
using test::ditto;
using test::TemporaryDirectory;
using test::writeFile;

namespace {

MATCHER(IsSilentSuccess, "") {
  *result_listener << "status " << arg.exitStatus << ", signal " << arg.signal << ", error " << arg.error;
  return arg.exitStatus == 0 && arg.output.empty() && arg.error.empty();
}

/// Data and holes in turn: a hole at the beginning, in the middle and at the end.
void writeSparseFile(const fs::path& path) {
  std::ofstream stream(path, std::ios::binary);
  stream.seekp(1 << 20);
  stream << std::string(5000, 'a');
  stream.seekp(3 << 20);
  stream << std::string(100, 'b');
  stream.close();
  fs::resize_file(path, 5 << 20);
}

/// One of everything that a bundle may hold.
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
  writeSparseFile(root / "Contents/sparse");
  std::ofstream(root / "Contents/hole").close();
  fs::resize_file(root / "Contents/hole", 1 << 20);

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
    ASSERT_EQ(::chown((root / "Contents/many/2").c_str(), 4711, 4712), 0);
    ASSERT_EQ(::lchown((root / "Contents/dangling").c_str(), 4711, 4712), 0);
    ASSERT_EQ(::chown((root / "Contents/Resources/de.lproj").c_str(), 4711, 4712), 0);
  }
  const char* dated[] = {"Contents/MacOS/Quorin Ostreval",
                         "Contents/relative",
                         "Contents/sparse",
                         "Contents/MacOS",
                         "Contents/Resources/empty",
                         "Contents",
                         "."};
  for (long number = 0; const char* path : dated) {
    test::setModificationTime(root / path, -86'400 + 1'000'000 * number, 123'456'789 + number);
    ++number;
  }
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
  for (const mode_t mask : {0000U, 0022U, 0077U, 0777U}) {
    const fs::path masked = directory / std::to_string(mask);
    EXPECT_THAT(ditto(source, masked, [&] { ::umask(mask); }), IsSilentSuccess()) << std::oct << mask;
    expectSame(masked);
  }
}

TEST_F(DittoTest, CopiesWithoutTheKernelsHelp) {
  constexpr std::uint32_t kSeekData = SEEK_DATA;
  const test::SyscallFault faults[] = {{SYS_copy_file_range, EXDEV},
                                       {SYS_copy_file_range, EOPNOTSUPP},
                                       {SYS_copy_file_range, ENOSYS},
                                       {SYS_copy_file_range, EINVAL},
                                       {SYS_copy_file_range, EPERM}};
  for (const test::SyscallFault& fault : faults) {
    const fs::path faulty = directory / std::to_string(fault.errorNumber);
    const auto injectFault = [&] { return test::inject(fault) ? void() : ::_exit(126); };
    EXPECT_THAT(ditto(source, faulty, injectFault), IsSilentSuccess()) << fault.errorNumber;
    expectSame(faulty);
  }
  // Without knowledge of holes the content is still the same.
  const auto hideHoles = [&] {
    if (!test::inject({SYS_lseek, EINVAL, test::SyscallFault::Argument{2, kSeekData}}))
      ::_exit(126);
  };
  EXPECT_THAT(ditto(source, copy, hideHoles), IsSilentSuccess());
  EXPECT_EQ(test::inventory(copy), test::inventory(source));
}

TEST_F(DittoTest, CopiesExtendedAttributesAndAccessControlLists) {
  const std::pair<const char*, std::string> attributes[] = {
      {"user.empty", ""},
      {"user.quarantine", std::string("0081;\0\xFF", 7)},
      {"user.long", std::string(3000, 'l')}};
  for (const char* path : {".", "Contents", "Contents/MacOS/Quorin Ostreval", "Contents/many/2"}) {
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
  // What the parent directory hands down to new files is no part of the source.
  const fs::path generous = directory / "generous";
  fs::create_directory(generous);
  ASSERT_TRUE(
      test::setExtendedAttribute(generous, "system.posix_acl_default", test::accessControlList(4712)));
  EXPECT_THAT(ditto(source, generous / "copy"), IsSilentSuccess());
  expectSame(generous / "copy");
  EXPECT_THAT(ditto(source / "Contents/many/4", generous / "file"), IsSilentSuccess());
  EXPECT_EQ(describeTree(generous / "file"), describeTree(source / "Contents/many/4"));
}

TEST_F(DittoTest, CopiesSingleFiles) {
  for (const char* path : {"Contents/many/1", "Contents/sparse"}) {
    const fs::path single = directory.path() / fs::path(path).filename();
    EXPECT_THAT(ditto(source / path, single), IsSilentSuccess()) << path;
    EXPECT_EQ(describeTree(single), describeTree(source / path)) << path;
  }
}

TEST_F(DittoTest, ASourceThatIsALinkCountsAsWhatItLeadsTo) {
  fs::create_directory_symlink(source, directory / "link.app");
  fs::create_symlink("link.app", directory / "link to the link.app");
  EXPECT_THAT(ditto(directory / "link to the link.app", copy), IsSilentSuccess());
  expectSame(copy);
  EXPECT_THAT(ditto(source / "Contents/relative", directory / "file"), IsSilentSuccess());
  EXPECT_EQ(describeTree(directory / "file"), describeTree(source / "Contents/MacOS/Quorin Ostreval"));
  for (const char* path : {"Contents/dangling", "Contents/self"})
    EXPECT_EQ(ditto(source / path, directory / "nothing").exitStatus, 1) << path;
  EXPECT_FALSE(fs::exists(fs::symlink_status(directory / "nothing")));
}

TEST_F(DittoTest, TakesRelativePathsAndSlashesAtTheEnd) {
  const auto enter = [&] { return ::chdir(directory.path().c_str()) == 0 ? void() : ::_exit(126); };
  EXPECT_THAT(ditto("Quorin Ostreval.app/", "./copy/", enter), IsSilentSuccess());
  expectSame(directory / "copy");
}

TEST_F(DittoTest, TheCopyOfAUserWithoutPrivilegesIsTheUsersOwn) {
  if (::geteuid() != 0)
    GTEST_SKIP() << "only an administrator has files of others";
  fs::permissions(source / "Contents/Resources/locked/read-only", fs::perms(0444));
  const fs::path open = directory / "open";
  fs::create_directory(open);
  fs::permissions(open, fs::perms(0777));
  for (const rlim_t processes : {RLIM_INFINITY, rlim_t{1}}) {  // with threads, and without any
    const fs::path own = open / std::to_string(processes);
    const auto prepare = [&] {
      const rlimit limit{processes, processes};
      ::setrlimit(RLIMIT_NPROC, &limit);
      ::umask(0777);
      test::becomeNobody();
    };
    ASSERT_THAT(ditto(source, own, prepare), IsSilentSuccess());
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
}

TEST(DittoDepthTest, CopiesTreesOfAnyDepthAndBreadthWithFewDescriptors) {
  constexpr int kDepth = 400;
  const TemporaryDirectory directory;
  const std::string name(20, 'n');
  writeFile(directory / "deep/top", "hard");
  for (int number = 0; number < 100; ++number)
    writeFile(directory / "deep" / std::to_string(number) / "file", "wide");
  const auto open = [&](const FileDescriptor& above, const char* child) {
    return FileDescriptor::openAt(above, child, O_RDONLY | O_DIRECTORY);
  };
  const auto root = FileDescriptor::open(platform::URL::fileURLWithPath(directory.path().native()), O_PATH);
  FileDescriptor place = open(root, "deep");
  for (int level = 0; level < kDepth; ++level) {
    ASSERT_EQ(::mkdirat(place.get(), name.c_str(), 0700), 0);
    place = open(place, name.c_str());
    FileDescriptor::openAt(place, "file", O_WRONLY | O_CREAT, 0640).writeAll(std::to_string(level), "file");
  }
  ASSERT_EQ(::linkat(root.get(), "deep/top", place.get(), "same", 0), 0);

  const auto limitDescriptors = [] {
    const rlimit limit{128, 128};
    ::setrlimit(RLIMIT_NOFILE, &limit);
  };
  ASSERT_THAT(ditto(directory / "deep", directory / "copy", limitDescriptors), IsSilentSuccess());
  place = open(root, "copy");
  for (int level = 0; level < kDepth; ++level) {
    place = open(place, name.c_str());
    char content[8] = {};
    const std::size_t size =
        FileDescriptor::openAt(place, "file", O_RDONLY).read(content, sizeof content, "file");
    ASSERT_EQ(std::string(content, size), std::to_string(level));
  }
  struct stat top {};
  struct stat same {};
  ASSERT_EQ(::fstatat(root.get(), "copy/top", &top, 0), 0);
  ASSERT_EQ(::fstatat(place.get(), "same", &same, 0), 0);
  EXPECT_EQ(top.st_ino, same.st_ino);
}

}  // namespace
