#include "platform/foundation/binary_property_list.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include "platform/foundation/binary_property_list_table.hpp"
#include "platform/foundation/property_list_refusal.hpp"

namespace platform {
namespace {

// What an object costs in memory once it is read, besides its bytes, and what a list may cost as a whole:
// plenty for any list in which only texts and numbers are shared.
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
  refusePropertyList("it holds a text that is not valid");
}

void requireASCII(std::string_view bytes) {
  const auto isForeign = [](char byte) { return byte == 0 || static_cast<std::uint8_t>(byte) >= 0x80; };
  if (std::ranges::any_of(bytes, isForeign))
    refuseText();
}

/// Surrogates come in pairs (Unicode Standard, section 3.9).
void requireUTF16(std::string_view bytes) {
  bool pairIsOpen = false;
  for (std::size_t position = 0; position < bytes.size(); position += 2) {
    const auto high = static_cast<std::uint8_t>(bytes[position]);
    const bool isNull = high == 0 && bytes[position + 1] == 0;
    const bool opensPair = high >= 0xD8 && high <= 0xDB;
    const bool closesPair = high >= 0xDC && high <= 0xDF;
    if (isNull || closesPair != pairIsOpen)
      refuseText();
    pairIsOpen = opensPair;
  }
  if (pairIsOpen)
    refuseText();
}

/// Goes through everything that the root leads to without recursion, each object once: what a shared one
/// costs counts wherever it is referred to, but is known after the first time.
class Walk {
 public:
  explicit Walk(std::string_view bytes) : table_(bytes), visits_(table_.count()) {}

  /// What the whole list costs.
  std::uint64_t run() {
    enter(table_.root());
    while (!path_.empty())
      step();
    return visits_[table_.root()].cost;
  }

 private:
  struct Visit {
    std::uint64_t cost = 0;    ///< with all that the object contains, as far as seen; 0 before the object is
    std::uint32_t levels = 0;  ///< of containers from this object on
    bool isOpen = false;       ///< on the way from the root to the place of work
  };

  struct Place {
    std::uint64_t index;
    BinaryPropertyListObject container;
    std::uint64_t nextReference;
  };

  void enter(std::uint64_t index) {
    const BinaryPropertyListObject object = table_.object(index);
    visits_[index].cost = saturatingSum(kObjectCost, object.bytes.size());
    if (object.kind == BinaryPropertyListObject::Kind::ascii)
      requireASCII(object.bytes);
    if (object.kind == BinaryPropertyListObject::Kind::utf16)
      requireUTF16(object.bytes);
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
      refusePropertyList("one of its containers contains itself");
    if (visits_[target].cost == 0)
      return enter(target);  // and back here once all is known about it
    const bool isKey = place.container.kind == BinaryPropertyListObject::Kind::dictionary &&
                       place.nextReference < references / 2;
    if (isKey && !table_.object(target).isText())
      refusePropertyList("a dictionary has a key that is no text");
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
    if (container.levels > kDeepestPropertyList)
      refuseDeepPropertyList();
  }

  BinaryPropertyListTable table_;
  std::vector<Visit> visits_;
  std::vector<Place> path_;
};

}  // namespace

bool isBinaryPropertyList(std::string_view bytes) {
  return bytes.starts_with("bplist");
}

void requireSafeBinaryPropertyList(std::string_view bytes) {
  if (Walk(bytes).run() > allowance(bytes.size()))
    refusePropertyList("its objects are shared beyond reason");
}

}  // namespace platform
