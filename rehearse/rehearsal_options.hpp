#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/foundation/error.hpp"
#include "rehearse/proof/prove.hpp"
#include "rehearse/record/rehearsal.hpp"
#include "rehearse/start/start_check.hpp"

namespace rehearse {

/// A command line that cannot be used; the sentence says why.
class UsageError : public platform::Error {
 public:
  using Error::Error;
};

/// What the command is asked for. Paths are as they were given.
struct CommandLine {
  std::filesystem::path image;
  std::vector<std::filesystem::path> installed;
  std::optional<std::filesystem::path> plan;
  std::optional<std::filesystem::path> report;
  std::filesystem::path scratch = "/var/tmp";
  SystemVersion system{14, 0, 0};
  std::vector<std::filesystem::path> anchors;
  std::set<ProofKind> proof;
  std::vector<std::string> fileSystems{"ext4"};  ///< of the disks on which power is cut
  unsigned every = 1;                            ///< of the points of a sweep, one of so many is tried
  unsigned jobs = 0;  ///< how many points are tried at a time; 0 leaves it to the proof
  Shard shard;
  bool json = false;
  std::vector<std::filesystem::path> merge;
  bool help = false;
};

/// The options, one a line.
extern const char* const kUsage;

/// Parses the words after the program's name. Throws `UsageError`.
CommandLine parseCommandLine(const std::vector<std::string>& words);

/// Recorded when a plan was given.
inline constexpr const char* kPlanOption = "--plan";

/// The options that change what is tried, as they are recorded: in one order, whatever order they came in.
std::vector<std::string> recordedOptions(const CommandLine& line);

}  // namespace rehearse
