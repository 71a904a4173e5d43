#pragma once

#include <cstddef>
#include <cstdint>

/// Numbers of the Mach-O format.
namespace platform::mach_o {

inline constexpr std::uint32_t kMagic32 = 0xFEEDFACE;
inline constexpr std::uint32_t kMagic64 = 0xFEEDFACF;
inline constexpr std::uint32_t kFatMagic = 0xCAFEBABE;
inline constexpr std::uint32_t kFatMagic64 = 0xCAFEBABF;

inline constexpr std::size_t kHeaderSize32 = 28;
inline constexpr std::size_t kHeaderSize64 = 32;
inline constexpr std::size_t kFatHeaderSize = 8;
inline constexpr std::size_t kFatEntrySize32 = 20;
inline constexpr std::size_t kFatEntrySize64 = 32;
inline constexpr std::size_t kNameSize = 16;

/// A Java class file has the magic of a universal file too, but a version of at least 45 in place of the
/// number of architectures.
inline constexpr std::uint32_t kMostArchitectures = 32;

namespace command {
inline constexpr std::uint32_t kSegment32 = 0x01;
inline constexpr std::uint32_t kSymbolTable = 0x02;
inline constexpr std::uint32_t kLoadDynamicLibrary = 0x0C;
inline constexpr std::uint32_t kDynamicLibraryIdentity = 0x0D;
inline constexpr std::uint32_t kLoadDynamicLinker = 0x0E;
inline constexpr std::uint32_t kSegment64 = 0x19;
inline constexpr std::uint32_t kUuid = 0x1B;
inline constexpr std::uint32_t kCodeSignature = 0x1D;
inline constexpr std::uint32_t kLazyLoadDynamicLibrary = 0x20;
inline constexpr std::uint32_t kLeastMacOS = 0x24;
inline constexpr std::uint32_t kLeastIOS = 0x25;
inline constexpr std::uint32_t kLeastTvOS = 0x2F;
inline constexpr std::uint32_t kLeastWatchOS = 0x30;
inline constexpr std::uint32_t kBuildVersion = 0x32;
inline constexpr std::uint32_t kLoadWeakDynamicLibrary = 0x80000018;
inline constexpr std::uint32_t kRunPath = 0x8000001C;
inline constexpr std::uint32_t kReexportDynamicLibrary = 0x8000001F;
inline constexpr std::uint32_t kLoadUpwardDynamicLibrary = 0x80000023;
inline constexpr std::uint32_t kMain = 0x80000028;
}  // namespace command

namespace file_type {
inline constexpr std::uint32_t kObjectFile = 1;
inline constexpr std::uint32_t kExecutable = 2;
inline constexpr std::uint32_t kPreloadedProgram = 5;
inline constexpr std::uint32_t kDynamicLibrary = 6;
inline constexpr std::uint32_t kDynamicLinker = 7;
inline constexpr std::uint32_t kLoadableBundle = 8;
inline constexpr std::uint32_t kKernelExtension = 11;
}  // namespace file_type

/// What a build version command names.
namespace build_platform {
inline constexpr std::uint32_t kMacOS = 1;
inline constexpr std::uint32_t kIOS = 2;
inline constexpr std::uint32_t kTvOS = 3;
inline constexpr std::uint32_t kWatchOS = 4;
inline constexpr std::uint32_t kCatalyst = 6;
}  // namespace build_platform

namespace cpu {
inline constexpr std::uint32_t kI386 = 7;
inline constexpr std::uint32_t kPowerPc = 18;
inline constexpr std::uint32_t kX86_64 = 0x01000007;
inline constexpr std::uint32_t kArm64 = 0x0100000C;
}  // namespace cpu

}  // namespace platform::mach_o
