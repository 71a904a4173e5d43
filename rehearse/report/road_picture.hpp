#pragma once

#include "rehearse/record/rehearsal.hpp"
#include "rehearse/report/html_writer.hpp"

namespace rehearse {

/// When the undisturbed update ended: the end of its last phase or measurement.
Milliseconds endOf(const Pairing& pairing);

/// The phases of the undisturbed update, as bars on its time, a table's row each. Writes nothing if there are
/// none.
void writeRoad(HTMLWriter& html, const Pairing& pairing);

}  // namespace rehearse
