#pragma once

#include "rehearse/record/rehearsal.hpp"
#include "rehearse/report/html_writer.hpp"

namespace rehearse {

/// What the update occupies over its time, beside the target and in "/tmp", on the time axis of the road.
/// Writes nothing if it was not measured.
void writeDiskUse(HTMLWriter& html, const Pairing& pairing);

}  // namespace rehearse
