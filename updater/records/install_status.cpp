#include "updater/records/install_status.hpp"

namespace QuorinOstrevalUpdater {

using Keys = InstallStatus::CodingKeys;

InstallStatus InstallStatus::decode(const platform::KeyedDecodingContainer& container) {
  InstallStatus status;
  status.succeeded = container.decodeBool(kCodingKeys.stringValue(Keys::succeeded));
  status.message = container.decodeString(kCodingKeys.stringValue(Keys::message));
  status.version = container.decodeString(kCodingKeys.stringValue(Keys::version));
  return status;
}

void InstallStatus::encode(platform::KeyedEncodingContainer& container) const {
  container.encode(kCodingKeys.stringValue(Keys::succeeded), succeeded);
  container.encode(kCodingKeys.stringValue(Keys::message), message);
  container.encode(kCodingKeys.stringValue(Keys::version), version);
}

}  // namespace QuorinOstrevalUpdater
