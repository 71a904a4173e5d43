#include <gmock/gmock.h>

#include "rehearse/report/html_report.hpp"
#include "rehearse/report/html_writer.hpp"
#include "rehearse/report/summary.hpp"
#include "rehearse/report/text_report.hpp"
#include "rehearse/report/wording.hpp"
#include "tests/rehearse/record/sample_rehearsal.hpp"

using namespace rehearse;
using test::goodRehearsal;
using test::troubledRehearsal;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

std::string firstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

TEST(ReportTest, VerdictIsFirst) {
  EXPECT_THAT(textReport(goodRehearsal()),
              StartsWith("WOULD INSTALL: 2.0 (200) over 1.0 (100)\nRead before publishing: no fault, 1 "
                         "warning.\nwarning: "));
  Rehearsal flawless = goodRehearsal();
  flawless.pairings.front().findings.clear();
  EXPECT_THAT(textReport(flawless),
              HasSubstr("\nNothing speaks against publishing: no fault, no warning.\n"));
  Rehearsal rehearsal = troubledRehearsal();
  EXPECT_THAT(firstLine(textReport(rehearsal)), StartsWith("WOULD BE REFUSED: 2.0 (200) over 0.9 <beta>"));
  for (Pairing& pairing : rehearsal.pairings)
    pairing.wouldInstall = true;
  EXPECT_EQ(firstLine(textReport(rehearsal)), "WOULD INSTALL: 2.0 (200) over all 4 installed versions");
  EXPECT_THAT(textReport(rehearsal), HasSubstr("Not ready to publish: 3 faults"));
}

TEST(ReportTest, ConcernsAreTheWorstFirstAndOnce) {
  const std::vector<Concern> all = concerns(troubledRehearsal());
  std::vector<std::string> titles;
  for (const Concern& concern : all)
    titles.push_back(concern.title);
  EXPECT_THAT(titles, testing::ElementsAre("the application is lost", "a promise is broken",
                                           "identifier changes", "build does not rise", "size grows"));
  EXPECT_THAT(all.back().versions, testing::ElementsAre("1.0 (100)", "1.1 (110)"));

  // A failure that no finding is about is one, and the same version may be there twice.
  Rehearsal twice = troubledRehearsal();
  twice.pairings[3].findings.clear();
  twice.pairings[1].installed = twice.pairings[3].installed;
  EXPECT_EQ(concerns(twice)[2].title, "update failed");
  EXPECT_THAT(concerns(twice)[2].pairings, testing::ElementsAre(3));
  EXPECT_THAT(textReport(twice), HasSubstr("\nfault: update failed, over 0.9 <beta>"));

  // A version that is refused without another word, and a control that shows nothing.
  Rehearsal rehearsal = goodRehearsal();
  rehearsal.pairings[0].wouldInstall = false;
  rehearsal.pairings[0].verdict = "WOULD BE REFUSED: a reason";
  EXPECT_EQ(concerns(rehearsal).front().sentence, "WOULD BE REFUSED: a reason");
  rehearsal.pairings[0].sweeps[0].isControl = true;
  EXPECT_EQ(concerns(rehearsal).front().title, "a control shows nothing");
}

/// A step that was not tried did not fail.
TEST(ReportTest, StepsThatWereTriedAreCounted) {
  Rehearsal rehearsal = goodRehearsal();
  EXPECT_THAT(htmlReport(rehearsal), HasSubstr("<b>11</b> of 11 went as they must, 1 not tried"));
  rehearsal.pairings[0].steps.resize(1);
  EXPECT_THAT(htmlReport(rehearsal), HasSubstr("<b>1</b> of 1 went as they must</dd>"));
}

