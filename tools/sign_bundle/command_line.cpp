#include "tools/sign_bundle/command_line.hpp"

#include <algorithm>

namespace sign_bundle {
namespace {

bool contains(const std::vector<std::string_view>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

Arguments::Arguments(const std::vector<std::string>& arguments, const std::vector<std::string_view>& flags,
                     const std::vector<std::string_view>& valued) {
  for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
    if (!argument->starts_with("--")) {
      operands_.push_back(*argument);
      continue;
    }
    const std::string& option = *argument;
    std::string value;
    if (contains(valued, option)) {
      if (std::next(argument) == arguments.end())
        throw UsageError("The option " + option + " has no value.");
      value = *++argument;
    } else if (!contains(flags, option)) {
      throw UsageError("The option " + option + " is not known here.");
    }
    if (!options_.emplace(option, value).second)
      throw UsageError("The option " + option + " is given twice.");
  }
}

const std::string& Arguments::operand(std::string_view what) const {
  if (operands_.size() != 1)
    throw UsageError("Exactly one " + std::string(what) + " is expected.");
  return operands_.front();
}

std::optional<std::string> Arguments::value(std::string_view option) const {
  const auto found = options_.find(option);
  return found == options_.end() ? std::nullopt : std::optional(found->second);
}

std::string Arguments::requiredValue(std::string_view option) const {
  const auto text = value(option);
  if (!text || text->empty())
    throw UsageError("The option " + std::string(option) + " is needed.");
  return *text;
}

}  // namespace sign_bundle
