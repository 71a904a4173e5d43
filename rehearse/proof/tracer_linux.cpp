#include <elf.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <fstream>
#include <map>
#include <optional>
#include <system_error>

#include "rehearse/files/program.hpp"
#include "rehearse/files/trees.hpp"
#include "rehearse/proof/system_calls.hpp"
#include "rehearse/proof/tracer.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

void require(bool holds, const char* what) {
  if (!holds)
    throw std::system_error(errno, std::generic_category(), what);
}

/// The filter that hands the calls of interest to the tracer.
std::vector<sock_filter> filterOfInterest(const Watcher& watcher) {
  std::vector<long> numbers;
  for (const SystemCallKind& kind : systemCallKinds())
    if (!watcher.calls || std::ranges::find(*watcher.calls, kind.number) != watcher.calls->end())
      numbers.push_back(kind.number);
  if (watcher.leapingClock)
    numbers.push_back(SYS_clock_gettime);
  std::vector<sock_filter> filter;
  filter.push_back({BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)});
  for (std::size_t index = 0; index < numbers.size(); ++index)
    filter.push_back({BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint8_t>(numbers.size() - index), 0,
                      static_cast<std::uint32_t>(numbers[index])});
  filter.push_back({BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW});
  filter.push_back({BPF_RET | BPF_K, 0, 0, SECCOMP_RET_TRACE});
  return filter;
}

/// A word of a stopped thread's memory.
class RemoteWord {
 public:
  RemoteWord(pid_t thread, std::uint64_t address) : thread_(thread), address_(address) {}

  std::int64_t value() const {
    errno = 0;
    const std::int64_t value = ::ptrace(PTRACE_PEEKDATA, thread_, address_, nullptr);
    require(errno == 0, "ptrace");
    return value;
  }
  void set(std::int64_t value) const {
    require(::ptrace(PTRACE_POKEDATA, thread_, address_, value) == 0, "ptrace");
  }
  void advance(std::int64_t words) { address_ += static_cast<std::uint64_t>(words) * sizeof(std::int64_t); }

 private:
  pid_t thread_;
  std::uint64_t address_;
};

/// Takes the vDSO from a program that has just taken its place, so that it reads the time by system calls.
void hideVdso(pid_t thread) {
  user_regs_struct registers{};
  require(::ptrace(PTRACE_GETREGS, thread, nullptr, &registers) == 0, "ptrace");
  // The stack: the number of arguments, they and a null pointer, the environment and a null pointer, and the
  // auxiliary vector in pairs of type and value.
  RemoteWord word(thread, registers.rsp);
  word.advance(word.value() + 2);
  while (word.value() != 0)
    word.advance(1);
  for (word.advance(1); word.value() != AT_NULL; word.advance(2))
    if (word.value() == AT_SYSINFO_EHDR)
      word.set(AT_IGNORE);
}

/// A repeating alarm that interrupts the wait; one alone might come in front of it.
class TimeLimit {
 public:
  explicit TimeLimit(std::chrono::seconds limit) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    require(::sigaction(SIGALRM, &action, &before_) == 0, "sigaction");
    set(limit.count(), 1);
  }
  TimeLimit(const TimeLimit&) = delete;
  TimeLimit& operator=(const TimeLimit&) = delete;
  ~TimeLimit() {
    set(0, 0);
    ::sigaction(SIGALRM, &before_, nullptr);
  }

 private:
  static void set(std::int64_t seconds, std::int64_t interval) {
    const itimerval timer{{interval, 0}, {seconds, 0}};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
  }

  struct sigaction before_ {};
};

