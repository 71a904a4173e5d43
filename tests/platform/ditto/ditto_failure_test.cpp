#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

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

constexpr int kSystemCallStop = SIGTRAP | 0x80;

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
    expectRefusal(source, inside, "lies inside");
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

/// A system call of which the second argument is a path.
struct Interception {
  long number;
  std::string path;
  std::function<void()> step;

  bool isAt(pid_t process) const {
    __ptrace_syscall_info call{};
    ::ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof call, &call);
    if (call.op != PTRACE_SYSCALL_INFO_ENTRY || call.entry.nr != static_cast<std::uint64_t>(number))
      return false;
    std::string text(path.size() + 1, '\0');
    const iovec here{text.data(), text.size()};
    const iovec there{reinterpret_cast<void*>(call.entry.args[1]), text.size()};
    return ::process_vm_readv(process, &here, 1, &there, 1, 0) > 0 && text.c_str() == path;
  }
};

/// Just before the program's main thread enters that call for the first time, with that path, it stands still
/// while the step is taken.
test::Outcome dittoIntercepted(const fs::path& source, const fs::path& copy,
                               const Interception& interception) {
  const auto follow = [&](pid_t child) {
    int status = test::waitFor(child);
    ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    bool isTaken = false;
    for (int signal = 0; WIFSTOPPED(status) && ::ptrace(PTRACE_SYSCALL, child, nullptr, signal) == 0;) {
      status = test::waitFor(child);
      signal = WIFSTOPPED(status) && WSTOPSIG(status) != kSystemCallStop ? WSTOPSIG(status) : 0;
      if (!isTaken && WIFSTOPPED(status) && interception.isAt(child)) {
        isTaken = true;
        interception.step();
      }
    }
    EXPECT_TRUE(isTaken) << interception.path;
    return status;
  };
  return ditto(
      source, copy, [] { ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr); }, follow);
}

TEST_F(DittoFailureTest, NothingSlipsInBetweenALookAndAStep) {
  writeFile(source / "inner/second/marker", "m");
  writeFile(directory / "secret", "secret");
  const fs::path away = directory / "away";
  const fs::path file = source / "inner/second/marker";
  const auto moveAway = [&](const fs::path& path) { fs::rename(path, away); };
  const auto replaceByDirectory = [&](const fs::path& path) {
    moveAway(path);
    fs::create_directory(path);
  };
  const auto replaceByFile = [&](const fs::path& path) {
    moveAway(path);
    writeFile(path, "foreign");
  };
  struct Case {
    fs::path from;
    Interception interception;
    const char* part;
  };
  const Case cases[] = {
      {source, {SYS_openat, "second", [&] { replaceByDirectory(copy / "inner/second"); }}, "was moved"},
      {source, {SYS_newfstatat, "marker", [&] { moveAway(copy / "inner/second"); }}, "was moved"},
      {source, {SYS_newfstatat, "marker", [&] { moveAway(source / "inner/second"); }}, "was moved"},
      {source, {SYS_linkat, "same", [&] { replaceByFile(copy / "same"); }}, "was changed"},
      {source,
       {SYS_newfstatat, "marker", [&] { writeFile(file.parent_path() / "new", ""); }},
       "second\" changed"},
      {file, {SYS_openat, "copy.app", [&] { writeFile(file, "more"); }}, "marker\" changed"},
      {file,
       {SYS_openat, "marker", [&] { moveAway(file), fs::create_symlink(directory / "secret", file); }},
       "marker\" could not be opened: Too many levels of symbolic links."},
      {file,
       {SYS_openat, "marker", [&] { moveAway(file), ::mkfifo(file.c_str(), 0600); }},
       "marker\" changed"}};
  for (const Case& slip : cases) {
    EXPECT_THAT(dittoIntercepted(slip.from, copy, slip.interception), FailsSaying(HasSubstr(slip.part)))
        << slip.interception.path;
    for (const fs::path& changed : {copy, away, file.parent_path()})
      fs::remove_all(changed);
    writeFile(file, "m");
  }
}

}  // namespace
