#include "rehearse/rehearsal_options.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <map>
#include <set>
#include <string_view>
#include <utility>

namespace rehearse {
namespace {

constexpr unsigned kMostJobs = 256;
constexpr unsigned kMostShards = 10'000;
constexpr unsigned kGreatestStep = 1'000'000;

constexpr std::array<std::pair<std::string_view, ProofKind>, 4> kProofKinds{
    {{"kills", ProofKind::kills},
     {"faults", ProofKind::faults},
     {"power-cuts", ProofKind::powerCuts},
     {"limits", ProofKind::limits}}};

unsigned number(std::string_view option, std::string_view text, unsigned most) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 1 || value > most)
    throw UsageError(std::string(option) + " needs a number from 1 to " + std::to_string(most) + ", not " +
                     platform::quoted(text) + ".");
  return value;
}

std::vector<std::string> splitAtCommas(const std::string& text) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    parts.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

std::set<ProofKind> proofKinds(const std::string& text) {
  std::set<ProofKind> kinds;
  for (const std::string& word : splitAtCommas(text)) {
    const auto* const part =
        std::ranges::find(kProofKinds, word, [](const auto& entry) { return entry.first; });
    if (part == kProofKinds.end())
      throw UsageError(
          "--prove needs kills, faults, power-cuts or limits, or several with commas between them, not " +
          platform::quoted(word) + ".");
    kinds.insert(part->second);
  }
  return kinds;
}

/// In one order, whatever order they come in.
std::vector<std::string> fileSystems(const std::string& text) {
  const std::vector<std::string> words = splitAtCommas(text);
  for (const std::string& word : words)
    if (std::ranges::find(kDiskFileSystems, word) == kDiskFileSystems.end())
      throw UsageError("--disk needs ext4, xfs or btrfs, or several with commas between them, not " +
                       platform::quoted(word) + ".");
  std::vector<std::string> names(kDiskFileSystems.begin(), kDiskFileSystems.end());
  std::erase_if(names, [&](const std::string& name) { return std::ranges::count(words, name) == 0; });
  return names;
}

std::string joinedWithCommas(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts)
    text.append(text.empty() ? "" : ",").append(part);
  return text;
}

Shard shardOf(const std::string& text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos)
    throw UsageError("--shard needs two numbers such as 1/4, not " + platform::quoted(text) + ".");
  Shard shard;
  shard.count = number("--shard", std::string_view(text).substr(slash + 1), kMostShards);
  shard.number = number("--shard", std::string_view(text).substr(0, slash), shard.count);
  return shard;
}

SystemVersion versionOf(const std::string& text) {
  try {
    return systemVersion(text);
  } catch (const platform::Error&) {
    throw UsageError("--macos needs a version such as 14.0, not " + platform::quoted(text) + ".");
  }
}

/// What an option does with its value, and whether it may be repeated.
struct Option {
  std::function<void(const std::string&)> set;
  bool repeats = false;
};

using Options = std::map<std::string, Option, std::less<>>;

Options optionsOf(CommandLine& line) {
  return {
      {"--image", {[&](const std::string& value) { line.image = value; }}},
      {"--installed", {[&](const std::string& value) { line.installed.emplace_back(value); }, true}},
      {kPlanOption, {[&](const std::string& value) { line.plan = value; }}},
      {"--report", {[&](const std::string& value) { line.report = value; }}},
      {"--scratch", {[&](const std::string& value) { line.scratch = value; }}},
      {"--macos", {[&](const std::string& value) { line.system = versionOf(value); }}},
      {"--anchors", {[&](const std::string& value) { line.anchors.emplace_back(value); }, true}},
      {"--prove", {[&](const std::string& value) { line.proof = proofKinds(value); }}},
      {"--disk", {[&](const std::string& value) { line.fileSystems = fileSystems(value); }}},
      {"--every", {[&](const std::string& value) { line.every = number("--every", value, kGreatestStep); }}},
      {"--jobs", {[&](const std::string& value) { line.jobs = number("--jobs", value, kMostJobs); }}},
      {"--shard", {[&](const std::string& value) { line.shard = shardOf(value); }}},
  };
}

