#pragma once

#include <cstddef>
#include <cstdint>

/// Numbers of the Mach-O format, as far as signing and making such files takes them.
namespace sign_bundle::mach_o {

constexpr std::uint32_t kMagic32 = 0xFEEDFACE;
constexpr std::uint32_t kMagic64 = 0xFEEDFACF;
constexpr std::uint32_t kFatMagic = 0xCAFEBABE;
constexpr std::uint32_t kFatMagic64 = 0xCAFEBABF;

constexpr std::size_t kHeaderSize32 = 28;
constexpr std::size_t kHeaderSize64 = 32;
constexpr std::size_t kFatHeaderSize = 8;
constexpr std::size_t kFatEntrySize = 20;
constexpr std::size_t kFatEntrySize64 = 32;

/// A Java class file begins with the magic of a fat file, and then states a version that is larger than this.
constexpr std::uint32_t kMostArchitectures = 30;

constexpr std::uint32_t kSegment32 = 0x01;
constexpr std::uint32_t kSymbolTable = 0x02;
constexpr std::uint32_t kSegment64 = 0x19;
constexpr std::uint32_t kUuid = 0x1B;
constexpr std::uint32_t kCodeSignature = 0x1D;
constexpr std::uint32_t kLoadDynamicLibrary = 0x0C;
constexpr std::uint32_t kDynamicLibraryIdentity = 0x0D;
constexpr std::uint32_t kLoadDynamicLinker = 0x0E;
constexpr std::uint32_t kBuildVersion = 0x32;
constexpr std::uint32_t kMain = 0x80000028;

constexpr std::uint32_t kObjectFile = 1;
constexpr std::uint32_t kExecutable = 2;
constexpr std::uint32_t kDynamicLibrary = 6;
constexpr std::uint32_t kLoadableBundle = 8;

constexpr std::uint32_t kCpuI386 = 7;
constexpr std::uint32_t kCpuPowerPc = 18;
constexpr std::uint32_t kCpuX86_64 = 0x01000007;
constexpr std::uint32_t kCpuArm64 = 0x0100000C;

constexpr std::size_t kSegmentNameSize = 16;

}  // namespace sign_bundle::mach_o
