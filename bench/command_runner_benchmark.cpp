// The command runner against a bare spawn and wait of the same tool, which exits at once.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "support/command_runner.hpp"

namespace {

constexpr const char* kTool = "/bin/true";

void bareSpawnAndWait(benchmark::State& state) {
  for (auto _ : state) {
    std::array<char*, 2> arguments{const_cast<char*>(kTool), nullptr};
    pid_t child = 0;
    int status = 0;
    if (::posix_spawn(&child, kTool, nullptr, nullptr, arguments.data(), environ) != 0 ||
        ::waitpid(child, &status, 0) != child)
      throw std::runtime_error("the tool could not be run");
  }
}
BENCHMARK(bareSpawnAndWait)->Unit(benchmark::kMillisecond)->UseRealTime();

void commandRunner(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(QuorinSupport::CommandRunner::run(kTool, {}, 120));
}
BENCHMARK(commandRunner)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
