#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/foundation/error.hpp"

namespace sign_bundle {

/// An invalid command line.
class UsageError : public platform::Error {
 public:
  using Error::Error;
};

/// An option of a command. Names begin with two hyphens.
struct Option {
  std::string_view name;
  /// Stores the value; gets an empty string for an option without one. May throw `UsageError`.
  std::function<void(const std::string& value)> set;
  bool hasValue = true;
};

/// An option without a value.
Option flag(std::string_view name, bool& field);

/// An option whose value is stored as it is.
template <typename Field>
Option text(std::string_view name, Field& field) {
  return {name, [&field](const std::string& value) { field = value; }};
}

/// An option whose value is one of the keys of `choices`.
template <typename Field>
Option choice(std::string_view name, Field& field,
              const std::map<std::string_view, std::type_identity_t<Field>>& choices) {
  return {name, [name, &field, choices](const std::string& value) {
            const auto found = choices.find(value);
            if (found == choices.end())
              throw UsageError(platform::quoted(value) + " is not a value for " + std::string(name) + ".");
            field = found->second;
          }};
}

/// Sets the options that are given and returns the only operand, which `operand` describes. Throws
/// `UsageError`, also for an option given twice.
std::string parseCommandLine(const std::vector<std::string>& words, std::string_view operand,
                             const std::vector<Option>& options);

/// Throws `UsageError` if a required option is missing.
void require(bool given, std::string_view option);

}  // namespace sign_bundle
