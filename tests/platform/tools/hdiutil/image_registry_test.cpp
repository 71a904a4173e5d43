#include "platform/tools/hdiutil/image_registry.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

#include "platform/tools/hdiutil/child_program.hpp"
#include "tests/platform/tools/hdiutil/hfs_volume_builder.hpp"
#include "tests/platform/tools/hdiutil/image_builder.hpp"
#include "tests/support/files.hpp"
#include "tests/support/program.hpp"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

/// An image of a volume with that name, which holds one file.
void writeImage(const fs::path& image, const std::string& name) {
  test::HfsVolumeBuilder builder(std::u16string(name.begin(), name.end()));
  builder.addFile(test::kRootFolder, u"file", "content");
  test::writeFile(image, builder.build());
}

class ImageRegistryTest : public testing::Test {
 protected:
  /// An image whose attaching takes a while.
  void makeLargeImage() {
    test::HfsVolumeBuilder builder(u"Large");
    for (char16_t file = u'a'; file <= u'z'; ++file)
      builder.addFile(test::kRootFolder, std::u16string(1, file),
                      std::string(1 << 20U, static_cast<char>(file)));
    test::writeUdif(image(), {{"whole disk", builder.build()}}, test::blockEncodings()[1].second);
  }

  void makeSmallImage() const { writeImage(image(), "Small"); }

  fs::path image() const { return directory_ / "image.dmg"; }

  test::TemporaryDirectory directory_;
  test::Images images_;
};

TEST_F(ImageRegistryTest, WhatIsNotAttachedCannotBeDetached) {
  makeSmallImage();
  const auto attached = images_.attach(image());
  for (const std::string& name :
       {std::string("/dev/disk9"), std::string("/dev/disk"), std::string("/dev/sda"),
        std::string("/dev/../disk1"), std::string("/dev/disk1s"), std::string("/dev/disk1sfoo"),
        std::string("/dev/disk1s1s"), std::string("/dev/disk1s1/"), std::string(), std::string("/"),
        std::string("/tmp"), images_.location().native(), (images_.location() / "disk1").native(),
        (images_.location() / "disk1/Other").native(), (images_.location() / "disk2/Small").native(),
        (attached.mountPoint / "file").native()})
    EXPECT_THAT(images_.detach(name), HasSubstr("no such image")) << name;
  EXPECT_EQ(test::readFile(attached.mountPoint / "file"), "content");
  EXPECT_EQ(images_.detach(attached.mountPoint.native() + "/"), "");
  EXPECT_THAT(images_.detach(attached.mountPoint.native()), HasSubstr("no such image"));
  EXPECT_THAT(images_.detach(attached.device), HasSubstr("no such image"));
}

