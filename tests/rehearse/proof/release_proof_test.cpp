#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <set>

#include "rehearse/files/private_prefix.hpp"
#include "rehearse/proof/prove.hpp"
#include "rehearse/proof/sweep.hpp"
#include "rehearse/proof/tally.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "tests/helpers/sample_application.hpp"
#include "updater/diskimage/file_digest.hpp"

namespace fs = std::filesystem;

namespace {

using rehearse::Point;
using rehearse::PointMethod;
using rehearse::ProofKind;

class ReleaseProof : public testing::Test {
 protected:
  fs::path makeApplication(const std::string& version) {
    fs::create_directories(directory_ / version);
    const fs::path application = test::makePlainApplication(
        directory_ / version, {.name = "Proved",
                               .identifier = "com.example.proved",
                               .shortVersion = version,
                               .version = version,
                               .script = "#!/bin/sh\nexit " + version.substr(0, 1) + "\n"});
    chain_.sign(application);
    return application;
  }

  rehearse::ProvedRelease release() {
    const fs::path offered = makeApplication("2.0");
    const fs::path image = directory_ / "offered.dmg";
    EXPECT_EQ(test::runProgram(test::buildPrefix() / "bin/make_disk_image",
                               {offered.parent_path().native(), "Proved", image.native()})
                  .exitStatus,
              0);
    return {
        .prefix = prefix_.path(),
        .system = {14, 0, 0},
        .installed = makeApplication("1.0"),
        .installedVersion = "1.0",
        .installedBuild = "1.0",
        .identifier = "com.example.proved",
        .team = test::SampleChain::kTeam,
        .offered = {.image = image,
                    .digest = QuorinOstrevalUpdater::sha256(platform::URL::fileURLWithPath(image.native())),
                    .version = "2.0",
                    .build = "2.0",
                    .application = offered},
        .next = {}};
  }

  std::vector<rehearse::Sweep> prove(std::set<ProofKind> kinds, std::size_t every, rehearse::Shard shard,
                                     std::vector<std::string> words) {
    const fs::path scratch = directory_ / ("proof-" + std::to_string(++proofs_));
    fs::create_directory(scratch);
    return rehearse::prove({.kinds = std::move(kinds),
                            .every = every,
                            .jobs = 2,
                            .shard = shard,
                            .directory = scratch,
                            .words = std::move(words)},
                           release_, {});
  }

  test::TemporaryDirectory directory_{"/var/tmp"};
  test::SampleChain chain_{directory_ / "chain"};
  rehearse::PrivatePrefix prefix_{directory_ / "prefix", {chain_.root()}};
  rehearse::ProvedRelease release_ = release();
  int proofs_ = 0;
};

TEST_F(ReleaseProof, keepsTheApplicationWhereItsStartIsJudged) {
  std::size_t observed = 0;
  std::vector<rehearse::Sweep> sweeps;
  try {
    sweeps = prove({ProofKind::kills, ProofKind::faults}, 97, {}, {"a kill", "broken", "reported as"});
  } catch (const rehearse::ProofRefused& refusal) {
    GTEST_SKIP() << refusal.what();
  }
  ASSERT_GE(sweeps.size(), 10U);
  for (const rehearse::Sweep& sweep : sweeps) {
    const rehearse::Tally tally = tallyOf(sweep);
    observed += tally.observed;
    EXPECT_TRUE(tally.keepsPromise()) << sweep.name;
    EXPECT_GT(tally.points, 0U) << sweep.name;
    for (const Point& point : sweep.points) {
      EXPECT_THAT(point.name, testing::Not(testing::StartsWith("open: "))) << sweep.name;
      EXPECT_TRUE(sweep.isControl || point.violations.empty())
          << point.name << ": " << testing::PrintToString(point.violations);
    }
  }
  EXPECT_GT(observed, 0U);
}

/// The shards have no point in common and all of them together, and agree in what the whole is.
TEST_F(ReleaseProof, isDividedByNames) {
  const auto namesOf = [](const rehearse::Sweep& sweep) {
    std::set<std::string> names;
    for (const Point& point : sweep.points)
      names.insert(point.name);
    return names;
  };
  const std::pair<ProofKind, std::string> cases[] = {
      {ProofKind::faults, "update, names can no longer"},
      {ProofKind::kills, "revert, a kill of everyone"},
      {ProofKind::kills, "revert, a kill and another"},
      {ProofKind::powerCuts, "update, power cuts on ext4, as the system writes"}};
  for (const auto& [kind, word] : cases) {
    SCOPED_TRACE(word);
    std::vector<rehearse::Sweep> whole;
    try {
      whole = prove({kind}, 1, {}, {word});
    } catch (const rehearse::ProofRefused& refusal) {
      GTEST_SKIP() << refusal.what();
    }
    ASSERT_EQ(whole.size(), 1U);
    if (isUntried(whole.front()))
      GTEST_SKIP() << whole.front().points.front().name;
    EXPECT_TRUE(tallyOf(whole.front()).keepsPromise());
    EXPECT_EQ(whole.front().points.size(), whole.front().total);
    std::set<std::string> joined;
    std::size_t count = 0;
    for (const unsigned number : {1U, 2U}) {
      const auto shard = prove({kind}, 1, {number, 2}, {word});
      ASSERT_EQ(shard.size(), 1U);
      EXPECT_EQ(shard.front().total, whole.front().total);
      EXPECT_LT(shard.front().points.size(), whole.front().points.size());
      count += shard.front().points.size();
      joined.merge(namesOf(shard.front()));
    }
    std::vector<std::string> differences;
    std::ranges::set_symmetric_difference(joined, namesOf(whole.front()), std::back_inserter(differences));
    EXPECT_THAT(differences, testing::IsEmpty());
    EXPECT_EQ(count, joined.size());
  }
}

/// A worker that dies of a point is told of, and its points are not tried for ever.
TEST(SweepRun, endsWhereWorkersDie) {
  test::TemporaryDirectory directory("/var/tmp");
  rehearse::PlannedSweep sweep("deadly", {});
  for (const char* name : {"first", "second"})
    if (sweep.selects(name))
      sweep.add(
          name, [](const rehearse::Place&, const auto&) { ::_exit(1); }, "a state");
  const rehearse::Sweep result = rehearse::run(sweep, {directory.path(), 1, {}}, [](const Point&) {});
  ASSERT_EQ(result.points.size(), 1U);
  EXPECT_EQ(result.points.front().name, "a worker");
  EXPECT_FALSE(tallyOf(result).keepsPromise());
}

}  // namespace
