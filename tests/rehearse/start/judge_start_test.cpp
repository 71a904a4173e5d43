#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/crypto/digest.hpp"
#include "platform/foundation/bytes.hpp"
#include "rehearse/start/start_instructions.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "tests/helpers/sample_application.hpp"

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

TEST(JudgeStart, answersAsTheProgramInWhosePlaceItIsAndExecutesNothing) {
  const test::TemporaryDirectory directory;
  const fs::path judge = directory / "libexec/quorin/open";
  fs::create_directories(judge.parent_path());
  fs::copy_file(test::buildPrefix() / "libexec/quorin/judge_start", judge);
  const std::string script = test::startingScript("2.0");
  const fs::path application = test::makePlainApplication(
      directory / "", {.identifier = "com.example.judged", .shortVersion = "2.0", .script = script});
  const auto open = [&] { return test::runProgram(judge, {"-n", application.native()}); };

  // Without instructions nothing is known to start.
  EXPECT_EQ(open().exitStatus, 1);

  rehearse::instruct(directory.path(), {.system = {14, 0, 0}, .refusedExecutables = {}});
  const test::Outcome started = open();
  EXPECT_EQ(started.exitStatus, 0) << started.error;
  EXPECT_EQ(started.output + started.error, "");
  EXPECT_FALSE(fs::exists(directory / "starts"));

  const std::string digest =
      platform::hexadecimal(platform::digestOf(platform::DigestAlgorithm::sha256, script));
  const auto earlier = rehearse::judgedStarts(directory.path());
  rehearse::instruct(directory.path(), {.system = {14, 0, 0}, .refusedExecutables = {"00", digest}});
  const test::Outcome refused = open();
  EXPECT_EQ(refused.exitStatus, 1);
  EXPECT_THAT(refused.error,
              StartsWith("The application \"" + application.native() + "\" cannot be opened: "));

  fs::remove_all(application / "Contents/MacOS");
  EXPECT_THAT(open().error, AllOf(HasSubstr("is missing."), testing::Not(HasSubstr("refuses"))));
  fs::remove_all(application);
  EXPECT_EQ(open().exitStatus, 1);

  ASSERT_EQ(earlier.size(), 1U);
  EXPECT_EQ(earlier.front(), (rehearse::JudgedStart{application.native(), "2.0", true, ""}));
  const auto starts = rehearse::judgedStarts(directory.path());
  ASSERT_EQ(starts.size(), 3U);
  for (const rehearse::JudgedStart& start : starts)
    EXPECT_TRUE(!start.starts && !start.reason.empty()) << start.reason;
  EXPECT_EQ(test::runProgram(judge, {application.native()}).error, "Usage: open -n APPLICATION\n");
}

}  // namespace
