#include <nlohmann/json.hpp>

#include "platform/formats/json.hpp"

namespace platform {
namespace {

/// Only strings go through the library: destroying its containers allocates, and ends the process if memory
/// has run out.
std::string quotedText(std::string_view text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

void KeyedEncodingContainer::encode(std::string_view key, std::string_view value) {
  append(key, quotedText(value));
}

void KeyedEncodingContainer::encode(std::string_view key, bool value) {
  append(key, value ? "true" : "false");
}

void KeyedEncodingContainer::append(std::string_view key, std::string_view value) {
  members_.append(members_.empty() ? "" : ",").append(quotedText(key)).append(":").append(value);
}

Data KeyedEncodingContainer::json() const {
  return Data("{" + members_ + "}");
}

}  // namespace platform
