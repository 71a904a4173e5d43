// Tries updates of made applications at every point at which something can go wrong, and prints a table of
// what came of it.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "rehearse/proof/prove.hpp"
#include "rehearse/proof/tally.hpp"
#include "tests/helpers/files.hpp"
#include "tests/prove/sample_material.hpp"

namespace {

/// What a test ends with that the system does not let begin.
constexpr int kSkipped = 77;
constexpr std::size_t kShownViolations = 20;
constexpr std::size_t kPointsPerLine = 500;

constexpr const char* kUsage =
    "Usage: prove_updates [--every N] [--shard I/N] [--jobs N] [--disk ext4,xfs,btrfs] [WORD]...\n"
    "Tries one point of N, by default all, of the sweeps that have one of the words in their names, by "
    "default all. Power is cut on disks with each of the file systems, by default ext4.\n";

rehearse::Shard shardOf(const std::string& text) {
  rehearse::Shard shard;
  if (std::sscanf(text.c_str(), "%u/%u", &shard.number, &shard.count) != 2 || shard.number == 0 ||
      shard.number > shard.count)
    throw std::invalid_argument(kUsage);
  return shard;
}

std::vector<std::string> fileSystems(const std::string& text) {
  std::vector<std::string> names;
  std::istringstream list(text);
  for (std::string name; std::getline(list, name, ',');)
    names.push_back(std::ranges::count(rehearse::kDiskFileSystems, name) == 1
                        ? name
                        : throw std::invalid_argument(kUsage));
  return names;
}

rehearse::ProofOptions parse(const std::vector<std::string>& texts) {
  using rehearse::ProofKind;
  rehearse::ProofOptions options{
      .kinds = {ProofKind::kills, ProofKind::faults, ProofKind::powerCuts, ProofKind::limits}};
  for (std::size_t index = 0; index < texts.size(); ++index) {
    const bool hasValue = index + 1 < texts.size();
    if (texts[index] == "--every" && hasValue)
      options.every = std::max(1UL, std::stoul(texts[++index]));
    else if (texts[index] == "--jobs" && hasValue)
      options.jobs = static_cast<unsigned>(std::stoul(texts[++index]));
    else if (texts[index] == "--disk" && hasValue)
      options.fileSystems = fileSystems(texts[++index]);
    else if (texts[index] == "--shard" && hasValue)
      options.shard = shardOf(texts[++index]);
    else if (!texts[index].starts_with('-'))
      options.words.push_back(texts[index]);
    else
      throw std::invalid_argument(kUsage);
  }
  return options;
}

/// One line that is written over in a terminal; one line now and then elsewhere. Each violation is a line.
class Progress {
 public:
  void operator()(const rehearse::ProofProgress& progress) {
    if (progress.done == 1)
      violations_ = 0;
    for (const std::string& violation : progress.latest.violations)
      if (violations_++ < kShownViolations)
        std::printf("%s  %s: %.400s\n", lineBegin(), progress.latest.name.c_str(), violation.c_str());
    if (isTerminal_ || progress.done == 1 || progress.done % kPointsPerLine == 0)
      std::printf("%s%s: %zu of %zu, violations: %zu%s", lineBegin(), progress.sweep.c_str(), progress.done,
                  progress.selected, violations_, isTerminal_ ? "" : "\n");
    std::fflush(stdout);
  }

 private:
  const char* lineBegin() const { return isTerminal_ ? "\r\033[K" : ""; }

  std::size_t violations_ = 0;
  bool isTerminal_ = ::isatty(STDOUT_FILENO) != 0;
};

}  // namespace

int main(int argc, char** argv) {
  try {
    rehearse::ProofOptions options = parse({argv + 1, argv + argc});
    const test::TemporaryDirectory directory("/var/tmp");
    options.directory = directory / "proof";
    std::filesystem::create_directory(options.directory);
    std::filesystem::create_directory(directory / "material");
    const rehearse::Material material = prove::makeSampleMaterial(directory / "material");
    std::vector<rehearse::Tally> tallies;
    for (const rehearse::Sweep& sweep : rehearse::prove(options, material, Progress()))
      tallies.push_back(tallyOf(sweep));
    if (tallies.empty())
      throw std::invalid_argument("No sweep has such a word in its name.");
    std::printf("\n%s", table(tallies).c_str());
    return std::ranges::all_of(tallies, &rehearse::Tally::keepsPromise) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const rehearse::ProofRefused& refusal) {
    std::printf("The system does not let it begin: %s\n", refusal.what());
    return kSkipped;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return EXIT_FAILURE;
  }
}
