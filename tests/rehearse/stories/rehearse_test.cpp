#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "rehearse/record/rehearsal_json.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/private_mounts.hpp"
#include "tests/helpers/program.hpp"
#include "tests/helpers/sample_application.hpp"
#include "tests/helpers/syscall_fault.hpp"
#include "tools/sign_bundle/mach_o_maker.hpp"

namespace fs = std::filesystem;

namespace {

using rehearse::Rehearsal;
using rehearse::Step;
using rehearse::StepVerdict;
using test::Outcome;
using testing::HasSubstr;

/// Nobody else's: other tests limit the number of processes of theirs.
constexpr unsigned kOrdinaryUser = 54'322;

/// An installation with the command, signed applications, and images of them.
class RehearseTest : public testing::Test {
 protected:
  RehearseTest() {
    test::installUpdater(prefix, {chain.root()});
    for (const char* program : {"bin/quorin-rehearse", "libexec/quorin/judge_start"})
      fs::copy_file(test::buildPrefix() / program, prefix / program);
    fs::create_directory(scratch);
    fs::permissions(scratch, fs::perms::all);
    installed = makeSigned("1.0");
    image = makeImage(makeSigned("2.0").parent_path(), "2.0.dmg");
  }

  fs::path makeSigned(const std::string& version) {
    fs::path application =
        test::makePlainApplication(directory / version, {.name = "Quorin Ostreval",
                                                         .identifier = "com.example.quorin-ostreval",
                                                         .shortVersion = version,
                                                         .version = version,
                                                         .executable = test::SampleExecutable::machO});
    chain.sign(application);
    return application;
  }

  /// Without CFBundleShortVersionString.
  fs::path makeWithoutVersion(const std::string& name) {
    fs::path application = makeSigned(name);
    std::string text = test::readFile(application / "Contents/Info.plist");
    const std::string key = "CFBundleShortVersionString";
    text.replace(text.find(key), key.size(), "Other");
    test::writeFile(application / "Contents/Info.plist", text);
    chain.sign(application);
    return application;
  }

  fs::path makeImage(const fs::path& folder, const std::string& name) {
    const Outcome made = test::runProgram(test::buildPrefix() / "bin/make_disk_image",
                                          {folder.native(), "Quorin Ostreval", (directory / name).native()});
    EXPECT_EQ(made.exitStatus, 0) << made.error;
    return directory / name;
  }

  std::vector<std::string> arguments(const fs::path& offered, const fs::path& old) const {
    return {"--image",   offered.native(), "--installed", old.native(),
            "--scratch", scratch.native(), "--json"};
  }

  Outcome run(const std::vector<std::string>& words, const std::function<void()>& prepare = {}) const {
    Outcome outcome = test::runProgram(prefix / "bin/quorin-rehearse", words, prepare);
    EXPECT_TRUE(fs::is_empty(scratch));
    return outcome;
  }

  static const Step& stepOf(const Rehearsal& rehearsal, const std::string& name) {
    const auto& steps = rehearsal.pairings.at(0).steps;
    const auto found = std::ranges::find(steps, name, &Step::name);
    if (found == steps.end())
      throw std::runtime_error("there is no step " + name);
    return *found;
  }

