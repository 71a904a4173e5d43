#pragma once

#include <cerrno>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The common base of every failure in this system: a thrown value with a sentence for a person.
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

/// A failure that a module of this system detects itself.
class LocalizedError : public Error {
 public:
  using Error::Error;

  /// The `localizedDescription()`; never absent.
  std::optional<std::string> errorDescription() const { return localizedDescription(); }
};

/// A failed call to the operating system.
class SystemError : public Error {
 public:
  /// `what` is the first half of the sentence, such as "X could not be opened". `errorNumber` is the value of
  /// `errno`, saved before any other call; it provides the reason.
  SystemError(std::string_view what, int errorNumber);

  int errorNumber() const noexcept { return errorNumber_; }

 private:
  int errorNumber_;
};

/// A failure that does not name the item that it is about. Its reason is a clause, such as "the code
/// directory ends too early", from which a caller that knows the item makes a sentence.
class ItemError : public Error {
 public:
  explicit ItemError(std::string reason);

  const std::string& reason() const noexcept { return *reason_; }

 private:
  std::shared_ptr<const std::string> reason_;
};

/// Bytes that violate the rules of their format.
class FormatError : public ItemError {
 public:
  using ItemError::ItemError;

  static FormatError truncated(std::string_view item) {
    return FormatError(std::string(item) + " ends too early");
  }
};

/// What failed and why, as one sentence: "`what`: `reason`." The reason is a clause.
std::string sentence(std::string_view what, std::string_view reason);

/// The same with the reason of `cause`: the clause of an `ItemError`, the whole sentence of any other
/// failure.
std::string sentence(std::string_view what, const Error& cause);

/// A path or name in double quotes, for a sentence. Control characters, directional formatting characters,
/// and bytes that are not UTF-8 are escaped, such as "\x0A".
std::string quoted(std::string_view name);

/// The same without the quotes.
std::string printable(std::string_view text);

/// The system's text for an error number, without a full stop.
std::string reasonOf(int errorNumber);

/// Retries a system call while it fails with -1 and EINTR. Not for `close`, which releases the descriptor
/// even then.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR)
    result = call();
  return result;
}

}  // namespace platform
