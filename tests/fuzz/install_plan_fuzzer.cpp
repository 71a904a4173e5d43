#include "tests/fuzz/fuzz_input.hpp"
#include "updater/records/install_plan.hpp"

using QuorinOstrevalUpdater::InstallPlan;

// A plan that is read and written again reads as the same.
void fuzz::read(const std::string& bytes) {
  const platform::JSONDecoder decoder;
  const auto plan = decoder.decode<InstallPlan>(platform::Data(bytes));
  fuzz::requireText(plan.statusPath);
  const platform::Data written = platform::JSONEncoder().encode(plan);
  fuzz::require(fuzz::again([&] { return decoder.decode<InstallPlan>(written); }) == plan);
}
