#pragma once

#include <string>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// The record as one HTML document in UTF-8 which needs nothing else: no script, and nothing is loaded.
/// Everything in its pictures is also there as text. Points that broke a promise are listed by name. Texts of
/// the record cannot add markup, and their control characters are escaped.
std::string htmlReport(const Rehearsal& rehearsal);

}  // namespace rehearse
