#pragma once

#include <string>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// The record as one JSON object, which share/quorin/rehearsal.schema.json describes. Reading it back gives
/// an equal record.
std::string json(const Rehearsal& rehearsal);

/// Throws `platform::Error` with a sentence for text that is no record of a rehearsal.
Rehearsal rehearsalFromJSON(const std::string& text);

/// Joins the shards of one rehearsal: points are added up, steps and findings are taken from the first shard.
/// Throws `platform::Error` with a sentence that says in what two of them differ, which shard is missing, or
/// which comes twice. `records` must not be empty.
Rehearsal merged(const std::vector<Rehearsal>& records);

}  // namespace rehearse
