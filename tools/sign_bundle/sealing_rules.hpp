#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/formats/property_list.hpp"

namespace sign_bundle {

/// One rule of a resource seal: what happens to the paths that an extended regular expression is found in.
struct ResourceRule {
  std::string pattern;
  double weight = 1;
  bool omit = false;
  bool optional = false;
  bool nested = false;
};

/// The usual rules of the seal in use, and of the older one beside it.
const std::vector<ResourceRule>& usualRules();
const std::vector<ResourceRule>& olderUsualRules();

/// The rules as the seal states them.
platform::PropertyList propertyListOf(const std::vector<ResourceRule>& rules);

/// Decides by the matching rule of the largest weight.
class RuleMatcher {
 public:
  /// Throws `platform::Error` for a pattern that is no regular expression.
  explicit RuleMatcher(const std::vector<ResourceRule>& rules);
  RuleMatcher(const RuleMatcher&) = delete;
  RuleMatcher& operator=(const RuleMatcher&) = delete;
  ~RuleMatcher();

  /// The rule for a path relative to the content directory; null when none matches.
  const ResourceRule* ruleFor(const std::string& path) const;

 private:
  struct Compiled;
  std::vector<Compiled> rules_;
};

}  // namespace sign_bundle
