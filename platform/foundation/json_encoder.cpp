#include <nlohmann/json.hpp>

#include "platform/foundation/json.hpp"

namespace platform {

struct KeyedEncodingContainer::Object {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
};

KeyedEncodingContainer::KeyedEncodingContainer() : object_(std::make_unique<Object>()) {}

KeyedEncodingContainer::~KeyedEncodingContainer() = default;

void KeyedEncodingContainer::encode(std::string_view key, std::string_view value) {
  object_->json[std::string(key)] = value;
}

void KeyedEncodingContainer::encode(std::string_view key, bool value) {
  object_->json[std::string(key)] = value;
}

Data KeyedEncodingContainer::json() const {
  return Data(object_->json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

}  // namespace platform