/// Keeps this thread, and what it starts meanwhile, on the processor where it is. At each stop one of tracer
/// and traced waits for the other, and to wake another processor takes longer than the stop itself.
class OneProcessor {
 public:
  OneProcessor() {
    cpu_set_t here{};
    CPU_ZERO(&here);
    const int processor = ::sched_getcpu();
    if (processor < 0 || processor >= CPU_SETSIZE || ::sched_getaffinity(0, sizeof before_, &before_) != 0)
      return;
    CPU_SET(static_cast<std::size_t>(processor), &here);
    // Where it is refused, everything only takes longer.
    isSet_ = ::sched_setaffinity(0, sizeof here, &here) == 0;
  }
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;
  ~OneProcessor() {
    // Where that fails, this thread stays here, and only takes longer.
    if (isSet_)
      static_cast<void>(::sched_setaffinity(0, sizeof before_, &before_));
  }

 private:
  cpu_set_t before_{};
  bool isSet_ = false;
};

class Tracer {
 public:
  Tracer(const Watcher& watcher, pid_t tool) : watcher_(watcher), tool_(tool) {}

  /// Traces the tool, which has stopped itself, to the end of everything.
  Ending run();

 private:
  struct Thread {
    pid_t process = 0;
    pid_t parent = 0;  ///< the process that started it
    std::string program;
    bool started = false;
    std::optional<SystemCall> call = std::nullopt;
    Fate fate = {};
  };

  void dispatch(pid_t thread, int status);
  void happened(pid_t thread, int event);
  void ended(pid_t thread, int status);
  void beforeCall(pid_t thread);
  void afterCall(pid_t thread);
  void shiftClock(pid_t thread, const SystemCall& call);
  bool waitsInVain() const;
  bool isAlone(pid_t process) const;
  const Thread* threadOf(pid_t process) const;
  void kill(const SystemCall& call, Fate::Victim victim);
  void killAll();
  Thread& known(pid_t thread);
  static bool hangs(const Thread& thread) { return thread.fate.kind == Fate::Kind::hang; }
  /// Neither the tracing program before the tool has taken its place, nor the application.
  bool isOurs(const Thread& thread) const {
    return toolRuns_ && thread.program != "dash" && thread.program != "sh";
  }
  void resume(pid_t thread, int signal = 0) { proceed(PTRACE_CONT, thread, signal); }
  /// A thread that was killed meanwhile cannot be resumed, and need not be.
  static void proceed(__ptrace_request request, pid_t thread, int signal = 0) {
    ::ptrace(request, thread, nullptr, static_cast<std::intptr_t>(signal));
  }

  const Watcher& watcher_;
  pid_t tool_;
  std::map<pid_t, Thread> threads_;
  bool toolRuns_ = false;
  bool everyoneDies_ = false;
  bool hasStartedOthers_ = false;
  std::int64_t secondsAhead_ = 0;
  Ending ending_;
};

std::string programOf(pid_t thread) {
  std::error_code failure;
  return fs::read_symlink("/proc/" + std::to_string(thread) + "/exe", failure).filename();
}

/// A process identifier in a thread's status, by its key; none where the thread has ended.
std::optional<pid_t> identifierIn(pid_t thread, const std::string& key) {
  std::ifstream status("/proc/" + std::to_string(thread) + "/status");
  for (std::string word; status >> word;) {
    pid_t process = 0;
    if (word == key && status >> process)
      return process;
  }
  return std::nullopt;
}

Tracer::Thread& Tracer::known(pid_t thread) {
  const auto [place, isNew] = threads_.try_emplace(thread);
  if (isNew)
    place->second = {identifierIn(thread, "Tgid:").value_or(thread),
                     identifierIn(thread, "PPid:").value_or(0), programOf(thread)};
  hasStartedOthers_ = hasStartedOthers_ || place->second.process != tool_;
  return place->second;
}

Ending Tracer::run() {
  const TimeLimit limit(watcher_.timeLimit);
  const int options = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
                      PTRACE_O_TRACEEXEC | PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
  int status = 0;
  require(::waitpid(tool_, &status, __WALL) == tool_ && WIFSTOPPED(status), "waitpid");
  require(::ptrace(PTRACE_SETOPTIONS, tool_, nullptr, static_cast<std::intptr_t>(options)) == 0, "ptrace");
  known(tool_).started = true;
  resume(tool_);
  while (true) {
    const pid_t thread = ::waitpid(-1, &status, __WALL);
    if (thread > 0) {
      dispatch(thread, status);
    } else if (errno == EINTR) {
      ending_.overran = true;
      killAll();
    } else {
      require(errno == ECHILD, "waitpid");
      return ending_;
    }
  }
}

