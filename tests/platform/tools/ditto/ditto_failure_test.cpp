#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <thread>

#include "platform/foundation/error.hpp"
#include "tests/platform/tools/ditto/interception.hpp"
#include "tests/platform/tools/ditto/tree_description.hpp"
#include "tests/support/files.hpp"
#include "tests/support/private_mounts.hpp"
#include "tests/support/syscall_fault.hpp"

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
  expectRefusal(directory / "missing", copy, "missing\" could not be examined: No such file or directory.");
  expectRefusal(directory / "missing/App.app", copy,
                "missing\" could not be opened: No such file or directory.");
  expectRefusal(source, directory / "missing/copy.app",
                "missing\" could not be opened: No such file or directory.");
  expectRefusal(source, directory / "empty", "empty\"" + exists);
  expectRefusal(source, directory / "dangling", "dangling\"" + exists);
  expectRefusal(source, source, "App.app\"" + exists);
  expectRefusal(source / "Contents/Info.plist", directory / "dangling", "dangling\"" + exists);
  expectRefusal(source / "Contents/link", directory / "dangling", "dangling\"" + exists);
  expectRefusal(source, source / "copy.app", "lies inside");
  expectRefusal(source, source / "Contents/MacOS/../copy.app", "lies inside");
  expectRefusal(source, directory / "into the source/copy.app", "lies inside");
}

TEST_F(DittoFailureTest, TakesTwoPathsAndNothingElse) {
  const fs::path program = test::buildPrefix() / "libexec/quorin/ditto";
  const std::vector<std::vector<std::string>> cases = {
      {}, {source}, {source, copy, copy}, {"-V", source, copy}, {"", copy}, {source, ""}};
  for (const auto& arguments : cases)
    EXPECT_THAT(test::runProgram(program, arguments), FailsSaying(HasSubstr("Usage: "))) << arguments.size();
  EXPECT_FALSE(fs::exists(copy));
}

TEST_F(DittoFailureTest, RefusesSpecialFiles) {
  const fs::path special = source / "Contents/special";
  for (const mode_t type : {mode_t{S_IFIFO}, mode_t{S_IFSOCK}}) {
    ASSERT_EQ(::mknod(special.c_str(), type | S_IRUSR, 0), 0);
    const char* part = "special\" is neither a file, a directory nor a symbolic link and cannot be copied.";
    EXPECT_THAT(ditto(source, directory / std::to_string(type)), FailsSaying(HasSubstr(part)));
    EXPECT_THAT(ditto(special, copy), FailsSaying(HasSubstr(part)));
    fs::remove(special);
  }
}

TEST_F(DittoFailureTest, NamesWhatCannotBeReadOrMade) {
  if (::geteuid() != 0)
    GTEST_SKIP() << "needs an administrator, who can become somebody else";
  const fs::path open = directory / "open";
  fs::create_directory(open);
  fs::permissions(open, fs::perms(0777));
  for (int number = 0; number < 300; ++number)
    writeFile(source / "Contents/many" / std::to_string(number), "content");
  EXPECT_THAT(ditto(source, copy, test::becomeNobody),
              FailsSaying(HasSubstr("copy.app\" could not be created: Permission denied.")));
  for (const char* path : {"Contents/many/217", "Contents/MacOS", "Contents/MacOS/App", "."}) {
    const fs::perms before = fs::status(source / path).permissions();
    fs::permissions(source / path, fs::perms(0));
    const fs::path item = path == std::string(".") ? source : source / path;
    EXPECT_THAT(ditto(source, open / fs::path(path).filename().concat(" copy"), test::becomeNobody),
                FailsSaying(HasSubstr('"' + item.native() + "\" could not be opened: Permission denied.")));
    fs::permissions(source / path, before);
  }
}

TEST_F(DittoFailureTest, TellsOfAFullDisk) {
  const fs::path small = directory / "small";
  fs::create_directory(small);
  const auto mountSmall = [&] {
    return test::enterPrivateMounts() && ::mount("small", small.c_str(), "tmpfs", 0, "size=100k") == 0 ? 0
                                                                                                       : 1;
  };
  if (test::inChild(mountSmall) != 0)
    GTEST_SKIP() << "the system refuses a small file system";
  EXPECT_THAT(ditto(source, small / "copy.app", mountSmall),
              FailsSaying(HasSubstr("MacOS/App\" could not be written: No space left on device.")));
}

