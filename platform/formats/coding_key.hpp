#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace platform {

/// The keys of a record: an enumeration `Key`, whose values count from 0, and their names in the same order.
template <typename Key, std::size_t count>
class CodingKeySet {
 public:
  constexpr explicit CodingKeySet(const std::array<std::string_view, count>& names) : names_(names) {}

  constexpr std::string_view stringValue(Key key) const { return names_.at(static_cast<std::size_t>(key)); }

  /// The key with that name; nothing if none has it.
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
