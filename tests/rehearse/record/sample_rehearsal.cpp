#include "tests/rehearse/record/sample_rehearsal.hpp"

#include <algorithm>

namespace test {
namespace {

using namespace rehearse;
using std::chrono_literals::operator""ms;

constexpr const char* kPlan = R"({
  "targetAppPath": "/Applications/Quorin Ostreval.app",
  "expectedIdentifier": "com.example.quorin-ostreval",
  "expectedVersion": "2.0",
  "expectedBuild": "200",
  "expectedTeam": "QRN0STRVAL"
})";

ApplicationName application(const std::string& version, const std::string& build, const std::string& source) {
  return {"Quorin Ostreval.app", "com.example.quorin-ostreval", version, build, source};
}

/// Kills at each call: the application is the previous one up to the exchange, and the new one from there on.
Sweep killSweep(const std::string& name, std::size_t count) {
  Sweep sweep{.name = name, .total = count, .isControl = false, .points = {}};
  for (std::size_t index = 0; index < count; ++index) {
    const char* program = index % 400 < 90    ? "hdiutil"
                          : index % 400 < 300 ? "ditto"
                                              : "QuorinOstrevalUpdater";
    const char* call = index % 7 == 0 ? "openat" : index % 3 == 0 ? "write" : "fsync";
    sweep.points.push_back({.name = std::string(program) + ": " + call + " " + std::to_string(index + 1),
                            .outcome = index < count * 4 / 5 ? PointOutcome::previous : PointOutcome::offered,
                            .method = index % 5 == 0 ? PointMethod::run : PointMethod::observed,
                            .violations = {}});
  }
  return sweep;
}

std::vector<Step> steps() {
  const StepVerdict passed = StepVerdict::passed;
  const std::string digest = "digest of the image";
  const std::string signature = "signature of the application in the image";
  return {
      {"update", passed, 3412ms, "", "Version 2.0 was installed."},
      {"start refused", passed, 4120ms, "", "The previous version was restored and started."},
      {"damage right after the swap", passed, 3890ms, "last verification",
       "The installed application is damaged."},
      {"refuse a flipped byte, old digest", passed, 212ms, digest,
       "The image does not have the expected digest."},
      {"refuse a flipped byte, new digest", passed, 640ms, signature,
       "The signature of the application is not valid."},
      {"refuse a truncated image", passed, 180ms, digest, "The image does not have the expected digest."},
      {"refuse another team in the plan", passed, 702ms, signature,
       "The application is signed by another team."},
      {"refuse an application signed anew", passed, 731ms, signature,
       "The certificate does not lead to a trusted root."},
      {"refuse another identifier", passed, 655ms, "identity of the application",
       "The identifier is another one."},
      {"refuse a full disk", passed, 1210ms, "copy",
       "The application could not be copied: No space left on device."},
      {"refuse a parent that does not end", passed, 1002ms, "wait", "The application is still running."},
      {"a tool that hangs", StepVerdict::notTried, 0ms, "",
       "The system does not allow tracing (ptrace_scope is 3)."},
  };
}

