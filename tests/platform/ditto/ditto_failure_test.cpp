#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/foundation/error.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/syscall_fault.hpp"
#include "tests/platform/ditto/tree_description.hpp"

namespace fs = std::filesystem;
using test::ditto;
using test::TemporaryDirectory;
using test::writeFile;
using testing::AllOf;
using testing::HasSubstr;

namespace {

/// A failure that says why in one line and prints nothing else.
MATCHER_P(FailsSaying, sentence, "") {
  *result_listener << "status " << arg.exitStatus << ", signal " << arg.signal << ", error " << arg.error;
  const bool oneLine = arg.error.find('\n') + 1 == arg.error.size() && arg.error.ends_with(".\n");
  return arg.exitStatus > 0 && arg.exitStatus < 125 && arg.output.empty() && oneLine &&
         testing::Matches(sentence)(arg.error);
}

class DittoFailureTest : public testing::Test {
 protected:
  DittoFailureTest() {
    writeFile(source / "Contents/Info.plist", "plist");
    writeFile(source / "Contents/MacOS/App", std::string(200'000, 'x'));
    fs::create_symlink("MacOS/App", source / "Contents/link");
    fs::create_hard_link(source / "Contents/Info.plist", source / "same");
  }

  void expectRefusal(const fs::path& from, const fs::path& to, const std::string& part) const {
    const auto before = test::inventory(directory.path());
    EXPECT_THAT(ditto(from, to), FailsSaying(HasSubstr(part)));
    EXPECT_EQ(test::inventory(directory.path()), before) << to;
  }

  TemporaryDirectory directory;
  const fs::path source = directory / "App.app";
  const fs::path copy = directory / "copy.app";
};

TEST_F(DittoFailureTest, RefusesWithoutAnyChange) {
  fs::create_directory(directory / "empty");
  fs::create_symlink("nowhere", directory / "dangling");
  fs::create_directory_symlink(source / "Contents", directory / "into the source");
  const std::string exists = " could not be created: File exists.";
  const std::string missing = ": No such file or directory.";
  expectRefusal("", copy, "Usage: ");
  expectRefusal(source, "", "Usage: ");
  expectRefusal(directory / "missing", copy, "missing\" could not be examined" + missing);
  expectRefusal(directory / "dangling", copy, "dangling\" could not be examined" + missing);
  expectRefusal(directory / "missing/App.app", copy, "missing\" could not be opened" + missing);
  expectRefusal(source, directory / "missing/copy.app", "missing\" could not be opened" + missing);
  for (const fs::path& item : {source, source / "Contents/Info.plist", source / "Contents/link"}) {
    expectRefusal(item, directory / "empty", "empty\"" + exists);
    expectRefusal(item, directory / "dangling", "dangling\"" + exists);
  }
  for (const fs::path& inside :
       {source / "copy.app", source / "Contents/MacOS/../copy.app", directory / "into the source/copy.app"})
    expectRefusal(source, inside, "is inside");
}

TEST_F(DittoFailureTest, RefusesSpecialFiles) {
  const fs::path special = source / "Contents/special";
  ASSERT_EQ(::mkfifo(special.c_str(), 0600), 0);
  for (const fs::path& item : {special, source})
    EXPECT_THAT(ditto(item, directory / ("copy of " + item.filename().native())),
                FailsSaying(HasSubstr("special\" is neither a file, a directory nor a symbolic link")));
}

TEST_F(DittoFailureTest, TellsOfAttributesAndLinksThatCannotBeCopied) {
  ASSERT_TRUE(test::setExtendedAttribute(source / "Contents", "user.name", "value"))
      << "no extended attributes";
  const std::tuple<long, int, const char*> cases[] = {
      {SYS_linkat, EMLINK, "could not be created: Too many links."},
      {SYS_flistxattr, EIO, "extended attributes of"},
      {SYS_fgetxattr, EIO, "user.name"},
      {SYS_fsetxattr, ENOSPC, "user.name"},
      {SYS_utimensat, EIO, "modification time of"}};
  for (const auto& [number, reason, part] : cases) {
    const fs::path faulty = directory / std::to_string(number);
    const test::SyscallFault fault{number, reason};
    EXPECT_THAT(ditto(source, faulty, [&] { return test::inject(fault) ? void() : ::_exit(126); }),
                FailsSaying(AllOf(HasSubstr(part), HasSubstr(platform::reasonOf(reason) + "."))));
  }
}

}  // namespace
