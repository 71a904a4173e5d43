#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "platform/crypto/digest.hpp"
#include "platform/files/data.hpp"
#include "platform/formats/property_list.hpp"
#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/bytes.hpp"
#include "platform/foundation/error.hpp"
#include "platform/processes/process.hpp"
#include "rehearse/start/start_check.hpp"
#include "rehearse/start/start_instructions.hpp"

namespace {

using platform::Data;
using platform::URL;
using rehearse::JudgedStart;
using rehearse::StartInstructions;

constexpr std::size_t kLargestInformation = 1U << 20U;

std::optional<std::string> informationValue(const URL& application, const char* key) {
  std::optional<std::string> value;
  // The judgement says what is wrong with the property list.
  platform::bestEffort([&] {
    const auto bytes = Data::contentsOf(application.appendingPathComponent("Contents/Info.plist"),
                                        platform::DataReadingOptions::none, kLargestInformation);
    value = platform::NSPropertyListSerialization::propertyListWithData(bytes).stringForKey(key);
  });
  return value;
}

bool isRefused(const URL& application, const StartInstructions& instructions) {
  const auto name = informationValue(application, "CFBundleExecutable");
  if (instructions.refusedExecutables.empty() || !name)
    return false;
  const Data executable =
      Data::contentsOf(application.appendingPathComponent("Contents/MacOS").appendingPathComponent(*name));
  const std::string digest =
      platform::hexadecimal(platform::digestOf(platform::DigestAlgorithm::sha256, executable.bytes()));
  return std::ranges::find(instructions.refusedExecutables, digest) != instructions.refusedExecutables.end();
}

std::string reasonNotToStart(const URL& application, const StartInstructions& instructions) {
  std::string reason;
  for (const auto& [kind, sentence] : rehearse::obstaclesToStart(application.path(), instructions.system))
    reason += (reason.empty() ? "" : " ") + sentence;
  if (reason.empty() && isRefused(application, instructions))
    reason = "This rehearsal refuses the start.";
  return reason;
}

JudgedStart judge(const std::string& given, const StartInstructions& instructions) {
  const URL application = URL::fileURLWithPath(given).standardizedFileURL();
  std::string reason;
  try {
    reason = reasonNotToStart(application, instructions);
  } catch (const platform::Error& error) {
    reason = error.localizedDescription();
  }
  return {.application = given,
          .version = informationValue(application, "CFBundleShortVersionString").value_or(""),
          .starts = reason.empty(),
          .reason = reason};
}

/// Takes the place of the program that starts applications: the same command line, sentences and exit status.
void run() {
  const std::vector<std::string> arguments = platform::ProcessInfo::arguments();
  if (arguments.size() != 3 || arguments[1] != "-n")
    throw platform::Error("Usage: open -n APPLICATION");
  // This program is two levels below its prefix.
  const std::string prefix = platform::installationPrefix().deletingLastPathComponent().path();
  const JudgedStart start = judge(arguments[2], rehearse::readInstructions(prefix));
  rehearse::recordStart(prefix, start);
  if (!start.starts)
    throw platform::Error("The application " +
                          platform::quoted(URL::fileURLWithPath(start.application).path()) +
                          " cannot be opened: " + start.reason);
}

}  // namespace

int main() {
  platform::ProcessInfo::secureStandardStreams();
  try {
    run();
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "%s\n", error.what()));
    return EXIT_FAILURE;
  }
}
