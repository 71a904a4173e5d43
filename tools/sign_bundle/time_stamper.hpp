#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "tools/sign_bundle/chain_maker.hpp"

namespace sign_bundle {

/// A time stamp token (RFC 3161) in DER, by `authority`, that says: `bytes` existed at `moment`.
std::string makeTimeStampToken(std::string_view bytes, const Signer& authority, std::time_t moment);

}  // namespace sign_bundle
