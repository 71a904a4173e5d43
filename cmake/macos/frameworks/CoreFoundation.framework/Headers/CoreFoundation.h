// For the build without the system's SDK: the declarations that the sources use, written from the system's
// published documentation. A build on macOS finds the system's own header of this name instead.
#pragma once

#include <cstdint>

extern "C" {

using Boolean = unsigned char;
using UInt8 = unsigned char;
using UTF32Char = std::uint32_t;
using OSStatus = std::int32_t;
using CFIndex = long;
using CFTypeID = unsigned long;
using CFOptionFlags = unsigned long;
using CFStringEncoding = std::uint32_t;
using CFTypeRef = const void*;
using CFPropertyListRef = CFTypeRef;
using CFAllocatorRef = const struct __CFAllocator*;
using CFArrayRef = const struct __CFArray*;
using CFCharacterSetRef = const struct __CFCharacterSet*;
using CFDataRef = const struct __CFData*;
using CFDictionaryRef = const struct __CFDictionary*;
using CFErrorRef = struct __CFError*;
using CFLocaleRef = const struct __CFLocale*;
using CFMutableStringRef = struct __CFString*;
using CFStringRef = const struct __CFString*;
using CFURLRef = const struct __CFURL*;

struct CFRange {
  CFIndex location;
  CFIndex length;
};

enum CFComparisonResult : CFIndex { kCFCompareEqualTo = 0 };
enum CFStringCompareFlags : CFOptionFlags { kCFCompareNonliteral = 16 };
enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };
enum CFPropertyListMutabilityOptions : CFOptionFlags { kCFPropertyListImmutable = 0 };
enum CFPropertyListFormat : CFIndex {};
enum CFCharacterSetPredefinedSet : CFIndex {
  kCFCharacterSetWhitespaceAndNewline = 3,
  kCFCharacterSetDecimalDigit = 4,
  kCFCharacterSetUppercaseLetter = 7,
  kCFCharacterSetAlphaNumeric = 10,
};

void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);

CFTypeID CFArrayGetTypeID(void);
CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

Boolean CFCharacterSetIsLongCharacterMember(CFCharacterSetRef set, UTF32Char character);
CFCharacterSetRef CFCharacterSetGetPredefined(CFCharacterSetPredefinedSet set);

CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);

CFTypeID CFDictionaryGetTypeID(void);
CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values);
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);

CFStringRef CFErrorCopyDescription(CFErrorRef error);

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data, CFOptionFlags options,
                                               CFPropertyListFormat* format, CFErrorRef* error);

CFTypeID CFStringGetTypeID(void);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef allocator, CFIndex maximumLength, CFStringRef string);
CFComparisonResult CFStringCompare(CFStringRef one, CFStringRef other, CFStringCompareFlags options);
CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean isExternalRepresentation, UInt8* buffer, CFIndex capacity, CFIndex* used);
CFIndex CFStringGetLength(CFStringRef string);
void CFStringLowercase(CFMutableStringRef string, CFLocaleRef locale);

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* path, CFIndex length,
                                                 Boolean isDirectory);

}
