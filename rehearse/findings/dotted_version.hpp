#pragma once

#include <compare>
#include <string_view>

namespace rehearse {

/// Compares two versions as the platform orders those of applications: numbers separated by dots, of any
/// length, where a missing one counts as 0. A number may be followed by letters, as in "2.0b3", which come
/// before the number alone.
std::weak_ordering compareVersions(std::string_view one, std::string_view other);

}  // namespace rehearse
