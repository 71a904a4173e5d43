#pragma once

#include <string>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

enum class Colours {
  none,
  terminal,  ///< escape sequences of ECMA-48; the words alone tell the same
};

/// The record for a terminal or a log, in UTF-8: the verdict first, then the most important finding, then for
/// each installed version a line for every step, what a user finds, and the sweeps, then what was judged and
/// not run, and what was not tried. Lines are not wrapped. Control characters in the record's texts are
/// escaped.
std::string textReport(const Rehearsal& rehearsal, Colours colours = Colours::none);

}  // namespace rehearse
