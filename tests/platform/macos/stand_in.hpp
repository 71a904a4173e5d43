#pragma once

// Compiled in front of every source of the macOS port when Linux compiles it: stands in for the functions of
// macOS that the port calls, and records how they are called. It shows what the port passes, releases and
// makes of failures; not what macOS does.

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace stand_in {

enum Kind : CFTypeID { string = 1, array, dictionary, data, url, error, code, requirement, number };

/// Any object of the system's: a text, or other objects, in a dictionary keys and values in turn.
struct Object {
  Kind kind;
  std::string text = {};
  std::vector<const Object*> items = {};
};

/// What a function is to return instead of success with an object.
struct Outcome {
  OSStatus status = 0;
  bool withObject = false;
};

struct Recorder {
  std::map<std::string, Outcome> outcomes;  ///< by function
  std::map<std::string, int> errorNumbers;  ///< by call, such as "SWAP"
  int spawnCallsBeforeFailure = 0;          ///< 1: the next function of the posix_spawn family fails
  std::vector<std::string> calls;           ///< with their flags
  std::set<const void*> owned;              ///< what was created and not yet released
  std::vector<std::string> violations;
  const Object* propertyList = nullptr;
  const Object* information = nullptr;
};
inline Recorder recorder;

/// The new object, which its caller must release; null where `function` is to fail.
template <typename Reference>
Reference create(const std::string& function, Object object) {
  if (const auto outcome = recorder.outcomes.find(function);
      outcome != recorder.outcomes.end() && !outcome->second.withObject)
    return nullptr;
  auto* created = new Object(std::move(object));
  recorder.owned.insert(created);
  return reinterpret_cast<Reference>(created);
}

template <typename Reference>
OSStatus give(const std::string& function, SecCSFlags flags, Object object, Reference* result) {
  recorder.calls.push_back(function + ' ' + std::to_string(flags));
  *result = create<Reference>(function, std::move(object));
  const auto outcome = recorder.outcomes.find(function);
  return outcome == recorder.outcomes.end() ? 0 : outcome->second.status;
}

inline const Object& get(const void* object) {
  return *static_cast<const Object*>(object);
}

/// -1 with the error number for the call, or 0.
inline int record(const std::string& call) {
  recorder.calls.push_back(call);
  const auto number = recorder.errorNumbers.find(call);
  if (number == recorder.errorNumbers.end())
    return 0;
  errno = number->second;
  return -1;
}

}  // namespace stand_in

extern "C" {

inline const CFStringRef kSecCodeInfoIdentifier =
    reinterpret_cast<CFStringRef>(new stand_in::Object{stand_in::string, "identifier"});
inline const CFStringRef kSecCodeInfoTeamIdentifier =
    reinterpret_cast<CFStringRef>(new stand_in::Object{stand_in::string, "teamid"});

inline void CFRelease(CFTypeRef object) {
  if (stand_in::recorder.owned.erase(object) == 1)
    delete static_cast<const stand_in::Object*>(object);
  else
    stand_in::recorder.violations.emplace_back("released what is not owned");
}
inline CFTypeID CFGetTypeID(CFTypeRef object) {
  return stand_in::get(object).kind;
}
inline CFTypeID CFStringGetTypeID() {
  return stand_in::string;
}
inline CFTypeID CFArrayGetTypeID() {
  return stand_in::array;
}
inline CFTypeID CFDictionaryGetTypeID() {
  return stand_in::dictionary;
}

inline CFIndex CFArrayGetCount(CFArrayRef array) {
  return static_cast<CFIndex>(stand_in::get(array).items.size());
}
inline const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  return stand_in::get(array).items.at(static_cast<std::size_t>(index));
}
inline CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
  return static_cast<CFIndex>(stand_in::get(dictionary).items.size() / 2);
}
inline void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values) {
  const auto& items = stand_in::get(dictionary).items;
  for (std::size_t index = 0; index < items.size(); ++index)
    *(index % 2 == 0 ? keys : values)++ = items[index];
}
inline const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
  const auto& items = stand_in::get(dictionary).items;
  for (std::size_t index = 0; index < items.size(); index += 2) {
    if (items[index]->text == stand_in::get(key).text)
      return items[index + 1];
  }
  return nullptr;
}

