#pragma once

#include <new>
#include <string>

#include "platform/formats/property_list.hpp"
#include "platform/security/security_error.hpp"

namespace platform {

/// Runs a part of a check and returns its result. A failure becomes a `SecurityError` with `status`: a
/// `FormatError` in a sentence that begins with `place`, any other with its own sentence. A `SecurityError`
/// passes unchanged.
template <typename Part>
auto atPlace(const std::string& place, OSStatus status, Part&& part) {
  try {
    return std::forward<Part>(part)();
  } catch (const SecurityError&) {
    throw;
  } catch (const FormatError& error) {
    throw SecurityError(status, sentence(place + " is not validly signed", error));
  } catch (const Error& error) {
    throw SecurityError(status, error.localizedDescription());
  } catch (const std::bad_alloc&) {
    throw SecurityError(status, "There is not enough memory to check " + place + ".");
  }
}

/// Runs a part of a check that reads the property list at `path`. A `PropertyListError` becomes an `Error`
/// that names the path.
template <typename Part>
auto readingPropertyList(const std::string& path, Part&& part) {
  try {
    return std::forward<Part>(part)();
  } catch (const PropertyListError& error) {
    throw Error(sentence(platform::quoted(path) + " cannot be read", error));
  }
}

}  // namespace platform