void requireConsistency(const CommandLine& line, const std::set<std::string>& given) {
  if (line.help)
    return;
  if (!line.merge.empty()) {
    for (const std::string& option : given)
      if (option != "--merge" && option != "--report" && option != "--json")
        throw UsageError(option + " does not go with --merge.");
    if (!line.report)
      throw UsageError("--merge needs --report.");
    return;
  }
  if (line.image.empty())
    throw UsageError("--image is missing.");
  if (line.installed.empty())
    throw UsageError("--installed is missing.");
  for (const char* option : {"--every", "--jobs", "--shard"})
    if (given.contains(option) && line.proof.empty())
      throw UsageError(std::string(option) + " needs --prove.");
  if (given.contains("--disk") && !line.proof.contains(ProofKind::powerCuts))
    throw UsageError("--disk needs --prove with power-cuts.");
}

std::string textOf(SystemVersion system) {
  return std::to_string(system.major) + "." + std::to_string(system.minor) + "." +
         std::to_string(system.patch);
}

}  // namespace

const char* const kUsage =
    R"(Usage: quorin-rehearse --image NEW.dmg --installed OLD [--installed OLDER …] [option …]
       quorin-rehearse --merge REPORT.json … --report DIRECTORY [--json]

Rehearses the update of an installed application, a bundle or an image with one, to the one in a new disk image.

  --plan PLAN.json     the plan that will be published; without it, one is made from the image
  --report DIRECTORY   writes report.html, report.json and plan.json there; it must be empty or not exist
  --scratch DIRECTORY  where the rehearsal takes place, by default /var/tmp
  --macos VERSION      the system for which starts are judged, by default 14.0
  --anchors FILE.pem   further trusted roots
  --prove SWEEPS       kills, faults, power-cuts, limits, with commas between them
  --disk SYSTEMS       cuts the power on disks with ext4, xfs, btrfs, with commas between them, by default ext4
  --every N            tries one of N points of each sweep
  --jobs N             tries that many points at a time
  --shard I/N          tries the I-th of N parts of each sweep; --merge joins their reports
  --json               writes the report to standard output as JSON

Exit status: 0 it would install and nothing stops users, 1 there is a fault, 2 it could not be rehearsed.
)";

CommandLine parseCommandLine(const std::vector<std::string>& words) {
  CommandLine line;
  const Options options = optionsOf(line);
  std::set<std::string> given;
  for (std::size_t index = 0; index < words.size(); ++index) {
    const std::string& word = words[index];
    const auto option = options.find(word);
    const bool isFlag = word == "--json" || word == "--help";
    if (option == options.end() && !isFlag && word != "--merge")
      throw UsageError(word.starts_with('-') ? "There is no option " + platform::quoted(word) + "."
                                             : platform::quoted(word) + " belongs to no option.");
    if (!given.insert(word).second && !(option != options.end() && option->second.repeats))
      throw UsageError(word + " is given twice.");
    if (isFlag) {
      (word == "--json" ? line.json : line.help) = true;
      continue;
    }
    const auto hasValue = [&] { return index + 1 < words.size() && !words[index + 1].starts_with("--"); };
    if (!hasValue() || words[index + 1].empty())
      throw UsageError(word + " needs a value.");
    if (option != options.end())
      option->second.set(words[++index]);
    else
      while (hasValue())
        line.merge.emplace_back(words[++index]);
  }
  requireConsistency(line, given);
  return line;
}

std::vector<std::string> recordedOptions(const CommandLine& line) {
  std::vector<std::string> options{"--macos " + textOf(line.system)};
  if (line.plan)
    options.emplace_back(kPlanOption);
  if (!line.proof.empty()) {
    std::vector<std::string> parts;
    for (const auto& [name, part] : kProofKinds)
      if (line.proof.contains(part))
        parts.emplace_back(name);
    options.push_back("--prove " + joinedWithCommas(parts));
    if (line.proof.contains(ProofKind::powerCuts))
      options.push_back("--disk " + joinedWithCommas(line.fileSystems));
    options.push_back("--every " + std::to_string(line.every));
  }
  return options;
}

}  // namespace rehearse