inline CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                           CFStringEncoding encoding, Boolean) {
  if (encoding != kCFStringEncodingUTF8)
    stand_in::recorder.violations.emplace_back("another encoding");
  return stand_in::create<CFStringRef>("CFStringCreateWithBytes",
                                       {stand_in::string, std::string(bytes, bytes + length)});
}
inline CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex, CFStringRef string) {
  return stand_in::create<CFMutableStringRef>("CFStringCreateMutableCopy", stand_in::get(string));
}
inline CFIndex CFStringGetLength(CFStringRef string) {
  return static_cast<CFIndex>(stand_in::get(string).text.size());
}
// Text with a byte 0xFF plays one with half of a surrogate pair.
inline CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding, UInt8, Boolean,
                                UInt8* buffer, CFIndex capacity, CFIndex* used) {
  const std::string text = stand_in::get(string).text.substr(0, static_cast<std::size_t>(range.length));
  *used = static_cast<CFIndex>(text.size());
  if (buffer != nullptr)
    text.copy(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(capacity));
  return text.find('\xFF') == std::string::npos ? range.length : 0;
}
inline CFComparisonResult CFStringCompare(CFStringRef one, CFStringRef other, CFStringCompareFlags options) {
  stand_in::record("CFStringCompare " + std::to_string(options));
  return stand_in::get(one).text == stand_in::get(other).text ? kCFCompareEqualTo : CFComparisonResult{1};
}
inline void CFStringLowercase(CFMutableStringRef string, CFLocaleRef locale) {
  stand_in::record(locale == nullptr ? "CFStringLowercase" : "CFStringLowercase with a locale");
  for (char& character : reinterpret_cast<stand_in::Object*>(string)->text)
    character = static_cast<char>(std::tolower(character));
}
inline CFCharacterSetRef CFCharacterSetGetPredefined(CFCharacterSetPredefinedSet set) {
  return reinterpret_cast<CFCharacterSetRef>(set);
}
// Every set has one member: its number.
inline Boolean CFCharacterSetIsLongCharacterMember(CFCharacterSetRef set, UTF32Char character) {
  return reinterpret_cast<std::uintptr_t>(set) == character;
}

inline CFDataRef CFDataCreate(CFAllocatorRef, const UInt8*, CFIndex) {
  return stand_in::create<CFDataRef>("CFDataCreate", {stand_in::data});
}
inline CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* path, CFIndex length,
                                                        Boolean) {
  return stand_in::create<CFURLRef>("CFURLCreateFromFileSystemRepresentation",
                                    {stand_in::url, std::string(path, path + length)});
}
inline CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef, CFOptionFlags,
                                                      CFPropertyListFormat*, CFErrorRef*) {
  return stand_in::create<CFPropertyListRef>("CFPropertyListCreateWithData",
                                             *stand_in::recorder.propertyList);
}
inline CFStringRef CFErrorCopyDescription(CFErrorRef error) {
  return stand_in::create<CFStringRef>("CFErrorCopyDescription",
                                       {stand_in::string, stand_in::get(error).text});
}

inline OSStatus SecStaticCodeCreateWithPath(CFURLRef path, SecCSFlags flags, SecStaticCodeRef* code) {
  return stand_in::give("SecStaticCodeCreateWithPath", flags, {stand_in::code, stand_in::get(path).text},
                        code);
}
inline OSStatus SecRequirementCreateWithString(CFStringRef text, SecCSFlags flags,
                                               SecRequirementRef* requirement) {
  return stand_in::give("SecRequirementCreateWithString", flags,
                        {stand_in::requirement, stand_in::get(text).text}, requirement);
}
inline OSStatus SecStaticCodeCheckValidityWithErrors(SecStaticCodeRef code, SecCSFlags flags,
                                                     SecRequirementRef requirement, CFErrorRef* errors) {
  const auto& [kind, path, items] = stand_in::get(code);
  if (kind != stand_in::code)
    stand_in::recorder.violations.emplace_back("not a code object");
  const std::string asked = requirement == nullptr ? "no requirement" : stand_in::get(requirement).text;
  stand_in::recorder.calls.push_back(path + ": " + asked);
  // An error object comes with failure only.
  stand_in::recorder.outcomes.try_emplace("SecStaticCodeCheckValidityWithErrors");
  return stand_in::give("SecStaticCodeCheckValidityWithErrors", flags, {stand_in::error, "What is wrong."},
                        errors);
}
inline OSStatus SecCodeCopySigningInformation(SecStaticCodeRef code, SecCSFlags flags,
                                              CFDictionaryRef* information) {
  if (stand_in::get(code).kind != stand_in::code)
    stand_in::recorder.violations.emplace_back("not a code object");
  return stand_in::give("SecCodeCopySigningInformation", flags, *stand_in::recorder.information, information);
}

// CommonCrypto: the digest is the number of bytes.
using CC_LONG = std::uint32_t;
struct CC_SHA256_CTX {
  std::size_t size;
};
inline constexpr std::size_t CC_SHA256_DIGEST_LENGTH = 32;
inline int CC_SHA256_Init(CC_SHA256_CTX* context) {
  context->size = 0;
  return stand_in::record("CC_SHA256_Init") == 0 ? 1 : 0;
}
inline int CC_SHA256_Update(CC_SHA256_CTX* context, const void*, CC_LONG length) {
  context->size += length;
  return stand_in::record("CC_SHA256_Update") == 0 ? 1 : 0;
}
inline int CC_SHA256_Final(unsigned char* digest, CC_SHA256_CTX* context) {
  std::snprintf(reinterpret_cast<char*>(digest), CC_SHA256_DIGEST_LENGTH, "%030zu", context->size);
  return stand_in::record("CC_SHA256_Final") == 0 ? 1 : 0;
}