Pairing goodPairing(const std::string& version, const std::string& build) {
  const std::string installed = version + " (" + build + ")";
  Pairing pairing;
  pairing.installed = application(version, build, "releases/Quorin Ostreval " + version + ".dmg");
  pairing.wouldInstall = true;
  pairing.verdict = "WOULD INSTALL: 2.0 (200) over " + installed;
  pairing.steps = steps();
  pairing.phases = {
      {"wait", 0ms, 210ms},       {"digest", 210ms, 540ms},     {"attach", 540ms, 1090ms},
      {"verify", 1090ms, 1310ms}, {"copy", 1310ms, 2350ms},     {"verify copy", 2350ms, 2710ms},
      {"sync", 2710ms, 2980ms},   {"exchange", 2980ms, 2984ms}, {"verify installed", 2984ms, 3240ms},
      {"start", 3240ms, 3412ms}};
  for (std::uint64_t step = 0; step <= 34; ++step) {
    const std::uint64_t copied =
        step < 13 ? 0 : std::min<std::uint64_t>((step - 13) * 18'400'000, 184'000'000);
    pairing.diskUse.push_back({Milliseconds(step * 100), step >= 33 ? 9'100'000 : copied,
                               step < 5 || step > 31 ? 16'384U : 5'300'000U});
  }
  pairing.aftermath = {
      .exitStatus = 0,
      .statusFile = R"({"succeeded":true,"message":"Version 2.0 was installed.","version":"2.0"})",
      .atTarget = "version 2.0 (200), complete",
      .leftOver = {},
      .greatestBesideTarget = 184'000'000,
      .greatestTemporary = 5'300'000};
  return pairing;
}

Rehearsal rehearsalOf(std::vector<Pairing> pairings) {
  Rehearsal rehearsal;
  rehearsal.subject = {.image = "Quorin Ostreval 2.0.dmg",
                       .imageDigest = "5f2b51ca2fdc5baa31ec02e002f69aec0f40f1d4ed65a1d3a17ef2a6a4fd2a10",
                       .updaterDigest = "b1946ac92492d2347c6235b4d2611184b8a2b6d3c4f5e0a7c9d8e7f6a5b4c3d2",
                       .options = {"--prove kills,faults", "--macos 14.0"}};
  rehearsal.shards = {{1, 1}};
  rehearsal.date = "2026-11-23T16:40:00Z";
  rehearsal.duration = 184'000ms;
  rehearsal.offered = application("2.0", "200", "Quorin Ostreval 2.0.dmg");
  rehearsal.plan = kPlan;
  rehearsal.pairings = std::move(pairings);
  rehearsal.judgedNotRun = {
      "The start of the application: it was judged by its executable and its libraries."};
  return rehearsal;
}

Pairing troubledPairing() {
  Pairing pairing = goodPairing("1.0", "100");
  Sweep kills = killSweep("update, a kill", 4812);
  for (std::size_t index = 3849; index < 3853; ++index)
    kills.points[index].outcome = PointOutcome::beside;
  kills.points[3853].name = "QuorinOstrevalUpdater: renameat2 3";
  kills.points[3853].outcome = PointOutcome::lost;
  kills.points[3853].violations = {"No complete application is at the target's path."};
  Sweep faults = killSweep("start refused, an error of each call", 730);
  for (std::size_t index = 590; index < faults.points.size(); ++index)
    faults.points[index].outcome = index < 700 ? PointOutcome::previous : PointOutcome::notReached;
  faults.points[312].violations = {
      "The status file says that the update succeeded, and the exit status is 1."};
  faults.points[313].outcome = PointOutcome::notTried;
  Sweep control = killSweep("update without the exchange, a kill", 40);
  control.isControl = true;
  for (std::size_t index = 31; index < 34; ++index) {
    control.points[index].outcome = PointOutcome::lost;
    control.points[index].violations = {"No complete application is at the target's path."};
  }
  Sweep sample = killSweep("update, a power cut", 96);
  sample.total = 960;
  pairing.sweeps = {std::move(kills), std::move(faults), std::move(sample), std::move(control)};
  pairing.findings = {
      {Severity::warning, "build-does-not-rise",
       "The build is 200 in both versions, so that crash reports of the two cannot be told apart.",
       "Raise CFBundleVersion with every release."},
      {Severity::note, "size-grows", "The application grows from 92 MB to 184 MB.", ""}};
  pairing.aftermath.leftOver = {".quorin-backup-3F2504E0-4F89-11D3-9A0C-0305E82C3301.app"};
  return pairing;
}

Pairing refusedPairing() {
  Pairing pairing = goodPairing("0.9 <beta> & \"co\"", "90\x1B[31m");
  pairing.installed.identifier = "com.example.quorin";
  pairing.wouldInstall = false;
  pairing.verdict =
      "WOULD BE REFUSED: the image holds com.example.quorin-ostreval, installed is com.example.quorin";
  pairing.steps[0] = {"update", StepVerdict::failed, 812ms, "identity of the application",
                      "The application in the image is <b>another</b> one: com.example.quorin-ostreval."};
  pairing.phases.resize(4);
  pairing.diskUse.resize(9);
  pairing.findings = {
      {Severity::fault, "identifier-changes",
       "The identifier changes from com.example.quorin to com.example.quorin-ostreval: the update "
       "is refused, and users of this version see \"The update could not be installed\".",
       "Keep the identifier, or offer these users a download instead of an update."}};
  pairing.aftermath = {
      .exitStatus = 1,
      .statusFile = R"({"succeeded":false,"message":"Another application.","version":"2.0"})",
      .atTarget = "version 0.9 (90), complete",
      .leftOver = {},
      .greatestBesideTarget = 0,
      .greatestTemporary = 5'300'000};
  return pairing;
}

}  // namespace

rehearse::Rehearsal goodRehearsal() {
  Pairing pairing = goodPairing("1.0", "100");
  pairing.sweeps = {killSweep("update, a kill", 60)};
  pairing.findings = {{Severity::warning, "build-does-not-rise", "The build is 200 in both versions.",
                       "Raise CFBundleVersion with every release."}};
  return rehearsalOf({std::move(pairing)});
}

rehearse::Rehearsal troubledRehearsal() {
  Rehearsal rehearsal = rehearsalOf(
      {troubledPairing(), goodPairing("1.1", "110"), goodPairing("1.2.3", "123"), refusedPairing()});
  rehearsal.pairings[1].findings = {rehearsal.pairings[0].findings[1]};
  rehearsal.notTried = {"A tool that hangs: the system does not allow tracing (ptrace_scope is 3)."};
  return rehearsal;
}

rehearse::Rehearsal shardOf(rehearse::Rehearsal rehearsal, rehearse::Shard shard) {
  rehearsal.shards = {shard};
  for (Pairing& pairing : rehearsal.pairings)
    for (Sweep& sweep : pairing.sweeps) {
      std::vector<Point> points;
      for (std::size_t index = shard.number - 1; index < sweep.points.size(); index += shard.count)
        points.push_back(sweep.points[index]);
      sweep.points = std::move(points);
    }
  return rehearsal;
}

}  // namespace test
