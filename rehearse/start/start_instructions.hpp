#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/formats/coding_key.hpp"
#include "platform/formats/json.hpp"
#include "rehearse/start/start_check.hpp"

namespace rehearse {

/// What the judge of starts goes by: an XML property list with the keys SystemVersion, a string such as
/// "14.0", and RefusedExecutables, an array of strings.
struct StartInstructions {
  SystemVersion system;
  /// SHA-256 digests, in lower-case hexadecimal, of main executables whose start is refused.
  std::vector<std::string> refusedExecutables;
};

/// A start that was asked for: a line of JSON with members named like the fields.
struct JudgedStart {
  std::string application;  ///< the path as it was given
  std::string version;      ///< CFBundleShortVersionString; empty when it cannot be read
  bool starts = false;
  std::string reason;  ///< the sentences why it cannot start, one after the other; empty when it can

  static JudgedStart decode(const platform::KeyedDecodingContainer& container);
  void encode(platform::KeyedEncodingContainer& container) const;

  bool operator==(const JudgedStart&) const = default;
};

/// The files of a prefix: "share/quorin/start/instructions.plist", and "share/quorin/start/starts", to which
/// the judge appends a line for each start.
std::filesystem::path instructionsIn(const std::filesystem::path& prefix);
std::filesystem::path startsIn(const std::filesystem::path& prefix);

/// Writes the instructions of a prefix and forgets the starts that were judged by earlier ones. Throws
/// `platform::Error`.
void instruct(const std::filesystem::path& prefix, const StartInstructions& instructions);

/// Throws `platform::Error` when there are none or they cannot be understood.
StartInstructions readInstructions(const std::filesystem::path& prefix);

/// Appends a line. Throws `platform::Error`.
void recordStart(const std::filesystem::path& prefix, const JudgedStart& start);

/// The starts since `instruct`, in order. Throws `platform::Error`.
std::vector<JudgedStart> judgedStarts(const std::filesystem::path& prefix);

}  // namespace rehearse
