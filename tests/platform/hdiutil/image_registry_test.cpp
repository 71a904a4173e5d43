#include "platform/hdiutil/image_registry.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <future>
#include <iostream>

#include "platform/hdiutil/attach.hpp"
#include "platform/hdiutil/child_program.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "tests/platform/hdiutil/hfs_volume_builder.hpp"
#include "tests/platform/hdiutil/image_builder.hpp"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class ImageRegistryTest : public testing::Test {
 protected:
  ImageRegistryTest() {
    test::HfsVolumeBuilder builder(u"Volume");
    builder.addFile(test::kRootFolder, u"file", "content");
    test::writeFile(image, builder.build());
  }

  test::TemporaryDirectory directory;
  test::Images images;
  const fs::path image = directory / "image.dmg";
};

TEST_F(ImageRegistryTest, WhatIsNotAttachedCannotBeDetached) {
  const auto attached = images.attach(image);
  const fs::path registry = images.location();
  EXPECT_EQ(attached.device, "/dev/disk1s1");
  EXPECT_EQ(attached.mountPoint, registry / "disk1/Volume");
  for (const fs::path& name :
       {fs::path("/dev/disk9"), fs::path("/dev/disk"), fs::path("/dev/../disk1"), fs::path("/dev/disk1sfoo"),
        fs::path("/dev/disk1s1/"), fs::path(), fs::path("/tmp"), registry, registry / "disk1",
        registry / "disk1/Other", registry / "disk2/Volume", attached.mountPoint / "file"})
    EXPECT_THAT(images.detach(name), HasSubstr("no such image")) << name;
  EXPECT_EQ(test::readFile(attached.mountPoint / "file"), "content");
  EXPECT_EQ(images.detach(attached.mountPoint.native() + "/"), "");
  EXPECT_THAT(images.detach(attached.mountPoint), HasSubstr("no such image"));
  EXPECT_THAT(images.detach(attached.device), HasSubstr("no such image"));
}

TEST_F(ImageRegistryTest, ProcessesAttachAndDetachAtTheSameTime) {
  constexpr int kProcesses = 8;
  const auto attachRepeatedly = [&] {
    std::string failure;
    for (int round = 0; failure.empty() && round < 10; ++round) {
      const auto attached = images.attach(image);
      failure = attached.failure;
      if (failure.empty() && test::readFile(attached.mountPoint / "file") != "content")
        failure = "The content is another.";
      if (failure.empty())
        failure = images.detach(attached.device);
    }
    if (failure.empty())
      failure = images.attach(image).failure;
    std::cerr << failure;
    return failure.empty() ? 0 : 1;
  };
  std::vector<std::future<int>> results(kProcesses);
  for (auto& result : results)
    result = std::async(std::launch::async, [&] { return test::inChild(attachRepeatedly); });
  for (auto& result : results)
    EXPECT_EQ(result.get(), 0);
  // One image of each process is still attached, under its own number.
  for (int device = 1; device <= kProcesses; ++device)
    EXPECT_EQ(images.detach("/dev/disk" + std::to_string(device)), "") << device;
  EXPECT_THAT(images.leftovers(), IsEmpty());
}

TEST_F(ImageRegistryTest, WhatADeadProcessLeftIsRemovedAndNothingElse) {
  const auto living = images.attach(image);
  // The process dies when the image has its number, but has not been announced.
  const auto dieWhileAttaching = [&] {
    const auto url = [](const fs::path& path) { return platform::URL::fileURLWithPath(path.native()); };
    platform::hdiutil::ImageRegistry registry(url(images.location()));
    platform::hdiutil::attach(url(image), registry, [](const platform::PropertyList&) { ::_exit(5); });
    return 0;
  };
  EXPECT_EQ(test::inChild(dieWhileAttaching), 5);
  fs::create_directories(images.location() / "attaching-1/tree");
  EXPECT_THAT(images.leftovers(), testing::UnorderedElementsAre("disk1", "disk2", "attaching-1"));
  EXPECT_EQ(images.attach(image).device, "/dev/disk2s1");
  EXPECT_THAT(images.leftovers(), testing::UnorderedElementsAre("disk1", "disk2"));
  EXPECT_EQ(test::readFile(living.mountPoint / "file"), "content");
}

