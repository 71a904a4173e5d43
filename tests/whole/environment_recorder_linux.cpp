// Preloaded into the updater and everything that it starts, this writes to /tmp/environment a line for each
// program as it begins, "NAME has COUNT" with the number of its variables, and one for each variable that is
// asked for, "NAME asks VARIABLE" or "NAME finds VARIABLE".

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace {

void note(const std::string& line) {
  char path[4096];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
  std::string program(path, length > 0 ? static_cast<std::size_t>(length) : 0);
  program.erase(0, program.rfind('/') + 1);
  const std::string text = program + " " + line + "\n";
  const int file = ::open("/tmp/environment", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  static_cast<void>(!::write(file, text.data(), text.size()));
  ::close(file);
}

char* look(const char* name) {
  const std::size_t length = std::strlen(name);
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable)
    if (std::strncmp(*variable, name, length) == 0 && (*variable)[length] == '=') {
      note(std::string("finds ") + name);
      return *variable + length + 1;
    }
  note(std::string("asks ") + name);
  return nullptr;
}

__attribute__((constructor)) void begin(int, char**, char** environment) {
  int count = 0;
  while (environment[count] != nullptr)
    ++count;
  note("has " + std::to_string(count));
}

}  // namespace

extern "C" char* getenv(const char* name) noexcept {
  return look(name);
}

extern "C" char* secure_getenv(const char* name) noexcept {
  return look(name);
}
