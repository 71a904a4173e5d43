#pragma once

#include <string>

#include "platform/files/url.hpp"

namespace QuorinOstrevalUpdater {

/// The SHA-256 digest of a file's content as 64 hexadecimal digits in lower case. The file is read once, in
/// chunks of 1 MiB, one of which is in memory at a time. Throws what opening or reading it throws.
std::string sha256(const platform::URL& file);

}  // namespace QuorinOstrevalUpdater