void Tracer::dispatch(pid_t thread, int status) {
  if (!WIFSTOPPED(status)) {
    ended(thread, status);
    return;
  }
  Thread& state = known(thread);
  const int signal = WSTOPSIG(status);
  const int event = status >> 16;
  if (everyoneDies_ && isOurs(state)) {
    ::kill(state.process, SIGKILL);
    resume(thread);
  } else if (event == PTRACE_EVENT_SECCOMP) {
    beforeCall(thread);
  } else if (signal == (SIGTRAP | 0x80)) {
    afterCall(thread);
  } else if (event != 0) {
    happened(thread, event);
    proceed(state.call ? PTRACE_SYSCALL : PTRACE_CONT, thread);
  } else if (signal == SIGSTOP && !state.started) {
    state.started = true;
    resume(thread);
  } else {
    resume(thread, signal);
  }
}

void Tracer::happened(pid_t thread, int event) {
  if (event == PTRACE_EVENT_EXEC) {
    if (thread == tool_ && watcher_.leapingClock)
      hideVdso(thread);
    known(thread).program = programOf(thread);
    toolRuns_ = true;
    return;
  }
  // What was made may stop for the first time only after its maker's next calls, or be gone already.
  std::uint64_t made = 0;
  if (::ptrace(PTRACE_GETEVENTMSG, thread, nullptr, &made) == 0 &&
      identifierIn(static_cast<pid_t>(made), "Tgid:"))
    known(static_cast<pid_t>(made));
}

void Tracer::ended(pid_t thread, int status) {
  threads_.erase(thread);
  // What the watcher made hang does not end by itself.
  if (std::ranges::all_of(threads_, [](const auto& entry) { return hangs(entry.second); }))
    killAll();
  if (thread != tool_)
    return;
  if (WIFSIGNALED(status))
    ending_.signal = WTERMSIG(status);
  else
    ending_.exitStatus = WEXITSTATUS(status);
}

void Tracer::beforeCall(pid_t thread) {
  Thread& state = known(thread);
  user_regs_struct registers{};
  if (::ptrace(PTRACE_GETREGS, thread, nullptr, &registers) != 0)
    return;  // killed meanwhile
  const SystemCall call{
      .process = state.process,
      .byUpdater = state.process == tool_,
      .alone = isAlone(state.process),
      .program = state.program,
      .number = static_cast<long>(registers.orig_rax),
      .arguments = {registers.rdi, registers.rsi, registers.rdx, registers.r10, registers.r8, registers.r9}};
  if (!isOurs(state)) {
    resume(thread);
    return;
  }
  if (call.number == SYS_clock_gettime) {
    if (call.byUpdater && call.arguments[0] == CLOCK_MONOTONIC)
      state.call = call;
    proceed(state.call ? PTRACE_SYSCALL : PTRACE_CONT, thread);
    return;
  }
  state.fate = watcher_.before(call);
  switch (state.fate.kind) {
    case Fate::Kind::fail:
      if (call.number == SYS_brk) {
        // It knows no error numbers: where it fails, the end of the memory stays where it is.
        registers.rdi = 0;
        ::ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
        state.call = call;
        proceed(PTRACE_SYSCALL, thread);
        break;
      }
      [[fallthrough]];
    case Fate::Kind::pretend:
      // A call without a number is skipped, and its result is what is set here.
      registers.orig_rax = static_cast<std::uint64_t>(-1);
      registers.rax = static_cast<std::uint64_t>(-static_cast<std::int64_t>(state.fate.errorNumber));
      ::ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
      resume(thread);
      break;
    case Fate::Kind::killBefore:
      kill(call, state.fate.victim);
      resume(thread);
      break;
    case Fate::Kind::hang:
      break;
    case Fate::Kind::proceed:
      if (!watcher_.after || (watcher_.wantsAfter != nullptr && !watcher_.wantsAfter(call))) {
        resume(thread);
        break;
      }
      [[fallthrough]];
    case Fate::Kind::failAfter:
    case Fate::Kind::killAfter:
      state.call = call;
      proceed(PTRACE_SYSCALL, thread);
      break;
  }
}

