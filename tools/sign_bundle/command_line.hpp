#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/error.hpp"

namespace sign_bundle {

/// A command line that cannot be carried out as it stands.
class UsageError : public platform::Error {
 public:
  using Error::Error;
};

/// The operands and options of one command. Every option begins with two hyphens.
class Arguments {
 public:
  /// `flags` are the options without a value, `valued` those that the next argument belongs to.
  /// Throws `UsageError` for any other option, one given twice, and a missing value.
  Arguments(const std::vector<std::string>& arguments, const std::vector<std::string_view>& flags,
            const std::vector<std::string_view>& valued);

  /// The only operand. Throws `UsageError` when there is none or more than one; `what` names it.
  const std::string& operand(std::string_view what) const;

  bool has(std::string_view option) const { return options_.contains(option); }
  std::optional<std::string> value(std::string_view option) const;
  std::string requiredValue(std::string_view option) const;

  /// What the option's value stands for; `fallback` without the option. Throws `UsageError` for another
  /// value.
  template <typename Choice>
  Choice choice(std::string_view option, const std::map<std::string_view, Choice>& choices,
                Choice fallback) const {
    const auto text = value(option);
    if (!text)
      return fallback;
    const auto found = choices.find(*text);
    if (found == choices.end())
      throw UsageError(platform::quoted(*text) + " is no value for " + std::string(option) + ".");
    return found->second;
  }

 private:
  std::vector<std::string> operands_;
  std::map<std::string, std::string, std::less<>> options_;
};

}  // namespace sign_bundle
