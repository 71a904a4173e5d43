#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/formats/property_list.hpp"

namespace platform {

/// Decides which items of a bundle its seal covers. Copies share the rules.
class ResourceRules {
 public:
  /// Reads the rules of a seal: regular expressions (POSIX extended, searched in the path without regard to
  /// case) with what holds for the paths that they match. Throws `FormatError` for a rule that cannot be
  /// read.
  explicit ResourceRules(const PropertyList& rules);

  /// True when the seal leaves the item out. Of the rules that match, the one of the greatest weight decides,
  /// and among equals one that seals; what no rule matches is sealed. Where a bundle keeps its code, no rule
  /// leaves out more than a folder's view settings (`.DS_Store`). Takes at most `size()` steps for a byte of
  /// the path.
  bool omits(std::string_view path) const;

  /// How complex the rules are: the states of all their expressions.
  std::uint64_t size() const noexcept { return size_; }

 private:
  struct Rule;

  std::shared_ptr<const std::vector<Rule>> rules_;
  std::uint64_t size_ = 0;
};

}  // namespace platform
