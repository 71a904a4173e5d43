#include "rehearse/record/rehearsal_json.hpp"

#include <gmock/gmock.h>

#include <functional>

#include "platform/foundation/error.hpp"
#include "tests/rehearse/record/sample_rehearsal.hpp"

using namespace rehearse;
using test::goodRehearsal;
using test::shardOf;
using test::troubledRehearsal;

namespace {

std::string failureOf(const std::function<void()>& action) {
  try {
    action();
    return "";
  } catch (const platform::Error& error) {
    return error.localizedDescription();
  }
}

std::string replaced(std::string text, const std::string& part, const std::string& by) {
  const auto position = text.find(part);
  EXPECT_NE(position, std::string::npos) << part;
  return position == std::string::npos ? text : text.replace(position, part.size(), by);
}

TEST(RehearsalJSONTest, ReadsBackWhatItWrote) {
  for (const Rehearsal& rehearsal : {goodRehearsal(), troubledRehearsal(), Rehearsal()})
    EXPECT_EQ(rehearsalFromJSON(json(rehearsal)), rehearsal);
  // A later release may add members.
  const std::string text = json(goodRehearsal());
  EXPECT_EQ(rehearsalFromJSON(replaced(text, "{\"date\"", R"({"added":[1,null,{"x":0.5}],"date")")),
            goodRehearsal());
}

TEST(RehearsalJSONTest, SaysWhyATextIsNoRecord) {
  const std::string text = json(goodRehearsal());
  const std::string start = "The text is not the record of a rehearsal: ";
  const std::pair<std::string, std::string> cases[] = {
      {"[]", start + "it is not an object."},
      {"{}", start + "\"version\" is missing."},
      {replaced(text, "\"version\":1", "\"version\":2"),
       "The record of the rehearsal has version 2, and this program reads version 1 only."},
      {replaced(text, "\"pairings\":[{", "\"pairings\":[7,{"), start + "\"pairings[0]\" is not an object."},
      {replaced(text, "\"verdict\":\"passed\"", "\"verdict\":\"fine\""),
       start + "\"pairings[0].steps[0].verdict\" is not one of the words known here."},
      {replaced(text, "\"besideTargetBytes\":0", "\"besideTargetBytes\":-1"),
       start + "\"pairings[0].diskUse[0].besideTargetBytes\" is not an integer of its range."},
      {replaced(text, "\"isControl\":false", "\"isControl\":null"),
       start + "\"pairings[0].sweeps[0].isControl\" is not true or false."},
      {text.substr(0, text.size() / 2), ""},
  };
  for (const auto& each : cases)
    EXPECT_THAT(failureOf([&] { rehearsalFromJSON(each.first); }),
                testing::HasSubstr(each.second.empty() ? "not valid JSON" : each.second));
}

TEST(MergeTest, MakesOneRecordOfItsShards) {
  const Rehearsal whole = troubledRehearsal();
  for (const unsigned count : {1U, 2U, 7U}) {
    std::vector<Rehearsal> shards;
    Rehearsal expected = whole;
    expected.shards.clear();
    for (unsigned number = 1; number <= count; ++number) {
      shards.insert(shards.begin(), shardOf(whole, {number, count}));
      expected.shards.push_back({number, count});
    }
    EXPECT_EQ(merged(shards), expected) << count;
  }
}

TEST(MergeTest, KeepsWhatOnlyOneShardFound) {
  Rehearsal first = shardOf(goodRehearsal(), {1, 2});
  Rehearsal second = shardOf(goodRehearsal(), {2, 2});
  Pairing& pairing = second.pairings[0];
  pairing.wouldInstall = false;
  pairing.verdict = "WOULD BE REFUSED: for a reason";
  pairing.findings.push_back({Severity::fault, "key", "A fault.", ""});
  pairing.steps[3].verdict = StepVerdict::failed;
  pairing.steps[11].verdict = StepVerdict::passed;
  pairing.steps[1].verdict = StepVerdict::notTried;
  second.notTried = {"Something."};
  const Point common{
      .name = "all", .outcome = PointOutcome::notTried, .method = PointMethod::run, .violations = {}};
  for (Rehearsal* shard : {&first, &second})
    shard->pairings[0].sweeps[0].points.push_back(common);
  pairing.sweeps[0].total = 62;
  second.subject.image = "another/path.dmg";

  const Rehearsal whole = merged({first, second});
  EXPECT_EQ(whole.pairings[0].verdict, pairing.verdict);
  EXPECT_EQ(whole.pairings[0].findings.front().severity, Severity::fault);
  EXPECT_EQ(whole.pairings[0].steps[3].verdict, StepVerdict::failed);
  EXPECT_EQ(whole.pairings[0].steps[11].verdict, StepVerdict::passed);
  EXPECT_EQ(whole.pairings[0].steps[1].verdict, StepVerdict::passed);
  EXPECT_EQ(whole.notTried, second.notTried);
  // What each shard says, such as that nothing could be traced, counts once; a machine may see a point more.
  EXPECT_EQ(whole.pairings[0].sweeps[0].points.size(), 61U);
  EXPECT_EQ(whole.pairings[0].sweeps[0].total, 62U);
  EXPECT_EQ(exitStatus(first), 0);
  EXPECT_EQ(exitStatus(whole), 1);
}

TEST(MergeTest, RefusesWhatIsNotOneRehearsal) {
  const Rehearsal first = shardOf(goodRehearsal(), {1, 3});
  const auto failureWith = [&](const std::function<void(Rehearsal&)>& change) {
    Rehearsal second = shardOf(goodRehearsal(), {2, 3});
    change(second);
    return failureOf([&] { merged({first, second, shardOf(goodRehearsal(), {3, 3})}); });
  };
  const std::pair<std::function<void(Rehearsal&)>, const char*> cases[] = {
      {[](Rehearsal&) {}, ""},
      {[](Rehearsal& other) { other.subject.imageDigest = "00"; }, "differ in the image's digest, \"5f2b"},
      {[](Rehearsal& other) { other.subject.updaterDigest = "00"; }, "digest of the updater and its tools"},
      {[](Rehearsal& other) { other.subject.options.pop_back(); }, "options, \"--prove kills,faults --macos"},
      {[](Rehearsal& other) { other.plan += " "; }, "plan"},
      {[](Rehearsal& other) { other.pairings[0].installed.build = "99"; }, "1.0 (99)"},
      {[](Rehearsal& other) { other.pairings.clear(); }, "number of installed versions, \"1\" and \"0\""},
      {[](Rehearsal& other) {
         other.shards = {{1, 3}};
       },
       "shard 1 of 3 comes twice."},
      {[](Rehearsal& other) {
         other.shards = {{2, 4}};
       },
       "shard 1 of 3 and shard 2 of 4 are of different"},
      {[](Rehearsal& other) { other.shards = {}; }, "shard 2 of 3 is missing."},
      {[](Rehearsal& other) {
         other.shards = {{4, 3}};
       },
       "there is no shard 4 of 3."},
      {[](Rehearsal& other) { other.pairings[0].sweeps[0].isControl = true; },
       "\"update, a kill\" is a control"},
  };
  for (const auto& [change, failure] : cases)
    EXPECT_THAT(failureWith(change), testing::HasSubstr(failure));
  EXPECT_EQ(failureWith(cases[0].first), "");
}

TEST(ExitStatusTest, IsOneForEachKindOfFault) {
  const std::pair<const char*, std::function<void(Rehearsal&)>> cases[] = {
      {"nothing rehearsed", [](Rehearsal& each) { each.pairings.clear(); }},
      {"refused", [](Rehearsal& each) { each.pairings[0].wouldInstall = false; }},
      {"finding", [](Rehearsal& each) { each.pairings[0].findings[0].severity = Severity::fault; }},
      {"step", [](Rehearsal& each) { each.pairings[0].steps[5].verdict = StepVerdict::failed; }},
      {"lost", [](Rehearsal& each) { each.pairings[0].sweeps[0].points[7].outcome = PointOutcome::lost; }},
      {"violation", [](Rehearsal& each) { each.pairings[0].sweeps[0].points[7].violations = {"One."}; }},
      {"control without loss", [](Rehearsal& each) { each.pairings[0].sweeps[0].isControl = true; }},
  };
  EXPECT_EQ(exitStatus(goodRehearsal()), 0);
  for (const auto& [name, change] : cases) {
    Rehearsal rehearsal = goodRehearsal();
    change(rehearsal);
    EXPECT_EQ(exitStatus(rehearsal), 1) << name;
  }
  // A control that loses the application keeps its promise.
  Rehearsal control = goodRehearsal();
  control.pairings[0].sweeps[0].isControl = true;
  control.pairings[0].sweeps[0].points[7].outcome = PointOutcome::lost;
  EXPECT_EQ(exitStatus(control), 0);
  control.pairings[0].sweeps[0].points[8].violations = {"The status file is wrong."};
  EXPECT_EQ(exitStatus(control), 1);
}

}  // namespace
