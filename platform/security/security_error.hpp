#pragma once

#include <cstdint>

#include "platform/foundation/error.hpp"

namespace platform {

using OSStatus = std::int32_t;

inline constexpr OSStatus errSecSuccess = 0;
/// The signature is valid, but the code does not satisfy the requirement; used for no other failure. The
/// sealed resources were not checked.
inline constexpr OSStatus errSecCSReqFailed = -67050;
/// The requirement's text is malformed.
inline constexpr OSStatus errSecCSReqInvalid = -67052;
/// A resource or nested code is missing, was changed or was added.
inline constexpr OSStatus errSecCSBadResource = -67054;
/// The code or its signature is invalid.
inline constexpr OSStatus errSecCSSignatureFailed = -67061;
/// The code is not signed.
inline constexpr OSStatus errSecCSUnsigned = -67062;
/// There is no code at the path.
inline constexpr OSStatus errSecCSStaticCodeNotFound = -67068;
/// The operation does not support the flags.
inline constexpr OSStatus errSecCSInvalidFlags = -67070;

/// Code was rejected: a status, and a sentence with the item and the reason.
class SecurityError : public Error {
 public:
  SecurityError(OSStatus status, std::string description) : Error(std::move(description)), status_(status) {}

  OSStatus status() const noexcept { return status_; }

 private:
  OSStatus status_;
};

}  // namespace platform