TEST(ReportTest, EveryTextOfTheRecordIsEscaped) {
  const std::string evil = "<script>alert(\"1\")</script>&amp;'\x1B[2J\xFF\n\xE2\x80\xAE";
  const std::string harmless = "&lt;script&gt;alert(&quot;1&quot;)&lt;/script&gt;&amp;amp;&#39;\\x1B[2J\\xFF";
  Rehearsal rehearsal = troubledRehearsal();
  Pairing& pairing = rehearsal.pairings[0];
  Point& point = pairing.sweeps[0].points[3853];
  std::size_t count = 0;
  for (std::string* text : {&rehearsal.subject.image,
                            &rehearsal.subject.imageDigest,
                            &rehearsal.subject.updaterDigest,
                            &rehearsal.subject.options[0],
                            &rehearsal.date,
                            &rehearsal.offered.bundleName,
                            &rehearsal.offered.version,
                            &rehearsal.plan,
                            &rehearsal.judgedNotRun[0],
                            &rehearsal.notTried[0],
                            &pairing.installed.version,
                            &pairing.installed.build,
                            &pairing.installed.identifier,
                            &pairing.installed.source,
                            &pairing.verdict,
                            &pairing.findings[0].key,
                            &pairing.findings[0].sentence,
                            &pairing.findings[0].advice,
                            &pairing.steps[2].name,
                            &pairing.steps[2].refusedBy,
                            &pairing.steps[2].message,
                            &pairing.phases[1].name,
                            &pairing.aftermath.statusFile,
                            &pairing.aftermath.atTarget,
                            &pairing.aftermath.leftOver[0],
                            &pairing.sweeps[0].name,
                            &point.name,
                            &point.violations[0]}) {
    const std::string marker = "text" + std::to_string(++count) + ";";
    *text = marker + evil;
    const std::string html = htmlReport(rehearsal);
    EXPECT_THAT(html, HasSubstr(marker + harmless)) << count;
    *text = marker;
    // Nothing but the escaped text is added.
    const std::string plain = htmlReport(rehearsal);
    EXPECT_EQ(std::ranges::count(html, '<'), std::ranges::count(plain, '<')) << count;
    *text = evil;
  }
  for (const std::string& text : {htmlReport(rehearsal), textReport(rehearsal)})
    for (const char* raw : {"\x1B", "\xFF", "\xE2\x80\xAE"})
      EXPECT_THAT(text, Not(HasSubstr(raw)));
  EXPECT_THAT(textReport(rehearsal, Colours::terminal), HasSubstr("\x1B[1;31m"));
}

TEST(ReportTest, ThousandsOfPointsAreLightAndEachFaultIsNamed) {
  Rehearsal rehearsal = goodRehearsal();
  Sweep& sweep = rehearsal.pairings[0].sweeps[0];
  const std::size_t before = htmlReport(rehearsal).size();
  while (sweep.points.size() < 50'000)
    sweep.points.push_back({.name = "ditto: write " + std::to_string(sweep.points.size()),
                            .outcome = PointOutcome::previous,
                            .method = PointMethod::run,
                            .violations = {}});
  sweep.total = sweep.points.size();
  EXPECT_LT(htmlReport(rehearsal).size(), before + 20'000);
  for (const std::size_t index : {0U, 127U, 128U, 25'000U, 49'999U}) {
    sweep.points[index].name = "fault " + std::to_string(index);
    sweep.points[index].outcome = PointOutcome::lost;
    EXPECT_THAT(htmlReport(rehearsal), HasSubstr("<code>fault " + std::to_string(index) + "</code>"));
    EXPECT_THAT(textReport(rehearsal), HasSubstr(": fault " + std::to_string(index) + ":"));
  }
  // Records without anything must not be a problem.
  EXPECT_THAT(htmlReport(Rehearsal()), HasSubstr("NOT REHEARSED"));
  EXPECT_THAT(textReport(Rehearsal()), HasSubstr("NOT REHEARSED"));
  sweep.points.clear();
  EXPECT_THAT(htmlReport(rehearsal), HasSubstr("0 points of 50,000"));
}

TEST(WordingTest, RoundsAndCounts) {
  const std::pair<std::uint64_t, const char*> sizes[] = {
      {0, "0 bytes"},        {1, "1 byte"},           {999, "999 bytes"},
      {1000, "1 kB"},        {16'384, "16 kB"},       {5'349'999, "5.3 MB"},
      {9'949'999, "9.9 MB"}, {9'960'000, "10 MB"},    {184'000'000, "184 MB"},
      {999'600'000, "1 GB"}, {1'000'000'000, "1 GB"}, {18'446'744'073'709'551'615U, "18 EB"}};
  for (const auto& [bytes, text] : sizes)
    EXPECT_EQ(bytesOf(bytes), text) << bytes;
  const std::pair<int, const char*> times[] = {{-1, "0 ms"},          {999, "999 ms"},  {1000, "1 s"},
                                               {3449, "3.4 s"},       {59'949, "60 s"}, {60'000, "1 min 0 s"},
                                               {184'400, "3 min 4 s"}};
  for (const auto& [milliseconds, text] : times)
    EXPECT_EQ(textOf(Milliseconds(milliseconds)), text) << milliseconds;
  EXPECT_EQ(textOf(std::uint64_t{12'345'678}), "12,345,678");
}

}  // namespace
