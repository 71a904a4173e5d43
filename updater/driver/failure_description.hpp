#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace QuorinOstrevalUpdater {

/// The sentence of an exception, to be constructed inside its handler. Constructing and reading it never
/// fails, not even when memory has run out.
class FailureDescription {
 public:
  /// Describes the exception that is being handled.
  FailureDescription() noexcept;

  std::string_view text() const noexcept { return text_.empty() ? fallback_ : std::string_view(text_); }

 private:
  std::string text_;
  std::string_view fallback_;
};

}  // namespace QuorinOstrevalUpdater