inline void uuid_generate_random(unsigned char* bytes) {
  bytes[0] = 1;
}
inline void uuid_unparse_upper(const unsigned char*, char* text) {
  std::snprintf(text, 37, "0123456789ABCDEF0123456789ABCDEF0123");
}
inline char*** _NSGetEnviron() {
  return &environ;
}
inline int* _NSGetArgc() {
  static int count = 2;
  return &count;
}
inline char*** _NSGetArgv() {
  static char* arguments[] = {::strdup("program"), ::strdup("--option"), nullptr};
  static char** first = arguments;
  return &first;
}

// Two numbers there, one here.
#undef ENOTSUP
#undef EOPNOTSUPP
#define ENOTSUP 95
#define EOPNOTSUPP 102

// Calls of the kernel: recorded, then made by what Linux has in their place.
inline constexpr int F_FULLFSYNC = 51;
inline constexpr int O_EVTONLY = O_PATH;
inline constexpr int O_SYMLINK = O_NOFOLLOW;
inline constexpr unsigned RENAME_SWAP = 2;
inline constexpr unsigned RENAME_EXCL = 4;
inline constexpr int POSIX_SPAWN_CLOEXEC_DEFAULT = 0x4000;
inline constexpr clockid_t CLOCK_UPTIME_RAW = CLOCK_MONOTONIC;
inline std::uint64_t clock_gettime_nsec_np(clockid_t clock) {
  timespec now{};
  ::clock_gettime(clock, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000000000U + static_cast<std::uint64_t>(now.tv_nsec);
}
inline int renameatx_np(int from, const char* old, int to, const char* name, unsigned flags) {
  if (stand_in::record(flags == RENAME_SWAP ? "SWAP" : flags == RENAME_EXCL ? "EXCL" : "rename") != 0)
    return -1;
  return ::renameat2(from, old, to, name,
                     flags == RENAME_SWAP   ? RENAME_EXCHANGE
                     : flags == RENAME_EXCL ? RENAME_NOREPLACE
                                            : 0);
}
inline int recordedFcntl(int, int command) {
  return stand_in::record(command == F_FULLFSYNC ? "F_FULLFSYNC" : "fcntl");
}
inline int recordedFsync(int) {
  return stand_in::record("fsync");
}
inline int addInherit(posix_spawn_file_actions_t* actions, int descriptor) {
  stand_in::record("inherit " + std::to_string(descriptor));
  return ::posix_spawn_file_actions_adddup2(actions, descriptor, descriptor);
}
inline int setSpawnFlags(posix_spawnattr_t* attributes, short flags) {
  stand_in::record("spawn " + std::to_string(flags));
  return ::posix_spawnattr_setflags(attributes, static_cast<short>(flags & ~POSIX_SPAWN_CLOEXEC_DEFAULT));
}
}

namespace stand_in {

/// A function of the posix_spawn family, unless this is the call that is to fail.
template <auto function, typename... Arguments>
int spawnCall(Arguments... arguments) {
  return --recorder.spawnCallsBeforeFailure == 0 ? ENFILE : function(arguments...);
}

template <auto function, typename Object>
int initialise(Object* object) {
  const int failure = spawnCall<function>(object);
  if (failure == 0)
    recorder.owned.insert(object);
  return failure;
}

template <auto function, typename Object>
int destroy(Object* object) {
  if (recorder.owned.erase(object) == 1)
    return function(object);
  recorder.violations.emplace_back("destroyed what is not initialised");
  return 0;
}

}  // namespace stand_in

#define fcntl recordedFcntl
#define fsync recordedFsync
#define posix_spawn stand_in::spawnCall<&::posix_spawn>
#define posix_spawn_file_actions_init stand_in::initialise<&::posix_spawn_file_actions_init>
#define posix_spawn_file_actions_destroy stand_in::destroy<&::posix_spawn_file_actions_destroy>
#define posix_spawn_file_actions_addchdir_np stand_in::spawnCall<&::posix_spawn_file_actions_addchdir_np>
#define posix_spawn_file_actions_adddup2 stand_in::spawnCall<&::posix_spawn_file_actions_adddup2>
#define posix_spawn_file_actions_addinherit_np stand_in::spawnCall<&::addInherit>
#define posix_spawnattr_init stand_in::initialise<&::posix_spawnattr_init>
#define posix_spawnattr_destroy stand_in::destroy<&::posix_spawnattr_destroy>
#define posix_spawnattr_setsigmask stand_in::spawnCall<&::posix_spawnattr_setsigmask>
#define posix_spawnattr_setsigdefault stand_in::spawnCall<&::posix_spawnattr_setsigdefault>
#define posix_spawnattr_setflags stand_in::spawnCall<&::setSpawnFlags>