  test::TemporaryDirectory directory{"/var/tmp"};
  test::SampleChain chain{directory / "chain"};
  /// Below "/tmp", so that a rehearsal finds it at another path.
  test::TemporaryDirectory installation;
  fs::path prefix = installation / "prefix";
  fs::path scratch = directory / "scratch";
  fs::path installed;
  fs::path image;
};

bool becomeOrdinary() {
  // A process that has changed its user may not write the maps of its namespace.
  return ::setgroups(0, nullptr) == 0 && ::setgid(kOrdinaryUser) == 0 && ::setuid(kOrdinaryUser) == 0 &&
         ::prctl(PR_SET_DUMPABLE, 1, 0, 0, 0) == 0;
}

/// Every step of a good release goes as it must; those that need tracing may be missing.
void expectGood(const Outcome& outcome) {
  ASSERT_EQ(outcome.exitStatus, 0) << outcome.output << outcome.error;
  const Rehearsal rehearsal = rehearse::rehearsalFromJSON(outcome.output);
  EXPECT_EQ(rehearsal.pairings.at(0).verdict, "WOULD INSTALL: 2.0 (2.0) over 1.0 (1.0)");
  EXPECT_EQ(rehearsal.pairings.at(0).aftermath.atTarget, "version 2.0 (2.0), complete");
  EXPECT_EQ(rehearsal.pairings.at(0).aftermath.leftOver, std::vector<std::string>());
  for (const Step& step : rehearsal.pairings.at(0).steps)
    EXPECT_TRUE(step.verdict == StepVerdict::passed || step.message.find("trace") != std::string::npos)
        << step.name << ": " << step.message;
}

/// However short they were, and however busy the machine.
void expectAllPhases(const std::vector<rehearse::Phase>& phases) {
  std::vector<std::string> names;
  rehearse::Milliseconds end{};
  for (const rehearse::Phase& phase : phases) {
    EXPECT_EQ(phase.begin, end) << phase.name;
    EXPECT_GE(phase.end, phase.begin) << phase.name;
    names.push_back(phase.name);
    end = phase.end;
  }
  EXPECT_THAT(names, testing::ElementsAre("wait", "digest", "verify the installed application", "attach",
                                          "verify the image", "copy", "verify the copy", "sync", "swap",
                                          "verify after the swap", "detach", "write the status", "start",
                                          "clean up"));
}

void becomeOrdinaryWherePossible() {
  if (::geteuid() == 0 &&
      test::inChild([] { return becomeOrdinary() && test::enterPrivateMounts() ? 0 : 1; }) == 0)
    static_cast<void>(becomeOrdinary());
}

/// As an ordinary user where the system lets one have private mounts; the next test is the superuser's.
TEST_F(RehearseTest, AGoodReleaseWouldInstallAndWhatMustBeRefusedIs) {
  const test::Inventory before = test::inventory(installed);
  const std::string imageBefore = test::readFile(image);
  std::vector<std::string> words = arguments(image, installed);
  words.insert(words.end(), {"--report", (directory / "reports/new/report").native()});
  fs::create_directory(directory / "reports");
  fs::permissions(directory / "reports", fs::perms::all);
  const Outcome outcome = run(words, becomeOrdinaryWherePossible);
  expectGood(outcome);
  const Rehearsal rehearsal = rehearse::rehearsalFromJSON(outcome.output);
  expectAllPhases(rehearsal.pairings.at(0).phases);
  for (const auto& [name, place] :
       {std::pair("start refused", "start"),
        std::pair("refuse a flipped byte, old digest", "digest of the image"),
        std::pair("refuse a flipped byte, new digest", "attaching"),
        std::pair("refuse another team in the plan", "installed application"),
        std::pair("refuse an application signed anew", "application in the image"),
        std::pair("refuse a damaged file in the application", "application in the image"),
        std::pair("refuse a full disk", "copy"), std::pair("refuse a full temporary directory", "attaching"),
        std::pair("refuse a place that cannot be written", "copy")})
    EXPECT_EQ(stepOf(rehearsal, name).refusedBy, place) << name;
  EXPECT_EQ(test::readFile(directory / "reports/new/report/report.json"), outcome.output);
  EXPECT_EQ(test::readFile(directory / "reports/new/report/plan.json"), rehearsal.plan);
  EXPECT_TRUE(fs::exists(directory / "reports/new/report/report.html"));
  EXPECT_EQ(test::difference(before, test::inventory(installed)), "");
  EXPECT_TRUE(test::readFile(image) == imageBefore);
}

/// The judge of starts is replaced by one that accepts every start, and so an update is accepted that must
/// not be.
TEST_F(RehearseTest, WhatIsAcceptedAndMustNotBeIsAFault) {
  const fs::path judge = prefix / "libexec/quorin/judge_start";
  fs::copy_file(judge, directory / "judge");
  test::writeFile(judge, "#!/bin/sh\nreal=\"${0%/*}/real\"\n[ -f \"$real\" ] || cp '" +
                             (directory / "judge").native() +
                             "' \"$real\"\nsed -i 's/[0-9a-f]\\{64\\}//' \"${0%/libexec/*}\""
                             "/share/quorin/start/instructions.plist\nexec \"$real\" \"$@\"\n");
  fs::permissions(judge, fs::perms(0755));
  const Outcome outcome = run(arguments(image, installed));
  EXPECT_EQ(outcome.exitStatus, 1) << outcome.error;
  const Rehearsal rehearsal = rehearse::rehearsalFromJSON(outcome.output);
  EXPECT_TRUE(rehearsal.pairings.at(0).wouldInstall);
  for (const Step& step : rehearsal.pairings.at(0).steps)
    EXPECT_EQ(step.verdict == StepVerdict::failed, step.name == "start refused") << step.name << step.message;
}

TEST_F(RehearseTest, FaultsOfAReleaseAreVerdicts) {
  test::writeFile(directory / "empty/read me.txt", "nothing else");
  const fs::path withoutApplication = makeImage(directory / "empty", "empty.dmg");
  const fs::path newer = makeSigned("3.0");
  const fs::path damaged = makeSigned("0.9");
  test::writeFile(damaged / "Contents/Resources/text.txt", "changed");
  const fs::path changed = makeSigned("4.0");
  test::writeFile(changed / "Contents/Resources/text.txt", "changed");
  const fs::path damagedImage = makeImage(changed.parent_path(), "4.0.dmg");
  test::writeFile(
      directory / "other plan.json",
      R"({"dmgPath":"/x","targetAppPath":"/x.app","expectedBundleIdentifier":)"
      R"("com.example.quorin-ostreval","expectedTeamIdentifier":"QS7TEAM123","expectedVersion":"2.1",)"
      R"("expectedBuild":"2.0","expectedSHA256":"00","statusPath":"/y"})");
  std::vector<std::string> newerWithPlan = arguments(image, newer);
  newerWithPlan.insert(newerWithPlan.end(), {"--plan", (directory / "other plan.json").native()});
  const std::string text = "\"Quorin Ostreval.app/Contents/Resources/text.txt\" was changed after signing.";
  const std::string noVersion = "has no CFBundleShortVersionString";
  const fs::path unsignedApplication = makeSigned("5.0");
  fs::remove_all(unsignedApplication / "Contents/_CodeSignature");
  test::writeFile(unsignedApplication / "Contents/MacOS/Quorin Ostreval", sign_bundle::makeMachO({}));
  const fs::path unsignedImage = makeImage(unsignedApplication.parent_path(), "5.0.dmg");
  const fs::path lacking = makeSigned("6.0");
  test::writeFile(lacking / "Contents/MacOS/Quorin Ostreval",
                  sign_bundle::makeMachO({.libraries = {"@rpath/libkit.dylib"}}));
  chain.sign(lacking);
  const fs::path lackingImage = makeImage(lacking.parent_path(), "6.0.dmg");
  const fs::path nameless = makeWithoutVersion("7.0");
  const fs::path namelessImage = makeImage(nameless.parent_path(), "7.0.dmg");
  const fs::path later = makeSigned("8.0");
  test::writeFile(later / "Contents/MacOS/Quorin Ostreval",
                  sign_bundle::makeMachO({.leastSystem = 0x000F0000}));
  chain.sign(later);
  const fs::path laterImage = makeImage(later.parent_path(), "8.0.dmg");
  struct Case {
    std::vector<std::string> words;
    std::string verdict;
    std::string refusedBy;
    std::vector<std::string> faults;
    std::string sentence;  ///< part of the first fault's
  };
  const std::vector<Case> cases{
      {arguments(withoutApplication, installed),
       "The image contains no application.",
       "application in the image",
       {"no-application"},
       "no application"},
      {arguments(image, damaged),
       "The installed application has no valid Developer ID signature.",
       "installed application",
       {"installed-signature-invalid"},
       text},
      {arguments(damagedImage, installed),
       "The application in the image has no valid Developer ID signature.",
       "application in the image",
       {"changed-after-signing"},
       text},
      {arguments(unsignedImage, installed),
       "The application in the image has no valid Developer ID signature.",
       "application in the image",
       {"not-signed"},
       "is not signed at all"},
      {arguments(lackingImage, installed),
       "The new version cannot start.",
       "start",
       {"cannot-start"},
       "\"@rpath/libkit.dylib\": no LC_RPATH leads to it"},
      {arguments(laterImage, installed),
       "The new version cannot start.",
       "start",
       {"cannot-start"},
       "is built for macOS 15.0 and later"},
      {arguments(namelessImage, installed),
       "The application in the image " + noVersion + ".",
       "application in the image",
       {"not-identified"},
       noVersion},
      {arguments(image, nameless),
       "The installed application " + noVersion + ".",
       "installed application",
       {"installed-not-identified"},
       noVersion},
      {newerWithPlan,
       "The plan and the image differ: digest, version.",
       "digest of the image",
       {"plan-differs", "downgrade"},
       "expects the digest \"00\", the image has "},
  };
  for (const Case& each : cases) {
    const Outcome outcome = run(each.words);
    EXPECT_EQ(outcome.exitStatus, 1) << outcome.output << outcome.error;
    const Rehearsal rehearsal = rehearse::rehearsalFromJSON(outcome.output);
    const rehearse::Pairing& pairing = rehearsal.pairings.at(0);
    EXPECT_EQ(pairing.verdict, "WOULD BE REFUSED: " + each.verdict);
    EXPECT_EQ(stepOf(rehearsal, "update").refusedBy, each.refusedBy);
    // One cause is one fault, and makes no warning besides.
    std::vector<std::string> faults;
    for (const rehearse::Finding& finding : pairing.findings) {
      EXPECT_NE(finding.key, "minimum-system-raised");
      if (finding.severity == rehearse::Severity::fault)
        faults.push_back(finding.key);
    }
    EXPECT_EQ(faults, each.faults);
    EXPECT_THAT(pairing.findings.at(0).sentence, HasSubstr(each.sentence));
    EXPECT_THAT(outcome.output, testing::Not(HasSubstr(scratch.native())));
  }
}

/// Here the program in place of `open` fails without a judgement.
TEST_F(RehearseTest, AFailureThatNothingInTheReleaseExplainsIsAFinding) {
  test::writeFile(prefix / "libexec/quorin/judge_start", "#!/bin/sh\necho broken >&2\nexit 1\n");
  std::vector<std::string> words = arguments(image, installed);
  words.insert(words.end(), {"--report", (directory / "report").native()});
  const Outcome outcome = run(words);
  EXPECT_EQ(outcome.exitStatus, 1) << outcome.error;
  const Rehearsal rehearsal = rehearse::rehearsalFromJSON(outcome.output);
  const rehearse::Finding& finding = rehearsal.pairings.at(0).findings.at(0);
  EXPECT_EQ(finding.key, "update-failed");
  EXPECT_THAT(finding.sentence, HasSubstr("broken"));
  EXPECT_THAT(rehearsal.notTried, testing::ElementsAre(testing::StartsWith("everything but the update")));
  EXPECT_TRUE(fs::exists(directory / "report/report.html"));
  // There is no plan to publish.
  EXPECT_FALSE(fs::exists(directory / "report/plan.json"));
}

/// An ordinary user has no loop devices.
TEST_F(RehearseTest, AProofThatTriesNothingIsNoSuccess) {
  std::vector<std::string> words = arguments(image, installed);
  words.insert(words.end(), {"--prove", "power-cuts", "--every", "100000"});
  const Outcome outcome = run(words, [] {
    becomeOrdinaryWherePossible();
    if (::geteuid() == 0)
      ::_exit(99);
  });
  if (outcome.exitStatus == 99)
    GTEST_SKIP() << "the system allows an ordinary user no private mounts";
  EXPECT_EQ(outcome.exitStatus, 2);
  EXPECT_THAT(outcome.error, HasSubstr("could not be proved: "));
  EXPECT_FALSE(rehearse::rehearsalFromJSON(outcome.output).notTried.empty());
}

TEST_F(RehearseTest, WhatCannotBeRehearsedIsASentence) {
  test::writeFile(directory / "no image.dmg", "text");
  test::writeFile(directory / "full/file", "");
  std::vector<std::string> intoFull = arguments(image, installed);
  intoFull.insert(intoFull.end(), {"--report", (directory / "full").native()});
  std::vector<std::string> inTemporary = arguments(image, installed);
  inTemporary.at(5) = "/tmp";
  const auto withRoots = [this](const fs::path& file) {
    std::vector<std::string> words = arguments(image, installed);
    words.insert(words.end(), {"--anchors", file.native()});
    return words;
  };
  const auto littleSpace = [this] {
    if (!test::enterPrivateMounts() ||
        ::mount("tmpfs", scratch.c_str(), "tmpfs", 0, "size=1m,mode=0777") != 0)
      ::_exit(99);
  };
  const auto noNamespaces = [] {
    if (!test::inject({.number = SYS_unshare, .errorNumber = EPERM}))
      ::_exit(99);
  };
  const auto noNotices = [] {
    if (!test::inject({.number = SYS_inotify_init1, .errorNumber = EMFILE}))
      ::_exit(99);
  };
  const auto noMounts = [] {
    if (!test::inject({.number = SYS_mount,
                       .errorNumber = ENOSPC,
                       .argument = test::SyscallFault::Argument{3, MS_BIND | MS_REC}}))
      ::_exit(99);
  };
  const auto noOutput = [] { ::dup2(::open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); };
  fs::create_symlink(directory / "nothing", directory / "link");
  std::vector<std::string> intoLink = intoFull;
  intoLink.back() = (directory / "link/report").native();
  struct Case {
    std::vector<std::string> words;
    std::string sentence;
    std::function<void()> prepare = {};
  };
  const std::vector<Case> cases{
      {{}, "--image is missing."},
      {{"--image", "x", "--image", "y"}, "--image is given twice."},
      {{"--image"}, "--image needs a value."},
      {{"--fast"}, "There is no option \"--fast\"."},
      {{"--prove", "kills,all"}, "not \"all\"."},
      {{"--disk", "xfs,ntfs"},
       "--disk needs ext4, xfs or btrfs, or several with commas between them, not \"ntfs\"."},
      {{"--image", "x", "--installed", "y", "--prove", "kills", "--disk", "xfs"},
       "--disk needs --prove with"},
      {{"--shard", "3/2"}, "--shard needs a number from 1 to 2, not \"3\"."},
      {{"--merge", "x", "--image", "y", "--report", "z"}, "--image does not go with --merge."},
      {arguments(directory / "missing.dmg", installed), "missing.dmg\" cannot be read: No such file"},
      {arguments(directory / "no image.dmg", installed),
       "no image.dmg\" cannot be read: it could not be attached: it is not a disk image."},
      {arguments(image, directory / "full"), "full\" cannot be read: "},
      {withRoots(directory / "no image.dmg"), "no image.dmg\" cannot be read: it does not contain cert"},
      {withRoots(directory / "chain/leaf.pem"), "is not a self-signed root"},
      {intoFull, "full\" is not empty."},
      {intoLink, "/link\" is a symbolic link to \""},
      {{"--help"}, "could not be written to standard output: No space left", noOutput},
      {inTemporary, "is below /tmp, which the updater's tools use"},
      {arguments(image, installed), " MB free; --scratch names another place.", littleSpace},
      {arguments(image, installed), "for private mounts", noNamespaces},
      {arguments(image, installed), "has reached the limit fs.inotify.max_user_instances.", noNotices},
      {arguments(image, installed), "the system's limit of mounts (/proc/sys/fs/mount-max) is reached.",
       noMounts},
  };
  for (const Case& each : cases) {
    const Outcome outcome = run(each.words, each.prepare);
    EXPECT_EQ(outcome.exitStatus, 2) << each.sentence;
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.error.substr(0, outcome.error.find('\n')), HasSubstr(each.sentence));
  }
}

TEST_F(RehearseTest, ASignalEndsEverythingAndLeavesNothing) {
  const auto isUnderWay = [this] {
    return std::ranges::any_of(fs::directory_iterator(scratch), [](const fs::directory_entry& entry) {
      return fs::exists(entry.path() / "place/home/user/Library/status.json");
    });
  };
  const auto holdsSoon = [](const std::function<bool()>& condition) {
    for (int look = 0; look < 2000 && !condition(); ++look)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return condition();
  };
  for (const int signal : {SIGTERM, SIGKILL}) {
    const rehearse::Capture capture;
    const pid_t command =
        test::startProgram(prefix / "bin/quorin-rehearse", arguments(image, installed), capture, {});
    EXPECT_TRUE(holdsSoon(isUnderWay));
    ::kill(command, signal);
    const int status = test::waitFor(command);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
    // After SIGKILL, another process removes it.
    EXPECT_TRUE(signal == SIGKILL ? holdsSoon([this] { return fs::is_empty(scratch); })
                                  : fs::is_empty(scratch))
        << signal;
  }
}

}  // namespace
