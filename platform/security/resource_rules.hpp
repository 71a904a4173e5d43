#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/formats/property_list.hpp"

namespace platform {

/// Decides which items of a bundle its seal covers. Immutable; copies share the rules.
class ResourceRules {
 public:
  /// Reads the rules of a seal: for each regular expression (POSIX extended, case-insensitive, unanchored)
  /// what applies to the paths that it matches. Throws `FormatError`, also when the rules are too many or too
  /// complex.
  explicit ResourceRules(const PropertyList& rules);

  /// True when the seal omits the item at `path`, which is relative to the content directory. Of the matching
  /// rules the one with the greatest weight decides, and among equals one that seals. A path that no rule
  /// matches is sealed. In the directories for code no rule can omit anything but a folder's view settings
  /// (`.DS_Store`). Takes at most `size()` steps per byte of the path.
  bool omits(std::string_view path) const;

  /// The number of states of all expressions together.
  std::uint64_t size() const noexcept { return size_; }

 private:
  struct Rule;

  std::shared_ptr<const std::vector<Rule>> rules_;
  std::uint64_t size_ = 0;
};

}  // namespace platform
