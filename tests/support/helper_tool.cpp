// A tool for tests to start: what it does is said by its arguments.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

std::string linkText(const std::string& path) {
  std::array<char, PATH_MAX> text{};
  const auto length = ::readlink(path.c_str(), text.data(), text.size());
  return length < 0 ? std::string() : std::string(text.data(), static_cast<std::size_t>(length));
}

/// Where the tool's standard output goes: a file of the capture directory.
void recordCapture(const char* file) {
  std::ofstream(file) << linkText("/proc/self/fd/1");
}

void writeMegabytes(int stream, int count) {
  const std::string block(1 << 20, stream == 1 ? 'o' : 'e');
  for (int written = 0; written < count; ++written) {
    if (::write(stream, block.data(), block.size()) != static_cast<ssize_t>(block.size()))
      std::exit(3);
  }
}

void describe() {
  sigset_t blocked;
  ::sigprocmask(SIG_SETMASK, nullptr, &blocked);
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action {};
    if (::sigismember(&blocked, signal) == 1)
      std::printf("blocked %d\n", signal);
    if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_DFL)
      std::printf("disposition %d\n", signal);
  }
  DIR* descriptors = ::opendir("/proc/self/fd");
  while (const dirent* entry = ::readdir(descriptors)) {
    if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != ::dirfd(descriptors))
      std::printf("descriptor %s\n", entry->d_name);
  }
  ::closedir(descriptors);
  std::printf("input %s\n", linkText("/proc/self/fd/0").c_str());
}

const char* terminationMark = nullptr;
std::string endedMark;

extern "C" void onTermination(int) {
  const int file = ::open(terminationMark, O_WRONLY | O_CREAT, 0600);
  ::close(file);
  ::usleep(200'000);
  ::rename(terminationMark, endedMark.c_str());
  ::_exit(0);
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  const std::string what = words.empty() ? "" : words[0];
  const auto word = [&](std::size_t index) { return words.at(index).c_str(); };
  if (what == "exit")
    return std::atoi(word(1));
  if (what == "signal")
    return ::raise(std::atoi(word(1)));
  if (what == "write") {
    writeMegabytes(1, std::atoi(word(1)));
    writeMegabytes(2, std::atoi(word(2)));
  } else if (what == "echo") {
    for (std::size_t index = 1; index < words.size(); ++index)
      std::printf("%s\n", word(index));
  } else if (what == "count-input") {
    std::size_t bytes = 0;
    while (std::getchar() != EOF)
      ++bytes;
    std::printf("%zu", bytes);
  } else if (what == "describe") {
    describe();
  } else if (what == "record-capture") {
    recordCapture(word(1));
  } else if (what == "sleep") {
    recordCapture(word(1));
    ::sleep(30);
  } else if (what == "ignore-termination") {
    recordCapture(word(1));
    ::signal(SIGTERM, SIG_IGN);
    ::sleep(30);
  } else if (what == "end-on-termination") {
    terminationMark = word(1);
    endedMark = words.at(1) + " ended";
    ::signal(SIGTERM, onTermination);
    ::sleep(30);
  } else if (what == "remove-capture") {
    ::unlink(linkText("/proc/self/fd/1").c_str());
  } else if (what == "leave-grandchild") {
    if (::fork() == 0)
      ::sleep(3);
    else
      std::printf("left");
  } else {
    return 2;
  }
  return std::fflush(stdout) == 0 ? 0 : 3;
}
