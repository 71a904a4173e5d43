// Checks the signature of code on disk:
//   judge_code PATH                       is it validly signed, and as what?
//   judge_code PATH IDENTIFIER            ... with a Developer ID, under this identifier?
//   judge_code PATH IDENTIFIER TEAM       ... of this team?
//   judge_code PATH --requirement TEXT    does it satisfy this requirement?
// Prints one line: the verdict or, with --status before PATH, the status code of the check. Exits with 0 for
// accepted code, 1 for refused code, 2 for a usage error or when there is no verdict.
#include <exception>
#include <iostream>

#include "platform/processes/process.hpp"
#include "platform/security/security.hpp"
#include "support/code_signature.hpp"

namespace {

using platform::URL;
namespace CodeSignature = QuorinSupport::CodeSignature;

std::string judge(const std::vector<std::string>& arguments) {
  const URL code = URL::fileURLWithPath(arguments[1]);
  if (arguments.size() == 4 && arguments[2] != "--requirement") {
    CodeSignature::validateDeveloperID(code, arguments[2], arguments[3]);
    return "Developer ID of " + arguments[3];
  }
  if (arguments.size() == 3)
    return "Developer ID of " + CodeSignature::developerIDTeam(code, arguments[2]);
  const bool hasRequirement = arguments.size() == 4;
  const CodeSignature::Info info =
      CodeSignature::validate(code, hasRequirement ? std::optional(arguments[3]) : std::nullopt);
  return "validly signed as " + info.identifier.value_or("(nothing)") + ", team " +
         info.teamIdentifier.value_or("(none)");
}

/// The status of code that `judge` refuses.
platform::OSStatus statusOfRefusal(const std::vector<std::string>& arguments) {
  const URL path = URL::fileURLWithPath(arguments[1]);
  const auto object = platform::SecStaticCodeCreateWithPath(path, platform::kSecCSDefaultFlags);
  if (object.status != platform::errSecSuccess)
    return object.status;
  platform::SecRequirementResult requirement;
  if (arguments.size() == 4 && arguments[2] == "--requirement")
    requirement = platform::SecRequirementCreateWithString(arguments[3], platform::kSecCSDefaultFlags);
  if (arguments.size() == 4 && arguments[2] != "--requirement") {
    const auto developerID = CodeSignature::developerIDRequirement(arguments[2], arguments[3]);
    if (!developerID)
      return platform::errSecCSReqFailed;
    requirement = platform::SecRequirementCreateWithString(*developerID, platform::kSecCSDefaultFlags);
  }
  if (requirement.status != platform::errSecSuccess)
    return requirement.status;
  constexpr platform::SecCSFlags kFlags = platform::kSecCSCheckAllArchitectures |
                                          platform::kSecCSCheckNestedCode | platform::kSecCSStrictValidate;
  const auto validity =
      platform::SecStaticCodeCheckValidityWithErrors(object.code, kFlags, requirement.requirement);
  // Valid code is refused for its identifier or team.
  return validity.status == platform::errSecSuccess ? platform::errSecCSReqFailed : validity.status;
}

/// Returns the exit status.
int printVerdict(const std::vector<std::string>& arguments, bool asNumber) {
  int exitStatus = 0;
  std::string line;
  try {
    const std::string verdict = judge(arguments);
    line = asNumber ? "0" : "accepted: " + verdict;
  } catch (const platform::Error& error) {
    exitStatus = 1;
    line = asNumber ? std::to_string(statusOfRefusal(arguments)) : "refused: " + error.localizedDescription();
  }
  if (!(std::cout << line << std::endl))
    throw platform::Error("The verdict could not be written.");
  return exitStatus;
}

}  // namespace

int main() {
  platform::ProcessInfo::secureStandardStreams();
  try {
    std::vector<std::string> arguments = platform::ProcessInfo::arguments();
    const bool asNumber = arguments.size() > 1 && arguments[1] == "--status";
    if (asNumber)
      arguments.erase(arguments.begin() + 1);
    const bool lacksRequirement = arguments.size() == 3 && arguments[2] == "--requirement";
    if (arguments.size() < 2 || arguments.size() > 4 || lacksRequirement) {
      std::cerr << "usage: judge_code [--status] PATH [IDENTIFIER [TEAM] | --requirement TEXT]\n";
      return 2;
    }
    return printVerdict(arguments, asNumber);
  } catch (const std::exception& error) {
    std::cerr << "judge_code: " << error.what() << '\n';
    return 2;
  }
}
