#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "rehearse/record/rehearsal.hpp"

// How both reports put the values of a record into words.

namespace rehearse {

std::string wordFor(Severity severity);
std::string wordFor(PointOutcome outcome);

/// What an outsider has to know to read the steps.
inline constexpr const char* kWhatMustBeRefused =
    "The update has to pass, and so has the control. Every other step has to be refused.";

/// "passed", "failed", "not tried", or "refused" for a step that went as it has to by a refusal.
std::string wordFor(const Step& step);

/// "212 ms", "3.4 s", "3 min 4 s"
std::string textOf(Milliseconds time);

/// "12,450"
std::string textOf(std::uint64_t number);

/// In powers of 1000: "0 bytes", "16 kB", "5.3 MB", "184 MB"
std::string bytesOf(std::uint64_t bytes);

/// "1 point", "2,400 points"
std::string counted(std::uint64_t number, std::string_view thing);

/// The lines of a text, without their ends; an empty last line is not one.
std::vector<std::string> linesOf(std::string_view text);

/// "a", "a and b", "a, b and c"
std::string listed(const std::vector<std::string>& texts);

}  // namespace rehearse