TEST_F(ImageRegistryTest, ProcessesAttachAndDetachAtTheSameTime) {
  makeSmallImage();
  constexpr int kProcesses = 8;
  std::vector<pid_t> children;
  for (int index = 0; index < kProcesses; ++index) {
    const pid_t child = ::fork();
    if (child == 0) {
      bool isGood = true;
      for (int round = 0; round < 10; ++round) {
        const auto attached = images_.attach(image());
        isGood = isGood && attached.failure.empty() &&
                 test::readFile(attached.mountPoint / "file") == "content" &&
                 images_.detach(attached.device).empty();
      }
      ::_exit(isGood && images_.attach(image()).failure.empty() ? 0 : 1);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  // One image of each process is still there, under a number of its own.
  for (int device = 1; device <= kProcesses; ++device)
    EXPECT_EQ(images_.detach("/dev/disk" + std::to_string(device)), "") << device;
  EXPECT_THAT(images_.leftovers(), IsEmpty());
}

TEST_F(ImageRegistryTest, AKilledAttachLeavesNothingThatStays) {
  makeLargeImage();
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(images_.detach(images_.attach(image()).device), "");
  const auto whole = std::chrono::steady_clock::now() - start;
  int interrupted = 0;
  for (int part = 0; part < 8; ++part) {
    const pid_t child = ::fork();
    if (child == 0)
      ::_exit(images_.attach(image()).failure.empty() ? 0 : 1);
    std::this_thread::sleep_for(whole * part / 8);
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    interrupted += WIFSIGNALED(status) && !images_.leftovers().empty() ? 1 : 0;
    // Whatever state it was in, the next call works, and nothing but complete images is there afterwards.
    const auto next = images_.attach(image());
    EXPECT_EQ(next.failure, "");
    for (const std::string& name : images_.leftovers()) {
      EXPECT_THAT(name, StartsWith("disk"));
      EXPECT_EQ(images_.detach("/dev/" + name), "");
    }
    EXPECT_THAT(images_.leftovers(), IsEmpty());
  }
  EXPECT_GT(interrupted, 0);
}

TEST_F(ImageRegistryTest, WhatAKilledDetachLeftIsRemovedByTheNextCall) {
  makeSmallImage();
  const auto attached = images_.attach(image());
  // Killed between the renaming and the removal.
  fs::rename(images_.location() / "disk1", images_.location() / "detaching-X");
  EXPECT_THAT(images_.detach(attached.device), HasSubstr("no such image"));
  EXPECT_THAT(images_.leftovers(), IsEmpty());
}

TEST_F(ImageRegistryTest, AProgramDoesNotOutliveItsMaster) {
  test::writeFile(image(), "");
  const platform::FileDescriptor input =
      platform::FileDescriptor::open(platform::URL::fileURLWithPath(image().native()), O_RDONLY);
  /// The processes whose standard input the file is.
  const auto programs = [&] {
    std::set<std::string> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      std::error_code failure;
      if (fs::read_symlink(entry.path() / "fd/0", failure) == image())
        found.insert(entry.path().filename().native());
    }
    return found;
  };
  const pid_t child = ::fork();
  if (child == 0) {
    const platform::hdiutil::ChildProgram program("/bin/sleep", {"60"},
                                                  {input.get(), STDOUT_FILENO, STDERR_FILENO});
    ::pause();
    ::_exit(0);
  }
  const auto waitUntil = [&](bool isAtWork) {
    for (int wait = 0; wait < 300 && programs().empty() == isAtWork; ++wait)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return programs();
  };
  EXPECT_EQ(waitUntil(true).size(), 1U);
  ::kill(child, SIGTERM);
  ::waitpid(child, nullptr, 0);
  EXPECT_THAT(waitUntil(false), IsEmpty());
}

TEST_F(ImageRegistryTest, OnlyAPrivateDirectoryOfThisUserIsUsed) {
  makeSmallImage();
  const test::TemporaryDirectory other;
  fs::create_directory_symlink(other.path(), images_.location());
  EXPECT_NE(images_.attach(image()).failure, "");
  fs::remove(images_.location());
  test::writeFile(images_.location(), "a file");
  EXPECT_NE(images_.attach(image()).failure, "");
  fs::remove(images_.location());
  fs::create_directory(images_.location());
  for (const unsigned mode : {0755U, 0770U, 0701U}) {
    fs::permissions(images_.location(), fs::perms(mode));
    EXPECT_THAT(images_.attach(image()).failure, HasSubstr("does not belong to this user alone")) << mode;
  }
  fs::permissions(images_.location(), fs::perms::owner_all);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(images_.location().c_str(), 65534, 65534), 0);
    EXPECT_THAT(images_.attach(image()).failure, HasSubstr("does not belong to this user alone"));
    ASSERT_EQ(::chown(images_.location().c_str(), 0, 0), 0);
  }
  EXPECT_TRUE(fs::is_empty(images_.location()));
  EXPECT_TRUE(fs::is_empty(other.path()));
  EXPECT_EQ(images_.attach(image()).failure, "");
}

TEST_F(ImageRegistryTest, ANameThatIsTakenDoesNotKeepTheUserFromAttaching) {
  const auto location = [&] {
    return fs::path(
        platform::hdiutil::registryLocation(platform::URL::fileURLWithPath(directory_.path().native()))
            .path());
  };
  const fs::path usual = location();
  EXPECT_EQ(usual, directory_ / ("quorin-images-" + std::to_string(::geteuid())));
  for (const fs::path& taken : {usual, fs::path(usual.native() + "-1"), fs::path(usual.native() + "-2")}) {
    fs::create_directory(taken);
    fs::permissions(taken, fs::perms(0755));
  }
  const fs::path other = location();
  EXPECT_THAT(other.native(), StartsWith(usual.native() + "-"));
  EXPECT_FALSE(fs::exists(other));
  const platform::hdiutil::ImageRegistry registry(platform::URL::fileURLWithPath(other.native()));
  EXPECT_EQ(location(), other);
}

