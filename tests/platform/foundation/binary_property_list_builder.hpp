#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/bytes.hpp"

namespace test {

/// Puts together a property list in the binary form, whether it makes sense or not. Every operation adds an
/// object and returns its index.
class BinaryPropertyListBuilder {
 public:
  using References = std::vector<std::uint32_t>;

  /// An object with these very bytes.
  std::uint32_t add(const std::string& bytes) {
    offsets_.push_back(bytes_.size());
    bytes_ += bytes;
    return static_cast<std::uint32_t>(offsets_.size() - 1);
  }

  std::uint32_t integer(std::int64_t value) {
    return add('\x13' + bigEndian(static_cast<std::uint64_t>(value), 8));
  }
  std::uint32_t real(double value);
  std::uint32_t data(const std::string& value) { return add(head(0x40, value.size()) + value); }
  std::uint32_t ascii(const std::string& text) { return add(head(0x50, text.size()) + text); }
  std::uint32_t utf16(std::u16string_view text);
  std::uint32_t array(const References& items) { return add(head(0xA0, items.size()) + references(items)); }
  std::uint32_t dictionary(const References& keys, const References& values) {
    return add(head(0xD0, keys.size()) + references(keys) + references(values));
  }

  /// The whole list.
  std::string finish(std::uint32_t root) const;

 private:
  static std::string head(unsigned kind, std::size_t length);
  static std::string references(const References& indices);

  std::string bytes_ = "bplist00";
  std::vector<std::size_t> offsets_;
};

}  // namespace test
