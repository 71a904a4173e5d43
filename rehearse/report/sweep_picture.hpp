#pragma once

#include <string>

#include "rehearse/record/rehearsal.hpp"
#include "rehearse/report/html_writer.hpp"

namespace rehearse {

/// What the marks of the strips mean.
void writeKeyOfStrips(HTMLWriter& html);

/// A sweep as a strip in which every point is a mark, what it proves in a sentence, the points that broke a
/// promise as a list, and all points in words. `anchor` is an identifier that no other sweep has.
void writeSweep(HTMLWriter& html, const Sweep& sweep, const std::string& anchor);

}  // namespace rehearse