TEST(MountNameTest, IsTheVolumesNameAsAPathComponent) {
  const std::pair<std::string, std::string> cases[] = {
      {"Quorin Ostreval", "Quorin Ostreval"},
      {"a/b", "a:b"},
      {"", "Untitled"},
      {".", "Untitled"},
      {"..", "Untitled"},
      {"../../etc", "..:..:etc"},
      {std::string("a\0b", 3), "a b"},
      {"a\nb\x1B\x7F", "a b  "},
      {std::string(300, 'x'), std::string(255, 'x')},
      {std::string(254, 'x') + "\xC3\xA4", std::string(254, 'x')}};
  for (const auto& [volume, name] : cases)
    EXPECT_EQ(platform::hdiutil::mountName(volume), name) << volume;
}

/// The program itself, from its arguments to its exit status.
class HdiutilProgramTest : public testing::Test {
 protected:
  HdiutilProgramTest() { writeImage(image, name); }

  static test::Outcome run(const std::vector<std::string>& arguments,
                           const std::function<void()>& prepare = {}) {
    return test::runProgram(test::buildPrefix() / "libexec/quorin/hdiutil", arguments, prepare);
  }

  test::Outcome attach(const std::function<void()>& prepare = {}) const {
    return run({"attach", "-readonly", "-nobrowse", "-plist", image.native()}, prepare);
  }

  /// The mount point that a successful attach has told.
  static std::string mountPoint(const test::Outcome& attached) {
    EXPECT_EQ(attached.exitStatus, 0) << attached.error;
    EXPECT_EQ(attached.error, "");
    const auto begin = std::min(attached.output.find("/tmp/quorin-images-"), attached.output.size());
    return attached.output.substr(begin, attached.output.find('<', begin) - begin);
  }

  test::TemporaryDirectory directory;
  fs::path image = directory / "image";
  std::string name = "Volume " + std::to_string(::getpid());
};

/// Takes away what lets root pass permissions.
void becomeOrdinary() {
  for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH})
    if (::geteuid() == 0 && ::prctl(PR_CAPBSET_DROP, capability) != 0)
      ::_exit(126);
}

TEST_F(HdiutilProgramTest, WhatNobodyWasToldOfIsNotAttached) {
  const auto outcome = attach([] { ::dup2(::open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); });
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_THAT(outcome.error, HasSubstr("could not be attached"));
  for (const auto& left : fs::directory_iterator(platform::hdiutil::registryLocation().path()))
    EXPECT_FALSE(fs::exists(left.path() / name)) << left.path();
}

TEST_F(HdiutilProgramTest, WorksUnderEveryMask) {
  for (const mode_t mask : {0277U, 0777U}) {
    const std::string tree = mountPoint(attach([&] {
      ::umask(mask);
      becomeOrdinary();
    }));
    EXPECT_EQ(test::readFile(fs::path(tree) / "file"), "content");
    EXPECT_EQ(run({"detach", tree}, becomeOrdinary).exitStatus, 0);
  }
}

TEST_F(HdiutilProgramTest, TakesTwoFormsOfArguments) {
  const std::string tree = mountPoint(attach());
  EXPECT_EQ(test::readFile(fs::path(tree) / "file"), "content");
  EXPECT_EQ(run({"detach", tree}).exitStatus, 0);
  const auto again = run({"detach", tree});
  EXPECT_EQ(again.exitStatus, 1);
  EXPECT_EQ(again.output, "");
  EXPECT_EQ(again.error, '"' + tree + "\" could not be detached: no such image is attached.\n");

  test::writeFile(image, "nonsense");
  const auto refused = attach();
  EXPECT_EQ(refused.exitStatus, 1);
  EXPECT_EQ(refused.output, "");
  EXPECT_THAT(refused.error, StartsWith('"' + image.native() + "\" could not be attached: "));
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"attach", image}, {"detach"}, {"detach", "a", "b"}, {"info"}}) {
    const auto outcome = run(arguments);
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_THAT(outcome.error, HasSubstr("Usage"));
  }
}

}  // namespace
