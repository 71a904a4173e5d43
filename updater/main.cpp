#include "updater/driver/update_run.hpp"

int main() {
  QuorinOstrevalUpdater::main();
}
