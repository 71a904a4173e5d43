#pragma once

#include <optional>
#include <string>

#include "platform/files/url.hpp"
#include "platform/foundation/error.hpp"

/// Verifies code on disk: is it validly signed with a Developer ID of the expected team, under the expected
/// identifier? Nothing on disk changes. Every failure is thrown as `Failure`.
namespace QuorinSupport::CodeSignature {

/// What a signature states about itself; absent where it is missing or not a string.
struct Info {
  std::optional<std::string> identifier;
  std::optional<std::string> teamIdentifier;
};

class Failure : public platform::LocalizedError {
 public:
  enum class Case { invalid, untrusted, unreadable };

  /// The code or its signature is not valid, as `message` says.
  static Failure invalid(std::string message);
  /// The signer or the identifier is not the expected one. `message` names the difference.
  static Failure untrusted(std::string message);
  /// There is no code at the path.
  static Failure unreadable();

  /// Same case and same message.
  bool operator==(const Failure& other) const { return case_ == other.case_ && message_ == other.message_; }

 private:
  Failure(Case kind, std::string message, const std::string& description)
      : LocalizedError(description), case_(kind), message_(std::move(message)) {}

  Case case_;
  std::string message_;
};

/// The requirement that code with this identifier is signed with a Developer ID of this team. Absent unless
/// `team` consists of upper-case letters and decimal digits and `identifier` of ASCII letters, digits and
/// ".-_", and neither is empty.
std::optional<std::string> developerIDRequirement(const std::string& identifier, const std::string& team);

/// Checks that the code is validly signed as a whole, with all architectures and nested code, and that it
/// satisfies the requirement if there is one.
Info validate(const platform::URL& code, const std::optional<std::string>& requirement);

/// Returns when the code is validly signed with a Developer ID of the team under the identifier.
void validateDeveloperID(const platform::URL& code, const std::string& identifier, const std::string& team);

/// The team that has signed the code with a Developer ID under the identifier.
std::string developerIDTeam(const platform::URL& code, const std::string& identifier);

}  // namespace QuorinSupport::CodeSignature
