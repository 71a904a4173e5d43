#pragma once

#include "rehearse/record/rehearsal.hpp"
#include "rehearse/report/html_writer.hpp"

namespace rehearse {

/// "pairing-3", the identifier of an installed version's section; `index` is from 0 on.
std::string anchorOf(std::size_t index);

/// The class of a step's cell and its mark, such as a tick, which `word` goes with.
void writeStepWord(HTMLWriter& html, const Step& step);

/// Every step against every installed version, as a table of words in colours.
void writeMatrix(HTMLWriter& html, const Rehearsal& rehearsal);

}  // namespace rehearse
