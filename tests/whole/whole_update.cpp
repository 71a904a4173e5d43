#include "tests/whole/whole_update.hpp"

#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <thread>

#include "platform/files/data.hpp"
#include "platform/formats/json.hpp"
#include "tests/helpers/private_mounts.hpp"
#include "tests/helpers/sample_application.hpp"
#include "updater/diskimage/file_digest.hpp"

namespace fs = std::filesystem;

namespace test {
namespace {

constexpr const char* kIdentifier = "com.example.quorin-ostreval";

/// Gives this process a mount namespace of its own in which `directory` is "/tmp". False where the system
/// forbids it.
bool takeAsTemporaryDirectory(const fs::path& directory) {
  return enterPrivateMounts() && ::mount(directory.c_str(), "/tmp", nullptr, MS_BIND, nullptr) == 0;
}

/// What every test of whole updates starts from: signed applications, and a prefix that trusts their signers.
class Samples {
 public:
  /// Made once.
  static const Samples& shared() {
    static const Samples samples;
    return samples;
  }

  fs::path application(const std::string& which) const { return directory_ / which / "Quorin Ostreval.app"; }
  const fs::path& prefix() const { return prefix_; }

 private:
  Samples() {
    const SampleChain chain(directory_ / "chain");
    const SampleChain foreignChain(directory_ / "foreign chain", "FOREIGN123");
    installUpdater(prefix_, {chain.root(), foreignChain.root()});
    make("1.0", "1.0", startingScript("1.0"), chain);
    make("2.0", "2.0", startingScript("2.0"), chain);
    make("broken", "2.0", "#!/no/such/interpreter\n", chain);
    make("foreign", "2.0", startingScript("2.0"), foreignChain);
  }

  void make(const std::string& which, const std::string& version, const std::string& script,
            const SampleChain& chain) const {
    fs::create_directories(directory_ / which);
    chain.sign(makeSampleApplication(directory_ / which, {.name = "Quorin Ostreval",
                                                          .identifier = kIdentifier,
                                                          .shortVersion = version,
                                                          .version = version.substr(0, 1) + "00",
                                                          .script = script}));
  }

  TemporaryDirectory directory_{"/var/tmp"};
  fs::path prefix_ = directory_ / "prefix";
};

}  // namespace

WholeUpdateTest::WholeUpdateTest() {
  fs::create_directories(applications);
  fs::create_directory(temporary);
  fs::copy(Samples::shared().prefix(), home / "prefix", fs::copy_options::recursive);
  copyTree(sample("1.0"), target);
  installed = inventory(applications);
  plan = {.dmgPath = image.native(),
          .targetAppPath = target.native(),
          .expectedBundleIdentifier = kIdentifier,
          .expectedTeamIdentifier = SampleChain::kTeam,
          .expectedVersion = "2.0",
          .expectedBuild = "200",
          .expectedSHA256 = "",
          .statusPath = (home / "some/new/directory/status.json").native()};
}

void WholeUpdateTest::SetUp() {
  if (inChild([this] { return takeAsTemporaryDirectory(temporary) ? 0 : 1; }) != 0)
    GTEST_SKIP() << "there is no mount namespace to be had";
}

fs::path WholeUpdateTest::sample(const std::string& which) {
  return Samples::shared().application(which);
}

void WholeUpdateTest::offer(const fs::path& application) {
  const fs::path folder = home / "volume/Some folder";
  fs::create_directories(folder);
  copyTree(application, folder / application.filename());
  fs::remove(image);
  const Outcome made = runProgram(buildPrefix() / "bin/make_disk_image",
                                  {(home / "volume").native(), "Quorin Ostreval 2.0", image.native()});
  ASSERT_EQ(made.exitStatus, 0) << made.error;
  fs::remove_all(home / "volume");
  announceImage();
}

void WholeUpdateTest::announceImage() {
  plan.expectedSHA256 = QuorinOstrevalUpdater::sha256(platform::URL::fileURLWithPath(image.native()));
}

Outcome WholeUpdateTest::run(const std::function<void()>& prepare) {
  writeFile(home / "plan.json", platform::JSONEncoder().encode(plan).bytes());
  return runProgram(home / "prefix/bin/QuorinOstrevalUpdater",
                    {"--plan", (home / "plan.json").native(), "--parent-pid", parent, "--ready-file",
                     (home / "ready").native()},
                    [&] {
                      if (!takeAsTemporaryDirectory(temporary))
                        ::_exit(99);
                      if (prepare)
                        prepare();
                    });
}

void WholeUpdateTest::expectStands(const std::string& which, const fs::path& place) const {
  EXPECT_EQ(difference(inventory(sample(which)), inventory(place)), "");
}

void WholeUpdateTest::expectUpdated(const Outcome& outcome) const {
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.error;
  EXPECT_EQ(outcome.output + outcome.error, "");
  const std::string message = "Quorin Ostreval was updated successfully to version 2.0 (build 200).";
  EXPECT_EQ(status(), (QuorinOstrevalUpdater::InstallStatus{true, message, "2.0"}));
  expectStands("2.0");
  EXPECT_EQ(starts(1), std::vector<std::string>{"2.0"});
  EXPECT_FALSE(fs::exists(image) || fs::exists(home / "plan.json"));
  expectNothingLeft();
}

void WholeUpdateTest::expectRefused(const Outcome& outcome, const std::string& description) const {
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.error, "QuorinOstrevalUpdater: " + description + "\n");
  const std::string message = "Quorin Ostreval update failed: " + description;
  EXPECT_EQ(status(), (QuorinOstrevalUpdater::InstallStatus{false, message, plan.expectedVersion}));
  EXPECT_EQ(difference(installed, inventory(applications)), "");
  expectNothingLeft();
}

void WholeUpdateTest::expectNothingLeft() const {
  for (const auto& entry : fs::recursive_directory_iterator(temporary)) {
    EXPECT_TRUE(entry.is_directory() && entry.path().filename().native().starts_with("quorin-images-"))
        << entry.path();
  }
  for (const auto& entry : fs::directory_iterator(applications))
    EXPECT_FALSE(entry.path().filename().native().starts_with(".quorin-")) << entry.path();
}

QuorinOstrevalUpdater::InstallStatus WholeUpdateTest::status() const {
  return platform::JSONDecoder().decode<QuorinOstrevalUpdater::InstallStatus>(
      platform::Data(readFile(plan.statusPath)));
}

std::vector<std::string> WholeUpdateTest::starts(std::size_t expected) const {
  std::vector<std::string> versions;
  for (int look = 0; look < 500 && versions.size() < expected; ++look) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    versions.clear();
    std::istringstream lines(fs::exists(home / "starts") ? readFile(home / "starts") : "");
    for (std::string line; std::getline(lines, line);)
      versions.push_back(line);
  }
  return versions;
}

void WholeUpdateTest::wrapTool(const std::string& tool, const std::string& script) const {
  const fs::path path = home / "prefix/libexec/quorin" / tool;
  fs::rename(path, path.native() + ".real");
  writeFile(path, "#!/bin/sh\n" + script);
  fs::permissions(path, fs::perms::owner_all);
}

}  // namespace test
