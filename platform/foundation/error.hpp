#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The common base of every failure of this system: a thrown value that knows its sentence for a person.
/// Copying it never fails.
class Error : public std::exception {
 public:
  explicit Error(std::string description);

  /// What failed and why, as one sentence for a person.
  std::string localizedDescription() const { return *description_; }
  const char* what() const noexcept override { return description_->c_str(); }

 private:
  std::shared_ptr<const std::string> description_;
};

/// A failure that one of this system's modules has found itself.
class LocalizedError : public Error {
 public:
  using Error::Error;

  /// The `localizedDescription()`; never absent.
  std::optional<std::string> errorDescription() const { return localizedDescription(); }
};

/// A call to the operating system that failed. The sentence reads: `what`, a colon, the system's reason.
class SystemError : public Error {
 public:
  /// `errorNumber` is a value of `errno`, saved before any other call.
  SystemError(std::string_view what, int errorNumber);

  int errorNumber() const noexcept { return errorNumber_; }

 private:
  int errorNumber_;
};

/// A path or name as it stands in a sentence: in double quotes. Whatever could break the line, act on a
/// terminal, turn the direction of writing or be no text is written as its bytes, such as "\x0A".
std::string quoted(std::string_view name);

/// The system's text for an error number, without a full stop.
std::string reasonOf(int errorNumber);

}  // namespace platform
