#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace platform {

/// The closed set of keys of a record, for an enumeration `Key` whose cases count from 0 in the order of the
/// names.
template <typename Key, std::size_t count>
class CodingKeySet {
 public:
  constexpr explicit CodingKeySet(const std::array<std::string_view, count>& names) : names_(names) {}

  constexpr std::string_view stringValue(Key key) const { return names_.at(static_cast<std::size_t>(key)); }

  /// The key of that name; nothing for a name that is no key.
  constexpr std::optional<Key> key(std::string_view name) const {
    for (std::size_t index = 0; index < count; ++index) {
      if (names_.at(index) == name)
        return static_cast<Key>(index);
    }
    return std::nullopt;
  }

  /// Keys have no integer values.
  constexpr std::optional<Key> key(int) const { return std::nullopt; }
  constexpr std::optional<int> intValue(Key) const { return std::nullopt; }

 private:
  std::array<std::string_view, count> names_;
};

}  // namespace platform
