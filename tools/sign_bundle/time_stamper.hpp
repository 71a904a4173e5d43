#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "tools/sign_bundle/signing_identity.hpp"

namespace sign_bundle {

/// A time stamp token (RFC 3161) for `bytes` in DER, signed by `authority`, with `moment` as its time.
std::string makeTimeStampToken(std::string_view bytes, const Signer& authority, std::time_t moment);

}  // namespace sign_bundle
