#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// Which points of the sweeps are tried. What it chooses depends on names alone, so that machines that share
/// a proof need not agree on more: every point is in one shard.
struct Selection {
  std::size_t every = 1;  ///< one point of so many
  Shard shard;

  /// Whether a point is in the sample.
  bool samples(std::string_view sweep, std::string_view point) const;
  /// Whether a point is in the shard.
  bool isOurs(std::string_view sweep, std::string_view point) const;
};

}  // namespace rehearse
