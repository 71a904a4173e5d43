#include "tools/sign_bundle/command_line.hpp"

#include <algorithm>
#include <set>

namespace sign_bundle {

Option flag(std::string_view name, bool& field) {
  return {name, [&field](const std::string&) { field = true; }, false};
}

std::string parseCommandLine(const std::vector<std::string>& words, std::string_view operand,
                             const std::vector<Option>& options) {
  std::vector<std::string> operands;
  std::set<std::string> given;
  for (auto word = words.begin(); word != words.end(); ++word) {
    if (!word->starts_with("--")) {
      operands.push_back(*word);
      continue;
    }
    const std::string& name = *word;
    const auto option =
        std::find_if(options.begin(), options.end(), [&](const Option& known) { return known.name == name; });
    if (option == options.end())
      throw UsageError("The option " + name + " is not known here.");
    if (!given.insert(name).second)
      throw UsageError("The option " + name + " is given twice.");
    if (option->hasValue && ++word == words.end())
      throw UsageError("The option " + name + " has no value.");
    option->set(option->hasValue ? *word : std::string());
  }
  if (operands.size() != 1)
    throw UsageError("Exactly one " + std::string(operand) + " is expected.");
  return operands.front();
}

void require(bool given, std::string_view option) {
  if (!given)
    throw UsageError("The option " + std::string(option) + " is needed.");
}

}  // namespace sign_bundle
