#include "platform/formats/binary_property_list.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <vector>

#include "platform/formats/binary_property_list_table.hpp"
#include "platform/foundation/bytes.hpp"
#include "platform/foundation/text.hpp"

namespace platform {
namespace {

// The estimated memory of a decoded object beyond its content, and the limit for a list: ample unless
// containers are shared heavily.
constexpr std::uint64_t kObjectCost = 128;
constexpr std::uint64_t kLeastAllowance = std::uint64_t{16} << 20U;
constexpr std::uint64_t kAllowancePerByte = 256;
constexpr std::uint64_t kGreatestAllowance = std::uint64_t{1} << 30U;

std::uint64_t allowance(std::size_t size) {
  return std::min(kLeastAllowance + kAllowancePerByte * std::min<std::uint64_t>(size, kGreatestAllowance),
                  kGreatestAllowance);
}

std::uint64_t saturatingSum(std::uint64_t left, std::uint64_t right) {
  constexpr std::uint64_t kGreatest = std::numeric_limits<std::uint64_t>::max();
  return left > kGreatest - right ? kGreatest : left + right;
}

[[noreturn]] void refuseText() {
  throw PropertyListError::invalid("it contains a string that is not valid");
}

void requireText(const BinaryPropertyListObject& object) {
  using Kind = BinaryPropertyListObject::Kind;
  const auto isForeign = [](char byte) { return byte == 0 || static_cast<std::uint8_t>(byte) >= 0x80; };
  if (object.kind == Kind::ascii && std::ranges::any_of(object.bytes, isForeign))
    refuseText();
  if (object.kind != Kind::utf16)
    return;
  const auto text = stringFromUTF16(object.bytes);
  if (!text || text->find('\0') != std::string::npos)
    refuseText();
}

/// Visits each object that is reachable from the root once, without recursion. The cost of a shared object
/// counts at every reference.
class Walk {
 public:
  explicit Walk(const BinaryPropertyListTable& table) : table_(table), visits_(table_.count()) {}

  /// Returns the cost of the whole list.
  std::uint64_t run() {
    enter(table_.root());
    while (!path_.empty())
      step();
    return visits_[table_.root()].cost;
  }

 private:
  struct Visit {
    std::uint64_t cost = 0;    ///< of the object and the contents seen so far; 0 before its visit
    std::uint32_t levels = 0;  ///< of containers, from this object down
    bool isOpen = false;       ///< on the path from the root to the current object
  };

  struct Place {
    std::uint64_t index;
    BinaryPropertyListObject container;
    std::uint64_t nextReference;
  };

  void enter(std::uint64_t index) {
    const BinaryPropertyListObject object = table_.object(index);
    visits_[index].cost = saturatingSum(kObjectCost, object.bytes.size());
    requireText(object);
    if (!object.isContainer())
      return;
    visits_[index].isOpen = true;
    visits_[index].levels = 1;
    path_.push_back({index, object, 0});
  }

  void step() {
    Place& place = path_.back();
    const std::uint64_t references = table_.referenceCount(place.container);
    if (place.nextReference == references)
      return leave();
    const std::uint64_t target = table_.reference(place.container, place.nextReference);
    if (visits_[target].isOpen)
      throw PropertyListError::invalid("one of its containers contains itself");
    if (visits_[target].cost == 0)
      return enter(target);  // this reference is read again after the visit
    const bool isKey = place.container.kind == BinaryPropertyListObject::Kind::dictionary &&
                       place.nextReference < references / 2;
    if (isKey && !table_.object(target).isText())
      throw PropertyListError::invalid("a key in one of its dictionaries is not a string");
    count(visits_[target], visits_[place.index]);
    ++place.nextReference;
  }

  void leave() {
    visits_[path_.back().index].isOpen = false;
    path_.pop_back();
  }

  static void count(const Visit& element, Visit& container) {
    container.cost = saturatingSum(container.cost, element.cost);
    container.levels = std::max(container.levels, element.levels + 1);
    if (container.levels > PropertyList::kGreatestDepth)
      throw PropertyListError::tooDeep();
  }

  const BinaryPropertyListTable& table_;
  std::vector<Visit> visits_;
  std::vector<Place> path_;
};

/// Integers of up to four bytes are unsigned, longer ones signed.
PropertyList integer(std::string_view bytes) {
  const std::uint64_t low = bigEndian(bytes.substr(bytes.size() - std::min<std::size_t>(bytes.size(), 8)));
  const auto value = static_cast<std::int64_t>(low);
  const std::uint64_t signExtension = value < 0 ? std::numeric_limits<std::uint64_t>::max() : 0;
  if (bytes.size() > 8 && bigEndian(bytes.substr(0, 8)) != signExtension)
    return PropertyList::other();
  return PropertyList(value);
}

PropertyList real(std::string_view bytes) {
  const std::uint64_t bits = bigEndian(bytes);
  if (bytes.size() == sizeof(float))
    return PropertyList(double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))});
  return PropertyList(std::bit_cast<double>(bits));
}

/// The value of a string that `requireText` has accepted.
std::string textOf(const BinaryPropertyListObject& object) {
  return object.kind == BinaryPropertyListObject::Kind::utf16 ? *stringFromUTF16(object.bytes)
                                                              : std::string(object.bytes);
}

/// Decodes the object and its contents. `Walk` has limited the depth and the number of copies.
PropertyList decoded(const BinaryPropertyListTable& table, std::uint64_t index) {
  using Kind = BinaryPropertyListObject::Kind;
  const BinaryPropertyListObject object = table.object(index);
  const auto element = [&](std::uint64_t position) {
    return decoded(table, table.reference(object, position));
  };
  switch (object.kind) {
    case Kind::constant:
      return PropertyList(object.isTrue);
    case Kind::integer:
      return integer(object.bytes);
    case Kind::real:
      return real(object.bytes);
    case Kind::data:
      return PropertyList(Data(std::string(object.bytes)));
    case Kind::ascii:
    case Kind::utf16:
      return textOf(object);
    case Kind::array: {
      PropertyList::Array array;
      for (std::uint64_t position = 0; position < table.referenceCount(object); ++position)
        array.push_back(element(position));
      return PropertyList(std::move(array));
    }
    case Kind::dictionary: {
      PropertyList::Dictionary dictionary;
      const std::uint64_t members = table.referenceCount(object) / 2;
      for (std::uint64_t position = 0; position < members; ++position)
        dictionary.insert_or_assign(textOf(table.object(table.reference(object, position))),
                                    element(members + position));
      return PropertyList(std::move(dictionary));
    }
    case Kind::date:
    case Kind::identifier:
      break;
  }
  return PropertyList::other();
}

}  // namespace

bool isBinaryPropertyList(std::string_view bytes) {
  return bytes.starts_with("bplist");
}

PropertyList readBinaryPropertyList(std::string_view bytes) {
  const BinaryPropertyListTable table(bytes);
  if (Walk(table).run() > allowance(bytes.size()))
    throw PropertyListError::invalid("its objects are shared too often");
  return decoded(table, table.root());
}

}  // namespace platform
