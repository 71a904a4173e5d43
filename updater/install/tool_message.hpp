#pragma once

#include <string>

#include "platform/files/data.hpp"

namespace QuorinOstrevalUpdater {

/// The message of a failed tool: its output as text without white space at both ends, or `fallback` unchanged
/// when that is empty or no valid UTF-8.
std::string text(const platform::Data& output, const std::string& fallback);

}  // namespace QuorinOstrevalUpdater
