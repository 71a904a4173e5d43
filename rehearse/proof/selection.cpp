#include "rehearse/proof/selection.hpp"

namespace rehearse {
namespace {

/// FNV-1a with the last step of SplitMix64, since the low bits of the former alone depend on little.
std::uint64_t stableHash(std::string_view sweep, std::string_view point, std::uint64_t seed) {
  std::uint64_t hash = 0xcbf29ce484222325U ^ seed;
  const auto add = [&hash](std::string_view text) {
    for (const char character : text) {
      hash ^= static_cast<unsigned char>(character);
      hash *= 0x100000001b3U;
    }
  };
  add(sweep);
  add("/");
  add(point);
  hash = (hash ^ (hash >> 30U)) * 0xbf58476d1ce4e5b9U;
  hash = (hash ^ (hash >> 27U)) * 0x94d049bb133111ebU;
  return hash ^ (hash >> 31U);
}

}  // namespace

bool Selection::samples(std::string_view sweep, std::string_view point) const {
  return every <= 1 || stableHash(sweep, point, 0) % every == 0;
}

bool Selection::isOurs(std::string_view sweep, std::string_view point) const {
  return shard.count <= 1 || stableHash(sweep, point, 1) % shard.count == shard.number - 1;
}

}  // namespace rehearse
