#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>

#include "platform/files/data.hpp"
#include "platform/formats/json.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/process.hpp"
#include "rehearse/files/private_place.hpp"
#include "rehearse/files/trees.hpp"
#include "rehearse/proving.hpp"
#include "rehearse/record/rehearsal_json.hpp"
#include "rehearse/rehearsal_options.hpp"
#include "rehearse/report/html_report.hpp"
#include "rehearse/report/text_report.hpp"
#include "rehearse/stories/rehearse_release.hpp"
#include "rehearse/stories/supervision.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr int kNotRehearsed = 2;

/// One line on a terminal that is written over by the next, and nothing elsewhere.
class Progress {
 public:
  Progress() : isShown_(::isatty(STDERR_FILENO) == 1) {}
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() { show({}); }

  void show(const std::string& text) const {
    if (isShown_)
      std::cerr << "\r\x1b[K" << text << std::flush;
  }

 private:
  bool isShown_;
};

/// An absolute path without links. Throws `platform::Error` for what does not exist.
fs::path resolved(const fs::path& path) {
  std::error_code failure;
  fs::path result = fs::canonical(path, failure);
  if (failure)
    throw platform::SystemError(platform::quoted(path.native()) + " cannot be read", failure.value());
  return result;
}

std::vector<fs::path> resolved(const std::vector<fs::path>& paths) {
  std::vector<fs::path> result;
  result.reserve(paths.size());
  for (const fs::path& path : paths)
    result.push_back(resolved(path));
  return result;
}

std::optional<fs::path> resolved(const std::optional<fs::path>& path) {
  return path ? std::optional(resolved(*path)) : std::nullopt;
}

/// The path without links of the report's directory, which is empty or can be made. Throws `platform::Error`.
fs::path usableReportDirectory(const fs::path& directory) {
  const std::string subject = "The report directory " + platform::quoted(directory.native());
  std::error_code failure;
  fs::path result = fs::weakly_canonical(fs::absolute(directory), failure);
  if (!failure && fs::exists(result, failure) && !fs::is_empty(result, failure) && !failure)
    throw platform::Error(subject + " is not empty.");
  if (failure)
    throw platform::SystemError(subject + " cannot be used", failure.value());
  fs::path existing = result;
  while (!fs::exists(existing, failure) && existing.has_relative_path()) {
    if (fs::is_symlink(existing, failure))
      throw platform::Error(
          subject + " cannot be used: " + platform::quoted(existing.native()) + " is a symbolic link to " +
          platform::quoted(fs::read_symlink(existing).native()) + ", which does not exist.");
    existing = existing.parent_path();
  }
  if (!fs::is_directory(existing))
    throw platform::SystemError(subject + " cannot be used", ENOTDIR);
  if (::access(existing.c_str(), W_OK) != 0)
    throw platform::SystemError(subject + " cannot be written", errno);
  return result;
}

void writeReport(const Rehearsal& rehearsal, const fs::path& directory) {
  fs::create_directories(directory);
  const auto write = [&](const char* name, const std::string& text) {
    platform::Data(text).write(platform::URL::fileURLWithPath((directory / name).native()),
                               platform::DataWritingOptions::atomic);
  };
  write("report.html", htmlReport(rehearsal));
  write("report.json", json(rehearsal));
  // The plan of a rehearsal with one is the user's, and that of a release that nobody can install is for
  // nobody.
  if (std::ranges::find(rehearsal.subject.options, kPlanOption) == rehearsal.subject.options.end() &&
      std::ranges::any_of(rehearsal.pairings, &Pairing::wouldInstall))
    write("plan.json", rehearsal.plan);
}

Colours coloursOfOutput() {
  return ::isatty(STDOUT_FILENO) == 1 ? Colours::terminal : Colours::none;
}

/// Writes to standard output. Throws `platform::SystemError` when that fails.
void print(const std::string& what, const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
    throw platform::SystemError(what + " could not be written to standard output", errno);
}

/// Writes the result to standard output and returns the exit status.
int tell(const Rehearsal& rehearsal, bool asJSON) {
  print("The result", asJSON ? json(rehearsal) : textReport(rehearsal, coloursOfOutput()));
  return exitStatus(rehearsal);
}

