#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "tests/helpers/syscall_fault.hpp"

namespace fs = std::filesystem;
using test::Outcome;
using test::writeFile;

namespace {

/// An application whose executable is a script; the script's working files lie beside the bundle.
class OpenTest : public testing::Test {
 protected:
  void makeBundle(const std::string& executable, const std::string& script) const {
    writeInfo("<dict><key>CFBundleExecutable</key><string>" + executable + "</string></dict>");
    writeFile(bundle / "Contents/MacOS" / executable, script);
    fs::permissions(bundle / "Contents/MacOS" / executable, fs::perms::owner_all);
  }

  void writeInfo(const std::string& list) const {
    writeFile(bundle / "Contents/Info.plist", "<plist version=\"1.0\">" + list + "</plist>");
  }

  Outcome open(const std::function<void()>& prepare = {}) const {
    return test::runProgram(test::buildPrefix() / "libexec/quorin/open", {"-n", bundle.native()}, prepare);
  }

  test::TemporaryDirectory directory;
  fs::path bundle = directory / "Quorin Ostreval \xC3\xA9.app";
};

TEST_F(OpenTest, StartsTheExecutableOnItsOwnAndReturns) {
  const fs::path description = directory / "description";
  makeBundle("Quorin Ostreval", "#!/bin/sh\nfile='" + description.native() + R"('
sleep 1
self=/proc/$$
session=$(ps -o sid= -p $$)
echo $(ls $self/fd) . $(readlink $self/fd/[012] $self/cwd) $([ $session = $$ ] && echo leads) > "$file.part"
mv "$file.part" "$file"
)");
  const Outcome outcome = open([] { ::dup2(::open("/dev/zero", O_RDONLY), 33); });
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.output + outcome.error, "");
  EXPECT_FALSE(fs::exists(description));
  for (int look = 0; look < 500 && !fs::exists(description); ++look)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  const std::string described = test::readFile(description);
  EXPECT_THAT(described, testing::Not(testing::HasSubstr(" 33 ")));
  EXPECT_THAT(described, testing::EndsWith(" . /dev/null /dev/null /dev/null / leads\n"));
}

TEST_F(OpenTest, SaysWhyAnApplicationCannotBeOpened) {
  const auto expectRefused = [&](const char* reason) {
    const Outcome outcome = open();
    EXPECT_EQ(outcome.exitStatus, 1) << reason;
    EXPECT_THAT(outcome.error, testing::MatchesRegex("The application \"[^\"]*\" cannot be opened: .*\\.\n"));
    EXPECT_THAT(outcome.error, testing::HasSubstr(reason));
    EXPECT_EQ(outcome.output, "");
  };
  const fs::path executable = bundle / "Contents/MacOS/app";

  expectRefused("There is no such bundle.");
  fs::create_directories(bundle);
  expectRefused("Info.plist\" could not be opened: No such file or directory.");
  writeInfo("<dict><key>CFBundleExecutable</key><integer>3</integer></dict>");
  expectRefused("Its Info.plist names no executable.");
  makeBundle("app", "#!/bin/sh\n");
  fs::remove(executable);
  expectRefused("Its executable \"app\" is missing.");
  writeFile(executable, "#!/bin/sh\n");
  fs::permissions(executable, fs::perms::owner_read);
  expectRefused("could not be started: Permission denied.");
  // Also where nothing can be written to the first descriptor that the program opens.
  const test::SyscallFault fault{SYS_write, EIO, test::SyscallFault::Argument{0, 3}};
  EXPECT_EQ(open([=] { return test::inject(fault) ? void() : ::_exit(126); }).exitStatus, 1);
  fs::remove(executable);
  makeBundle("app", "no program of any kind\n");
  expectRefused("could not be started: Exec format error.");
  makeBundle("app", "#!/no/such/interpreter\n");
  expectRefused("The interpreter that its executable names is missing.");
}

TEST_F(OpenTest, OnlyRunsWhatLiesInTheBundle) {
  const std::string script = "#!/bin/sh\necho ran > '" + (directory / "mark").native() + "'\n";
  makeBundle("app", script);
  writeFile(directory / "outside", script);
  fs::permissions(directory / "outside", fs::perms::owner_all);
  for (const std::string& name :
       {std::string("../../../outside"), std::string("x/../app"), (directory / "outside").native(),
        std::string("."), std::string(".."), std::string(), std::string("/app"), std::string("app/")}) {
    writeInfo("<dict><key>CFBundleExecutable</key><string>" + name + "</string></dict>");
    const Outcome outcome = open();
    EXPECT_EQ(outcome.exitStatus, 1) << name;
    EXPECT_THAT(outcome.error, testing::HasSubstr("is not in its Contents/MacOS.")) << name;
  }
  EXPECT_FALSE(fs::exists(directory / "mark"));
}

}  // namespace