TEST_F(DittoFailureTest, TellsOfALimitOnFiles) {
  const auto limitSize = [] {
    const rlimit limit{100'000, 100'000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  };
  EXPECT_THAT(ditto(source, copy, limitSize),
              FailsSaying(HasSubstr("MacOS/App\" could not be written: File too large.")));
}

TEST_F(DittoFailureTest, TellsOfEveryFailingCall) {
  ASSERT_TRUE(test::setExtendedAttribute(source / "Contents", "user.name", "value"))
      << "no extended attributes";
  const std::tuple<long, int, const char*> cases[] = {
      {SYS_getdents64, EIO, "could not be read: Input/output error."},
      {SYS_mkdirat, ENOSPC, "could not be created: No space left on device."},
      {SYS_symlinkat, ENOSPC, "link\" could not be created: No space left on device."},
      {SYS_linkat, EMLINK, "could not be created: Too many links."},
      {SYS_flistxattr, EIO, "extended attributes of"},
      {SYS_fgetxattr, EIO, "user.name"},
      {SYS_fsetxattr, ENOSPC, "user.name"},
      {SYS_fchmod, EPERM, "permissions of"},
      {SYS_utimensat, EIO, "modification time of"}};
  for (const auto& [number, reason, part] : cases) {
    const fs::path faulty = directory / std::to_string(number);
    const test::SyscallFault fault{number, reason};
    EXPECT_THAT(ditto(source, faulty, [&] { return test::inject(fault) ? void() : ::_exit(126); }),
                FailsSaying(AllOf(HasSubstr(part), HasSubstr(platform::reasonOf(reason) + "."))))
        << "system call " << number;
  }
}

/// Does something to the source again and again, for as long as it lives.
class Disturbance {
 public:
  explicit Disturbance(std::function<void()> step)
      : thread_([this, step = std::move(step)] {
          while (!done_)
            step();
        }) {}
  ~Disturbance() {
    done_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> done_ = false;
  std::thread thread_;
};

TEST_F(DittoFailureTest, NoticesThatTheSourceChanges) {
  std::ofstream stream(source / "Contents/MacOS/App", std::ios::app);
  stream << std::string(16 << 20, 'y') << std::flush;
  // The system may give the disturbance no time during one copy, but not during every one of many.
  const auto noticed = [&](const std::string& sentence) {
    for (int attempt = 0; attempt < 30; ++attempt) {
      const fs::path place = directory / ("copy " + std::to_string(attempt));
      const test::Outcome outcome = ditto(source, place);
      fs::remove_all(place);
      if (outcome.exitStatus != 0)
        return outcome.error.find(sentence) != std::string::npos;
    }
    return false;
  };
  {
    const Disturbance growth([&] { stream << 'z' << std::flush; });
    EXPECT_TRUE(noticed("MacOS/App\" changed while it was being copied."));
  }
  long time = 0;
  const Disturbance change([&] { test::setModificationTime(source / "Contents/MacOS", ++time, 0); });
  EXPECT_TRUE(noticed("MacOS\" changed while it was being copied."));
}

TEST_F(DittoFailureTest, FindsItsDestinationInsideTheSourceByADetour) {
  const fs::path detour = source / "Contents/detour";
  const fs::path place = directory / "place";
  fs::create_directory(detour);
  fs::create_directory(place);
  const auto mountDetour = [&] {
    return test::enterPrivateMounts() &&
                   ::mount(place.c_str(), detour.c_str(), nullptr, MS_BIND, nullptr) == 0
               ? 0
               : 1;
  };
  if (test::inChild(mountDetour) != 0)
    GTEST_SKIP() << "the system refuses a directory at a second place";
  EXPECT_THAT(ditto(source, place / "copy.app", mountDetour), FailsSaying(HasSubstr("lies inside")));
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
    test::Interception interception;
    const char* part;
  };
  const Case cases[] = {
      {source, {SYS_openat, "second", [&] { replaceByDirectory(copy / "inner/second"); }}, "was moved"},
      {source, {SYS_newfstatat, "marker", [&] { moveAway(copy / "inner/second"); }}, "was moved"},
      {source, {SYS_newfstatat, "marker", [&] { moveAway(source / "inner/second"); }}, "was moved"},
      {source, {SYS_linkat, "same", [&] { replaceByFile(copy / "same"); }}, "was changed"},
      {file,
       {SYS_openat, "marker", [&] { moveAway(file), fs::create_symlink(directory / "secret", file); }},
       "marker\" could not be opened: Too many levels of symbolic links."},
      {file,
       {SYS_openat, "marker", [&] { moveAway(file), ::mkfifo(file.c_str(), 0600); }},
       "marker\" changed"}};
  for (const Case& slip : cases) {
    const auto outcome = test::runIntercepted(test::buildPrefix() / "libexec/quorin/ditto",
                                              {slip.from.native(), copy.native()}, slip.interception);
    EXPECT_THAT(outcome, FailsSaying(HasSubstr(slip.part))) << slip.interception.path;
    fs::remove_all(copy);
    fs::remove_all(away);
    fs::remove(file);
    writeFile(file, "m");
  }
}

}  // namespace
