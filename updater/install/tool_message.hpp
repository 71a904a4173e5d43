#pragma once

#include <string>

#include "platform/files/data.hpp"

namespace QuorinOstrevalUpdater {

/// The message of a failed tool: its output without leading and trailing white space, or `fallback` when that
/// is empty or not valid UTF-8.
std::string text(const platform::Data& output, const std::string& fallback);

}  // namespace QuorinOstrevalUpdater
