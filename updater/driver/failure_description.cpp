#include "updater/driver/failure_description.hpp"

#include <new>

#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"

namespace QuorinOstrevalUpdater {

FailureDescription::FailureDescription() noexcept : fallback_("An unexpected error occurred.") {
  try {
    throw;
  } catch (const platform::Error& error) {
    fallback_ = "There is not enough memory to say what failed.";
    platform::bestEffort([&] { text_ = error.localizedDescription(); });
  } catch (const std::bad_alloc&) {
    fallback_ = "There is not enough memory.";
  } catch (const std::exception& error) {
    platform::bestEffort([&] { text_ = error.what(); });
  } catch (...) {
    // Not an exception of a known type.
  }
}

}  // namespace QuorinOstrevalUpdater
