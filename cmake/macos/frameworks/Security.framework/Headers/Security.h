// For the build without the system's SDK: the declarations that the sources use, written from the system's
// published documentation. A build on macOS finds the system's own header of this name instead.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

using SecCSFlags = std::uint32_t;
using SecRequirementRef = struct __SecRequirement*;
using SecStaticCodeRef = const struct __SecCode*;

extern const CFStringRef kSecCodeInfoIdentifier;
extern const CFStringRef kSecCodeInfoTeamIdentifier;

OSStatus SecCodeCopySigningInformation(SecStaticCodeRef code, SecCSFlags flags, CFDictionaryRef* information);
OSStatus SecRequirementCreateWithString(CFStringRef text, SecCSFlags flags, SecRequirementRef* requirement);
OSStatus SecStaticCodeCheckValidityWithErrors(SecStaticCodeRef code, SecCSFlags flags, SecRequirementRef requirement,
                                              CFErrorRef* errors);
OSStatus SecStaticCodeCreateWithPath(CFURLRef path, SecCSFlags flags, SecStaticCodeRef* code);

}
