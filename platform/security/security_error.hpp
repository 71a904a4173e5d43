#pragma once

#include <cstdint>

#include "platform/foundation/error.hpp"

namespace platform {

using OSStatus = std::int32_t;

inline constexpr OSStatus errSecSuccess = 0;
/// The code's signature is valid and the code does not satisfy the requirement; no other failure has this
/// status. Whether what the signature seals is intact was not checked.
inline constexpr OSStatus errSecCSReqFailed = -67050;
/// The requirement's text is none.
inline constexpr OSStatus errSecCSReqInvalid = -67052;
/// A sealed resource is missing, changed or was added, nested code among them.
inline constexpr OSStatus errSecCSBadResource = -67054;
/// The code or its signature is invalid.
inline constexpr OSStatus errSecCSSignatureFailed = -67061;
/// The code bears no signature.
inline constexpr OSStatus errSecCSUnsigned = -67062;
/// There is no code at the path.
inline constexpr OSStatus errSecCSStaticCodeNotFound = -67068;
/// The operation does not know the flags.
inline constexpr OSStatus errSecCSInvalidFlags = -67070;

/// Code that is refused: the kind of refusal, and the sentence that says what is wrong and where.
class SecurityError : public Error {
 public:
  SecurityError(OSStatus status, std::string description) : Error(std::move(description)), status_(status) {}

  OSStatus status() const noexcept { return status_; }

 private:
  OSStatus status_;
};

/// Bytes that break the rules of their format. The description is a clause without a full stop, to stand
/// behind the name of the place, such as "the code directory ends too early".
class FormatError : public Error {
 public:
  using Error::Error;
};

}  // namespace platform