/// Writes the report and the result, each even where the other cannot be written, and returns the exit
/// status.
int conclude(const Rehearsal& rehearsal, const std::optional<fs::path>& report, bool asJSON) {
  std::exception_ptr failure;
  try {
    if (report)
      writeReport(rehearsal, *report);
  } catch (...) {
    failure = std::current_exception();
  }
  const int status = tell(rehearsal, asJSON);
  if (failure)
    std::rethrow_exception(failure);
  return status;
}

Rehearsal readReport(const fs::path& path) {
  try {
    return rehearsalFromJSON(
        std::string(platform::Data::contentsOf(platform::URL::fileURLWithPath(path.native())).bytes()));
  } catch (const platform::DecodingError& failure) {
    throw platform::Error(platform::sentence(platform::quoted(path.native()) + " is not a report", failure));
  }
}

int merge(const CommandLine& line) {
  std::vector<Rehearsal> records;
  records.reserve(line.merge.size());
  for (const fs::path& path : line.merge)
    records.push_back(readReport(resolved(path)));
  const fs::path directory = usableReportDirectory(*line.report);
  const Rehearsal rehearsal = merged(records);
  return conclude(rehearsal, directory, line.json);
}

int rehearse(const CommandLine& line) {
  // Links are resolved while "/tmp" is still the system's.
  Request request{.image = resolved(line.image),
                  .installed = resolved(line.installed),
                  .plan = resolved(line.plan),
                  .anchors = resolved(line.anchors),
                  .system = line.system,
                  .options = recordedOptions(line),
                  .shard = line.shard,
                  .progress = {},
                  .prove = {}};
  const fs::path scratchParent = resolved(line.scratch);
  const auto report = line.report ? std::optional(usableReportDirectory(*line.report)) : std::nullopt;
  return supervise(scratchParent, [&](const fs::path& scratch) {
    const PrivatePlace place(scratch / "place");
    const Progress progress;
    request.progress = [&](const std::string& text) { progress.show(text); };
    std::string refusal;
    if (!line.proof.empty())
      request.prove = [&](const PrivatePrefix& prefix, const OfferedRelease& release,
                          const Application& installed, const fs::path& directory) -> std::vector<Sweep> {
        try {
          std::vector<Sweep> sweeps =
              proveUpdate(line, prefix, release, installed, directory, request.progress);
          if (const auto untried = std::ranges::find_if(sweeps, isUntried); untried != sweeps.end())
            refusal = untried->name + ": " + untried->points.front().name;
          return sweeps;
        } catch (const platform::Error& failure) {
          refusal = failure.localizedDescription();
          return {{.name = "all sweeps",
                   .total = 1,
                   .points = {{refusal, PointOutcome::notTried, PointMethod::run, {}}}}};
        }
      };
    Rehearsal rehearsal = rehearseRelease(request, place, scratch);
    progress.show({});
    const int status =
        conclude(rehearsal, report ? std::optional(place.reachable(*report)) : std::nullopt, line.json);
    if (refusal.empty())
      return status;
    std::cerr << "quorin-rehearse: The update could not be proved: " << refusal << '\n';
    return status == EXIT_SUCCESS ? kNotRehearsed : status;
  });
}

int run(const std::vector<std::string>& words) {
  try {
    const CommandLine line = parseCommandLine(words);
    if (line.help) {
      print("The help", kUsage);
      return EXIT_SUCCESS;
    }
    return line.merge.empty() ? rehearse(line) : merge(line);
  } catch (const UsageError& error) {
    std::cerr << "quorin-rehearse: " << error.what() << "\n\n" << kUsage;
  } catch (const std::exception& error) {
    std::cerr << "quorin-rehearse: " << sentenceOf(error) << '\n';
  }
  return kNotRehearsed;
}

}  // namespace
}  // namespace rehearse

int main(int count, char** words) {
  platform::ProcessInfo::secureStandardStreams();
  return rehearse::run({words + (count > 0 ? 1 : 0), words + count});
}
