#pragma once

#include <string>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// The record as one JSON object, which share/quorin/rehearsal.schema.json describes. Reading it back gives
/// an equal record if its texts are UTF-8.
std::string json(const Rehearsal& rehearsal);

/// Throws `platform::Error` with a sentence for text that is not the record of a rehearsal, or one of another
/// version. Members that are not known are ignored.
Rehearsal rehearsalFromJSON(const std::string& text);

/// Joins the shards of one rehearsal. Points are put about in the order of their
/// sweep; one that several shards have counts once. Nothing that one shard
/// found is dropped: findings and what was not tried are united, and of the verdicts on one step the failed
/// one counts, then the passed one. What else is measured is the first shard's. The date is the earliest, the
/// duration the longest. The image and the applications are the same if their digests and versions are,
/// wherever they were read from. Throws `platform::Error` with a sentence that says in what two of them
/// differ, which shard is missing, or which comes twice. `records` must not be empty.
Rehearsal merged(const std::vector<Rehearsal>& records);

}  // namespace rehearse
