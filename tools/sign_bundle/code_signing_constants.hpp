#pragma once

#include <cstdint>

/// Numbers of the on-disk format of a code signature. Everything in a signature is big-endian.
namespace sign_bundle {

namespace magic {
constexpr std::uint32_t kRequirement = 0xFADE0C00;
constexpr std::uint32_t kRequirementSet = 0xFADE0C01;
constexpr std::uint32_t kCodeDirectory = 0xFADE0C02;
constexpr std::uint32_t kEmbeddedSignature = 0xFADE0CC0;
constexpr std::uint32_t kEntitlements = 0xFADE7171;
constexpr std::uint32_t kWrapper = 0xFADE0B01;
/// Of no known component.
constexpr std::uint32_t kLater = 0xFADE9999;
}  // namespace magic

namespace slot {
constexpr std::uint32_t kCodeDirectory = 0;
constexpr std::uint32_t kInfoPlist = 1;
constexpr std::uint32_t kRequirements = 2;
constexpr std::uint32_t kCodeResources = 3;
constexpr std::uint32_t kEntitlements = 5;
constexpr std::uint32_t kLater = 12;
constexpr std::uint32_t kAlternateCodeDirectory = 0x1000;
constexpr std::uint32_t kSignature = 0x10000;
}  // namespace slot

namespace code_flag {
constexpr std::uint32_t kAdHoc = 0x2;
constexpr std::uint32_t kHardenedRuntime = 0x10000;
}  // namespace code_flag

/// In the code directory: the slice holds a main program.
constexpr std::uint64_t kMainBinary = 1;

/// The requirement type under which code states what a later version of it must satisfy.
constexpr std::uint32_t kDesignatedRequirement = 3;

/// Names of the platform's own certificate extensions and signed attributes.
constexpr const char* kIntermediateExtension = "1.2.840.113635.100.6.2.6";
constexpr const char* kLeafExtension = "1.2.840.113635.100.6.1.13";
constexpr const char* kKernelExtensionLeafExtension = "1.2.840.113635.100.6.1.18";
constexpr const char* kStoreLeafExtension = "1.2.840.113635.100.6.1.7";
constexpr const char* kDevelopmentLeafExtension = "1.2.840.113635.100.6.1.12";
constexpr const char* kCodeDirectoryHashList = "1.2.840.113635.100.9.1";
constexpr const char* kCodeDirectoryDigests = "1.2.840.113635.100.9.2";
/// RFC 3161, appendix A: the time stamp token of a signature.
constexpr const char* kTimeStampToken = "1.2.840.113549.1.9.16.2.14";

}  // namespace sign_bundle