TEST_F(ImageRegistryTest, AHelperDoesNotOutliveItsParent) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  const platform::FileDescriptor reader(pipe[0]);
  platform::FileDescriptor writer(pipe[1]);
  const pid_t master = ::fork();
  if (master == 0) {
    const platform::hdiutil::ChildProgram program("/bin/sh", {"-c", "echo x; exec sleep 60"},
                                                  {STDIN_FILENO, writer.get(), STDERR_FILENO});
    ::pause();
    ::_exit(0);
  }
  writer = platform::FileDescriptor();
  std::array<char, 2> word{};
  EXPECT_EQ(reader.read(word.data(), word.size(), "the pipe"), word.size());
  ::kill(master, SIGTERM);
  ::waitpid(master, nullptr, 0);
  pollfd end{.fd = reader.get(), .events = POLLIN, .revents = 0};
  EXPECT_EQ(::poll(&end, 1, 10'000), 1) << "the program still has its end of the pipe";
}

TEST_F(ImageRegistryTest, OnlyAPrivateDirectoryOfThisUserIsUsed) {
  const fs::path registry = images.location();
  const test::TemporaryDirectory other;
  fs::create_directory_symlink(other.path(), registry);
  EXPECT_NE(images.attach(image).failure, "");
  fs::remove(registry);
  test::writeFile(registry, "a file");
  EXPECT_NE(images.attach(image).failure, "");
  fs::remove(registry);
  fs::create_directory(registry);
  for (const unsigned mode : {0770U, 0701U}) {
    fs::permissions(registry, fs::perms(mode));
    EXPECT_THAT(images.attach(image).failure, HasSubstr("does not belong to this user alone")) << mode;
  }
  fs::permissions(registry, fs::perms::owner_all);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(registry.c_str(), 65534, 65534), 0);
    EXPECT_THAT(images.attach(image).failure, HasSubstr("does not belong to this user alone"));
    ASSERT_EQ(::chown(registry.c_str(), 0, 0), 0);
  }
  EXPECT_TRUE(fs::is_empty(registry));
  EXPECT_TRUE(fs::is_empty(other.path()));
  EXPECT_EQ(images.attach(image).failure, "");
}

TEST_F(ImageRegistryTest, ANameThatIsTakenDoesNotKeepTheUserFromAttaching) {
  const auto location = [&] {
    const platform::URL temporary = platform::URL::fileURLWithPath(directory.path().native());
    return fs::path(platform::hdiutil::registryLocation(temporary).path());
  };
  const fs::path usual = location();
  EXPECT_EQ(usual, directory / ("quorin-images-" + std::to_string(::geteuid())));
  for (const char* ending : {"", "-1"}) {
    fs::create_directory(usual.native() + ending);
    fs::permissions(usual.native() + ending, fs::perms(0755));
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
      {"../../etc", "..:..:etc"},
      {"", "Untitled"},
      {".", "Untitled"},
      {"..", "Untitled"},
      {std::string("a\0b\n\x1B\x7F", 6), "a b   "},
      {std::string(254, 'x') + "\xC3\xA4", std::string(254, 'x')}};
  for (const auto& [volume, name] : cases)
    EXPECT_EQ(platform::hdiutil::mountName(volume), name) << volume;
}

/// Drops the capabilities with which root bypasses permissions.
void becomeOrdinary() {
  for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH})
    if (::geteuid() == 0 && ::prctl(PR_CAPBSET_DROP, capability) != 0)
      ::_exit(126);
}

TEST_F(ImageRegistryTest, TheProgramTakesTwoFormsOfArgumentsUnderEveryMask) {
  const auto run = [](const std::vector<std::string>& arguments, mode_t mask = 022) {
    return test::runProgram(test::buildPrefix() / "libexec/quorin/hdiutil", arguments, [mask] {
      ::umask(mask);
      becomeOrdinary();
    });
  };
  const std::vector<std::string> attach{"attach", "-readonly", "-nobrowse", "-plist", image};
  for (const mode_t mask : {0277U, 0777U}) {
    const auto attached = run(attach, mask);
    EXPECT_EQ(attached.exitStatus, 0) << attached.error;
    EXPECT_EQ(attached.error, "");
    const auto begin = std::min(attached.output.find("/tmp/quorin-images-"), attached.output.size());
    const std::string tree = attached.output.substr(begin, attached.output.find('<', begin) - begin);
    EXPECT_EQ(test::readFile(fs::path(tree) / "file"), "content");
    EXPECT_EQ(run({"detach", tree}, mask).exitStatus, 0);
    const auto again = run({"detach", tree});
    EXPECT_EQ(again.exitStatus, 1);
    EXPECT_EQ(again.output, "");
    EXPECT_EQ(again.error, '"' + tree + "\" could not be detached: no such image is attached.\n");
  }
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"attach", image}, {"info"}})
    EXPECT_THAT(run(arguments).error, HasSubstr("Usage"));
}

}  // namespace
