#pragma once

#include <openssl/crypto.h>

namespace platform {

/// Every source that uses the library includes this, so that it is settled before the first use: no
/// configuration is loaded. It would come from a file that the environment may name, and could put other code
/// in the place of a digest.
// NOLINTNEXTLINE(cert-err58-cpp): a function of C throws nothing
inline const bool kConfigurationIsSkipped = ::OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr) == 1;

}  // namespace platform
