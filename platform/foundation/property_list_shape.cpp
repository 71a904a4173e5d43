#include "platform/foundation/property_list_shape.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace platform {
namespace {

constexpr std::string_view kBinaryMagic = "bplist0";
constexpr std::size_t kTrailerSize = 32;

// --- XML ---

bool startsWithAny(std::string_view text, std::string_view one, std::string_view other) {
  return text.starts_with(one) || text.starts_with(other);
}

/// Counts levels without trusting what only looks like markup: an opening tag counts wherever it stands, a
/// closing one only outside of comments. Behind the first element, markup that a reader might skip in another
/// way is refused.
bool isShallowXML(std::string_view list, std::size_t deepest) {
  std::size_t depth = 0;
  bool inElement = false;
  std::size_t commentEnd = 0;
  for (std::size_t at = list.find('<'); at != std::string_view::npos; at = list.find('<', at + 1)) {
    const std::string_view rest = list.substr(at + 1, 9);
    if (startsWithAny(rest, "array/>", "dict/>")) {
      inElement = true;
    } else if (startsWithAny(rest, "array", "dict")) {
      inElement = true;
      if (++depth > deepest)
        return false;
    } else if (at < commentEnd) {
      continue;
    } else if (startsWithAny(rest, "/array", "/dict")) {
      depth -= depth > 0 ? 1 : 0;
    } else if (rest.starts_with("!--") || rest.starts_with("![CDATA[")) {
      const std::string_view end = rest.starts_with("!--") ? "-->" : "]]>";
      commentEnd = std::min(list.find(end, at + 4), list.size());
    } else if (inElement && startsWithAny(rest, "?", "!")) {
      return false;
    }
  }
  return true;
}

// --- binary ---

std::optional<std::uint64_t> number(std::string_view bytes, std::uint64_t offset, std::uint64_t size) {
  if (size < 1 || size > 8 || offset > bytes.size() || size > bytes.size() - offset)
    return std::nullopt;
  std::uint64_t value = 0;
  for (std::uint64_t index = 0; index < size; ++index)
    value = value << 8U | static_cast<unsigned char>(bytes[offset + index]);
  return value;
}

/// The objects of a binary list, with the references of its arrays and dictionaries.
class BinaryObjects {
 public:
  /// Nothing when the bytes hold no such table.
  static std::optional<BinaryObjects> read(std::string_view list) {
    if (list.size() < kBinaryMagic.size() + kTrailerSize)
      return std::nullopt;
    const std::uint64_t trailer = list.size() - kTrailerSize;
    const auto count = number(list, trailer + 8, 8);
    const auto root = number(list, trailer + 16, 8);
    const auto table = number(list, trailer + 24, 8);
    BinaryObjects objects(list);
    objects.offsetSize_ = *number(list, trailer + 6, 1);
    objects.referenceSize_ = *number(list, trailer + 7, 1);
    // Every object has its place in the table.
    if (*table > list.size() || objects.offsetSize_ == 0 ||
        *count > (list.size() - *table) / objects.offsetSize_ || *root >= *count)
      return std::nullopt;
    objects.count_ = *count;
    objects.root_ = *root;
    objects.table_ = *table;
    return objects;
  }

  std::uint64_t count() const { return count_; }
  std::uint64_t root() const { return root_; }

  /// The number of references of an object, 0 for one that is no container; nothing when it lies outside of
  /// the list.
  std::optional<std::uint64_t> referenceCount(std::uint64_t object) const {
    const auto place = placeOf(object);
    if (!place)
      return std::nullopt;
    return place->references;
  }

  std::optional<std::uint64_t> reference(std::uint64_t object, std::uint64_t index) const {
    const auto place = placeOf(object);
    if (!place || index >= place->references)
      return std::nullopt;
    const auto target = number(list_, place->offset + index * referenceSize_, referenceSize_);
    return target && *target < count_ ? target : std::nullopt;
  }

 private:
  struct Place {
    std::uint64_t offset;
    std::uint64_t references;
  };

  explicit BinaryObjects(std::string_view list) : list_(list) {}

  std::optional<Place> placeOf(std::uint64_t object) const {
    const auto offset = number(list_, table_ + object * offsetSize_, offsetSize_);
    const auto marker = offset ? number(list_, *offset, 1) : std::nullopt;
    if (!marker)
      return std::nullopt;
    const std::uint64_t kind = *marker >> 4U;
    if (kind != 0xA && kind != 0xC && kind != 0xD)
      return Place{*offset, 0};
    std::uint64_t length = *marker & 0xFU;
    std::uint64_t start = *offset + 1;
    if (length == 0xF) {
      const auto width = number(list_, start, 1);
      if (!width || (*width & 0xFU) > 3)
        return std::nullopt;
      const std::uint64_t size = std::uint64_t{1} << (*width & 0xFU);
      const auto longLength = number(list_, start + 1, size);
      if (!longLength)
        return std::nullopt;
      length = *longLength;
      start += 1 + size;
    }
    if (referenceSize_ == 0 || length > list_.size() / referenceSize_)
      return std::nullopt;
    return Place{start, kind == 0xD ? 2 * length : length};
  }

  std::string_view list_;
  std::uint64_t offsetSize_ = 0;
  std::uint64_t referenceSize_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t root_ = 0;
  std::uint64_t table_ = 0;
};

/// Follows every reference, as a reader would, and gives up once there are more of them than a list without
/// sharing could hold in its bytes many times over.
bool isHarmlessBinary(std::string_view list, std::size_t deepest) {
  constexpr std::uint64_t kSharing = 8;
  const std::optional<BinaryObjects> objects = BinaryObjects::read(list);
  if (!objects)
    return false;
  struct Level {
    std::uint64_t object;
    std::uint64_t next;
    std::uint64_t count;
  };
  std::vector<Level> levels;
  std::uint64_t steps = 0;
  std::optional<std::uint64_t> object = objects->root();
  while (true) {
    const auto count = object ? objects->referenceCount(*object) : std::nullopt;
    if (!count || ++steps > kSharing * list.size())
      return false;
    if (*count > 0) {
      if (levels.size() == deepest)
        return false;
      levels.push_back({*object, 0, *count});
    }
    while (!levels.empty() && levels.back().next == levels.back().count)
      levels.pop_back();
    if (levels.empty())
      return true;
    object = objects->reference(levels.back().object, levels.back().next++);
  }
}

}  // namespace

bool hasHarmlessShape(std::string_view list, std::size_t deepest) {
  return list.starts_with(kBinaryMagic) ? isHarmlessBinary(list, deepest) : isShallowXML(list, deepest);
}

}  // namespace platform