void Tracer::afterCall(pid_t thread) {
  Thread& state = known(thread);
  user_regs_struct registers{};
  if (::ptrace(PTRACE_GETREGS, thread, nullptr, &registers) != 0 || !state.call) {
    resume(thread);
    return;
  }
  const SystemCall call = *state.call;
  state.call.reset();
  if (call.number == SYS_clock_gettime) {
    if (registers.rax == 0)
      shiftClock(thread, call);
    resume(thread);
    return;
  }
  if (watcher_.after)
    watcher_.after(call, static_cast<std::int64_t>(registers.rax));
  if (state.fate.kind == Fate::Kind::failAfter)
    registers.rax = static_cast<std::uint64_t>(-static_cast<std::int64_t>(state.fate.errorNumber));
  if (state.fate.kind == Fate::Kind::failAfter || call.number == SYS_brk) {
    registers.rdi = call.arguments[0];
    ::ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
  }
  if (state.fate.kind == Fate::Kind::killAfter)
    kill(call, state.fate.victim);
  resume(thread);
}

void Tracer::shiftClock(pid_t thread, const SystemCall& call) {
  constexpr std::int64_t kLeap = 3600;
  if (waitsInVain())
    secondsAhead_ += kLeap;
  const RemoteWord seconds(thread, call.arguments[1] + offsetof(timespec, tv_sec));
  seconds.set(seconds.value() + secondsAhead_);
}

bool Tracer::waitsInVain() const {
  return !hasStartedOthers_ || std::ranges::any_of(threads_, [this](const auto& entry) {
    const Thread* link = &entry.second;
    if (!hangs(*link))
      return false;
    while (link && link->process != tool_ && link->parent != tool_)
      link = threadOf(link->parent);
    return link != nullptr;
  });
}

bool Tracer::isAlone(pid_t process) const {
  return std::ranges::none_of(
      threads_, [&](const auto& entry) { return entry.second.process != process && isOurs(entry.second); });
}

const Tracer::Thread* Tracer::threadOf(pid_t process) const {
  const auto found = std::ranges::find_if(
      threads_, [process](const auto& entry) { return entry.second.process == process; });
  return found == threads_.end() ? nullptr : &found->second;
}

void Tracer::kill(const SystemCall& call, Fate::Victim victim) {
  if (victim == Fate::Victim::everyone)
    everyoneDies_ = true;
  for (const auto& [thread, state] : threads_) {
    const bool dies = victim == Fate::Victim::caller ? state.process == call.process
                      : victim == Fate::Victim::tool ? state.process == tool_
                                                     : isOurs(state);
    if (dies)
      ::kill(state.process, SIGKILL);
  }
}

void Tracer::killAll() {
  for (const auto& [thread, state] : threads_)
    ::kill(state.process, SIGKILL);
}

}  // namespace

Ending trace(const fs::path& program, const std::vector<std::string>& arguments, const Watcher& watcher) {
  const OneProcessor processor;
  const Capture capture;
  std::vector<sock_filter> filter = filterOfInterest(watcher);
  const sock_fprog filterProgram{static_cast<unsigned short>(filter.size()), filter.data()};

  const pid_t child = startProgram(program, arguments, capture, [&] {
    if (watcher.prepare)
      watcher.prepare();
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0 || ::raise(SIGSTOP) != 0 ||
        ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filterProgram) != 0)
      ::_exit(126);
  });
  Ending ending = Tracer(watcher, child).run();
  ending.output = capture.output();
  ending.error = capture.error();
  return ending;
}

}  // namespace rehearse
