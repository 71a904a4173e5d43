#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/formats/property_list.hpp"

namespace sign_bundle {

/// A rule of a resource seal, for paths that contain a match of an extended regular expression.
struct ResourceRule {
  std::string pattern;
  double weight = 1;
  bool omit = false;
  bool optional = false;
  bool nested = false;
};

/// The default rules of the current and of the older seal.
const std::vector<ResourceRule>& currentRules();
const std::vector<ResourceRule>& olderRules();

/// The rules in the form of the seal.
platform::PropertyList propertyListOf(const std::vector<ResourceRule>& rules);

/// Finds the matching rule of the largest weight.
class RuleMatcher {
 public:
  /// Throws `platform::Error` for a malformed pattern.
  explicit RuleMatcher(const std::vector<ResourceRule>& rules);
  RuleMatcher(const RuleMatcher&) = delete;
  RuleMatcher& operator=(const RuleMatcher&) = delete;
  ~RuleMatcher();

  /// The rule for a path relative to the content directory; null if none matches.
  const ResourceRule* ruleFor(const std::string& path) const;

 private:
  struct Compiled;
  std::vector<Compiled> rules_;
};

}  // namespace sign_bundle
