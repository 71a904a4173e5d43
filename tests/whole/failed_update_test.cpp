#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/helpers/sample_application.hpp"
#include "tests/whole/whole_update.hpp"

namespace fs = std::filesystem;
using test::Outcome;
using test::writeFile;

namespace {

const std::string kInvalid = "The update application is invalid: ";
const std::string kNotReplaced = "The application could not be replaced: ";

/// Every way in which an installation can fail, one test for each place of it, with what the run leaves.
class FailedUpdateTest : public test::WholeUpdateTest {
 protected:
  void offerUpdate() { offer(sample("2.0")); }

  /// The sentence of a refusal, which names places that differ from run to run, begins like this.
  void expectRefusedBeginning(const Outcome& outcome, const std::string& beginning) const {
    const std::string line = outcome.error.substr(0, outcome.error.find('\n'));
    const std::string prefix = "QuorinOstrevalUpdater: ";
    EXPECT_THAT(line, testing::StartsWith(prefix + beginning));
    expectRefused(outcome, line.substr(std::min(prefix.size(), line.size())));
  }
};

TEST_F(FailedUpdateTest, UnusablePaths) {
  offerUpdate();
  const std::string invalid = "The updater received invalid arguments.";
  for (const fs::path& path : {applications / "Missing.app", applications, fs::path()}) {
    plan.targetAppPath = path.native();
    expectRefused(run(), invalid);
  }
  plan.targetAppPath = target.native();
  fs::remove(image);
  expectRefused(run(), invalid);
}

TEST_F(FailedUpdateTest, ADigestThatCannotBeMadeOrDiffers) {
  fs::create_directory(image);
  expectRefused(run(), "\"" + image.native() + "\" could not be read: Is a directory.");
  fs::remove(image);
  offerUpdate();
  const std::string mismatch = "The downloaded DMG no longer matches its verified SHA-256 checksum.";
  plan.expectedSHA256 += " ";
  expectRefused(run(), mismatch);
  announceImage();
  test::writeFile(image, test::readFile(image) + "x");
  expectRefused(run(), mismatch);
}

TEST_F(FailedUpdateTest, TheInstalledApplicationIsNotTheExpectedOne) {
  offerUpdate();
  plan.expectedBundleIdentifier += "x";
  expectRefused(run(), kInvalid + "Bundle identifier does not match.");
  plan.expectedBundleIdentifier.pop_back();
  plan.expectedTeamIdentifier = "ANOTHER123";
  expectRefusedBeginning(
      run(), kInvalid + "The code signature is not a Developer ID signature from the expected team: ");
  plan.expectedTeamIdentifier = test::SampleChain::kTeam;
  writeFile(target / "Contents/Resources/added", "");
  installed = test::inventory(applications);
  expectRefusedBeginning(run(), kInvalid);
  writeFile(target / "Contents/Info.plist", "damaged");
  installed = test::inventory(applications);
  expectRefused(run(), kInvalid + "Info.plist is missing or invalid.");
}

TEST_F(FailedUpdateTest, AnImageThatCannotBeAttached) {
  writeFile(image, "<html>The file is not here any more.</html>");
  announceImage();
  expectRefusedBeginning(run(), "The update DMG is invalid: ");
}

TEST_F(FailedUpdateTest, AnImageWithoutTheApplication) {
  const fs::path other = home / "Other.app";
  test::copyTree(sample("2.0"), other);
  test::writeInfoPlist(other / "Contents/Info.plist", "com.example.other", "Quorin Ostreval", "2.0", "200");
  offer(other);
  expectRefused(
      run(),
      kInvalid +
          "No application with bundle identifier com.example.quorin-ostreval was found in the disk image.");
}

TEST_F(FailedUpdateTest, TheApplicationInTheImageIsNotTheExpectedOne) {
  offerUpdate();
  // It is not even copied.
  wrapTool("ditto", "exit 3\n");
  plan.expectedVersion = "2.0.0";
  expectRefused(run(), kInvalid + "Version does not match the update feed.");
  plan.expectedVersion = "2.0";
  plan.expectedBuild = "201";
  expectRefused(run(), kInvalid + "Build number does not match the update feed.");
  plan.expectedBuild = "200";
  offer(sample("foreign"));
  expectRefusedBeginning(
      run(), kInvalid + "The code signature is not a Developer ID signature from the expected team: ");
}

TEST_F(FailedUpdateTest, ACopyThatFails) {
  offerUpdate();
  wrapTool("ditto", "mkdir -p \"$2/Contents\"; echo partial > \"$2/Contents/file\"; exit 3\n");
  expectRefused(run(), kNotReplaced + "ditto failed.");
}

TEST_F(FailedUpdateTest, ACopyThatWasTamperedWith) {
  offerUpdate();
  wrapTool("ditto", "");
  for (const char* change :
       {"echo x >> \"$2/Contents/MacOS/Quorin Ostreval\"", "touch \"$2/Contents/Resources/added\"",
        "rm \"$2/Contents/Info.plist\"", "ln -s /etc/passwd \"$2/Contents/Resources/link\""}) {
    writeFile(home / "prefix/libexec/quorin/ditto",
              "#!/bin/sh\n\"$0.real\" \"$@\" || exit\n" + std::string(change) + "\n");
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(::stat(target.c_str(), &before), 0);
    expectRefusedBeginning(run(), kInvalid);
    ASSERT_EQ(::stat(target.c_str(), &after), 0);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec) << "it was swapped and taken back";
  }
}

TEST_F(FailedUpdateTest, ARelativeTargetIsTheSameAfterTheWorkingDirectoryHasMovedWithTheApplication) {
  offer(sample("broken"));
  plan.targetAppPath = "..";
  expectRefusedBeginning(run([this] {
                           if (::chdir((target / "Contents").c_str()) != 0)
                             ::_exit(98);
                         }),
                         kNotReplaced);
  EXPECT_EQ(starts(1), std::vector<std::string>{"1.0"});
}

TEST_F(FailedUpdateTest, APlanWhoseTargetEndsInDotsLosesNothingEither) {
  offer(sample("broken"));
  writeFile(applications / "Neighbour.app/file", "kept");
  installed = test::inventory(applications);
  plan.targetAppPath = (target / "Contents/..").native();
  EXPECT_EQ(run().exitStatus, 1);
  EXPECT_EQ(test::difference(installed, test::inventory(applications)), "");
  expectNothingLeft();
}

}  // namespace
