#pragma once

#include <cstdint>
#include <string_view>

namespace platform {

/// An object of a binary property list: its kind and its content.
struct BinaryPropertyListObject {
  /// The upper four bits of an object's first byte.
  enum class Kind : std::uint8_t {
    constant = 0x0,
    integer = 0x1,
    real = 0x2,
    date = 0x3,
    data = 0x4,
    ascii = 0x5,
    utf16 = 0x6,  ///< big-endian
    identifier = 0x8,
    array = 0xA,
    dictionary = 0xD,
  };

  Kind kind = Kind::constant;
  std::string_view bytes;
  bool isTrue = false;  ///< of a constant

  bool isContainer() const { return kind == Kind::array || kind == Kind::dictionary; }
  bool isText() const { return kind == Kind::ascii || kind == Kind::utf16; }
};

/// The objects of a binary property list, by index. Its operations check every offset and length, and throw
/// `PropertyListError` for an object that is not within the data or not of a known kind.
class BinaryPropertyListTable {
 public:
  /// `bytes` must outlive the table.
  explicit BinaryPropertyListTable(std::string_view bytes);

  std::uint64_t count() const { return count_; }
  std::uint64_t root() const { return root_; }

  /// The object at `index`, which is below `count()`.
  BinaryPropertyListObject object(std::uint64_t index) const;

  /// The number of a container's references; those of a dictionary are its keys, followed by its values.
  std::uint64_t referenceCount(const BinaryPropertyListObject& container) const {
    return container.bytes.size() / referenceSize_;
  }

  /// The index, below `count()`, of the object that a container refers to at `position`, which is below
  /// `referenceCount()`.
  std::uint64_t reference(const BinaryPropertyListObject& container, std::uint64_t position) const;

 private:
  std::string_view bytes_;    ///< everything before the offset table
  std::string_view offsets_;  ///< the offset table
  std::uint64_t offsetSize_ = 0;
  std::uint64_t referenceSize_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t root_ = 0;
};

}  // namespace platform
