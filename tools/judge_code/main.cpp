// Says what the system thinks of code on disk:
//   judge_code PATH                       is it validly signed, and as what?
//   judge_code PATH IDENTIFIER            ... with a Developer ID, under this identifier?
//   judge_code PATH IDENTIFIER TEAM       ... of this team?
//   judge_code PATH --requirement TEXT    does it satisfy this requirement?
// One line on standard output. The exit status is 0 for code that is accepted, 1 for refused code, 2 for a
// wrong call.
#include <iostream>

#include "platform/foundation/process_info.hpp"
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

}  // namespace

int main() {
  try {
    const std::vector<std::string> arguments = platform::ProcessInfo::arguments();
    if (arguments.size() < 2 || arguments.size() > 4) {
      std::cerr << "usage: judge_code PATH [IDENTIFIER [TEAM] | --requirement TEXT]\n";
      return 2;
    }
    const std::string verdict = judge(arguments);
    std::cout << "accepted: " << verdict << '\n';
    return 0;
  } catch (const platform::Error& error) {
    std::cout << "refused: " << error.localizedDescription() << '\n';
    return 1;
  }
}
