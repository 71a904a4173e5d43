// Times the check of a signed bundle against `openssl dgst -sha256` over the same files on one processor:
//   code_signature_bench DIRECTORY
// creates the bundles in the directory, which needs 2 GiB of free space, and prints one line per
// measurement. Every program runs once to warm the page cache, then five times; the shortest time counts.
#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/processes/process.hpp"

namespace fs = std::filesystem;

namespace {

struct Measurement {
  double seconds = 0;
  double peakMegabytes = 0;
};

struct Program {
  std::vector<std::string> words;
  std::string workingDirectory = "/";
};

void becomeProgram(const Program& program, int processors) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (int processor = 0; processor < processors; ++processor)
    CPU_SET(static_cast<std::size_t>(processor), &set);
  std::vector<std::string> words = program.words;
  std::vector<char*> arguments;
  for (std::string& word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const int null = ::open("/dev/null", O_WRONLY);
  if (::sched_setaffinity(0, sizeof set, &set) == 0 && ::chdir(program.workingDirectory.c_str()) == 0 &&
      ::dup2(null, STDOUT_FILENO) >= 0)
    ::execvp(arguments.front(), arguments.data());
  ::_exit(127);
}

Measurement runOnce(const Program& program, int processors) {
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child == 0)
    becomeProgram(program, processors);
  int status = 0;
  rusage usage{};
  if (child < 0 || ::wait4(child, &status, 0, &usage) != child || status != 0)
    throw std::runtime_error(program.words.front() + " failed");
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  return {elapsed.count(), static_cast<double>(usage.ru_maxrss) / 1024};
}

Measurement measure(const Program& program, int processors) {
  runOnce(program, processors);
  Measurement best{1e9, 0};
  for (int round = 0; round < 5; ++round) {
    const Measurement next = runOnce(program, processors);
    best = {std::min(best.seconds, next.seconds), std::max(best.peakMegabytes, next.peakMegabytes)};
  }
  return best;
}

void writeRandom(const fs::path& path, std::size_t size, std::mt19937_64& random) {
  std::string content(size, '\0');
  std::generate(content.begin(), content.end(), [&] { return static_cast<char>(random()); });
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

/// A bundle with a script and `count` resources of `size` bytes, a hundred per directory, with an ad-hoc
/// signature.
fs::path makeBundle(const fs::path& parent, std::size_t count, std::size_t size) {
  fs::path bundle = parent / (std::to_string(count) + ".app");
  std::mt19937_64 random(count);
  writeRandom(bundle / "Contents/MacOS/Sample", 1000, random);
  std::ofstream(bundle / "Contents/Info.plist") << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
                                                   "version=\"1.0\"><dict><key>CFBundleExecutable</key>"
                                                   "<string>Sample</string><key>CFBundleIdentifier</"
                                                   "key><string>com.example.sample</string></dict></plist>\n";
  for (std::size_t index = 0; index < count; ++index)
    writeRandom(bundle / "Contents/Resources" / std::to_string(index / 100) / std::to_string(index), size,
                random);
  runOnce({{platform::installationPrefix().path() + "/tools/sign_bundle/sign_bundle", "sign", bundle.native(),
            "--ad-hoc"}},
          1);
  return bundle;
}

void report(const char* what, std::size_t count, const Measurement& measured, double reference) {
  std::printf("%6zu files  %-28s %8.3f s  %5.2f of openssl  peak %6.1f MiB\n", count, what, measured.seconds,
              measured.seconds / reference, measured.peakMegabytes);
}

void compare(const fs::path& parent, std::size_t count, std::size_t size) {
  const fs::path bundle = makeBundle(parent, count, size);
  // xargs passes as many names at a time as a command line holds.
  const Program openssl{
      {"sh", "-c", "find Contents/Resources -type f -print0 | xargs -0 openssl dgst -sha256"},
      bundle.native()};
  const Program judge{{platform::installationPrefix().path() + "/bin/judge_code", bundle.native()}};
  const Measurement reference = measure(openssl, 1);
  report("openssl, one processor", count, reference, reference.seconds);
  report("check, one processor", count, measure(judge, 1), reference.seconds);
  report("check, two processors", count, measure(judge, 2), reference.seconds);
  fs::remove_all(bundle);
}

}  // namespace

int main(int count, char** words) {
  if (count != 2) {
    std::fprintf(stderr, "usage: code_signature_bench DIRECTORY\n");
    return 2;
  }
  try {
    constexpr std::size_t kGibibyte = std::size_t{1} << 30U;
    compare(words[1], 5'000, kGibibyte / 5'000);
    for (const std::size_t files : {12'500U, 25'000U, 50'000U})
      compare(words[1], files, 1'000);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "code_signature_bench: %s\n", error.what());
    return 1;
  }
}
