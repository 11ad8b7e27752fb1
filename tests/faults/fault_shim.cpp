// Makes one library call of a program fail, for tests: LD_PRELOAD=libfault_shim.so and
//
//   FAULT_CALL   the call: malloc, fopen, open, read, write, fread, fwrite, fflush, fclose, close,
//                rename, mkdir, stat
//   FAULT_AT     which one fails, counted from 1; 0: none, they are only counted
//   FAULT_STAYS  when set, all later ones fail too
//   FAULT_ON     only calls on a file whose path contains this text are counted
//   FAULT_WHY    the errno value; 0: the program is killed at that moment, as if by kill -9
//   FAULT_COUNT  a file: how many calls there were, a long; without FAULT_CALL one for each call
//                above, in that order. Of several processes it is the largest count
//   FAULT_LATER  when set, counting begins with fault_shim_begin() and ends with fault_shim_end()
//   FAULT_PATIENCE  seconds: no alarm of the program waits longer
//   FAULT_TIME   seconds since 1970: always that time, so that two runs make the same files
//
// Counting begins with main. A stream that fails does so by its own means: its descriptor is made
// one that can only fail, so that its error flag and its buffer are what a real fault leaves.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

extern "C" {
void* __libc_malloc(std::size_t);               // NOLINT: the C library's names
void* __libc_calloc(std::size_t, std::size_t);  // NOLINT
void* __libc_realloc(void*, std::size_t);       // NOLINT
}

namespace {

constexpr std::array<std::string_view, 13> calls_known{
    "malloc", "fopen",  "open",  "read",   "write", "fread", "fwrite",
    "fflush", "fclose", "close", "rename", "mkdir", "stat"};

struct setting {
  std::string_view call;
  std::string_view on;
  long at = 0;
  bool stays = false;
  int why = EIO;
  std::atomic<long>* count = nullptr;  // in the file, so that it outlives any end of the process
};
setting wanted;
std::atomic<long> calls{0};                                   // of the one that fails
std::array<std::atomic<long>, calls_known.size()> of_each{};  // without one
std::atomic<bool> begun{false};

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view{} : value;
}

long number(const char* name, long otherwise) {
  const std::string_view text = variable(name);
  return text.empty() ? otherwise : std::strtol(text.data(), nullptr, 10);
}

void begin() {
  wanted.call = variable("FAULT_CALL");
  wanted.on = variable("FAULT_ON");
  wanted.at = number("FAULT_AT", 0);
  wanted.stays = !variable("FAULT_STAYS").empty();
  wanted.why = static_cast<int>(number("FAULT_WHY", EIO));
  if (const auto path = variable("FAULT_COUNT"); !path.empty()) {
    const std::size_t size = sizeof(long) * (wanted.call.empty() ? calls_known.size() : 1);
    const int file = open(path.data(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    void* memory = MAP_FAILED;
    if (file >= 0 && ftruncate(file, static_cast<off_t>(size)) == 0) {
      memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    }
    if (memory != MAP_FAILED) wanted.count = static_cast<std::atomic<long>*>(memory);
  }
  begun = variable("FAULT_LATER").empty();
}

void note_count(std::atomic<long>& count, long n) {
  long before = count;
  while (before < n && !count.compare_exchange_weak(before, n)) {
  }
}

void count_each(std::string_view call) {
  if (wanted.count == nullptr) return;
  for (std::size_t i = 0; i < calls_known.size(); ++i) {
    if (calls_known[i] == call) note_count(wanted.count[i], ++of_each[i]);
  }
}

bool fails(std::string_view call, std::string_view path) {
  if (!begun) return false;
  if (wanted.call.empty()) count_each(call);
  if (call != wanted.call) return false;
  if (!wanted.on.empty() && path.find(wanted.on) == std::string_view::npos) return false;
  const long n = ++calls;
  if (wanted.count != nullptr) note_count(*wanted.count, n);
  if (wanted.at == 0 || n < wanted.at || (n > wanted.at && !wanted.stays)) return false;
  if (wanted.why == 0) static_cast<void>(raise(SIGKILL));
  errno = wanted.why;
  return true;
}

using path_text = std::array<char, 4096>;

// What the descriptor is open on; looked up only where it matters.
std::string_view path_of(int file, path_text& text) {
  if (!begun || wanted.on.empty()) return {};
  std::array<char, 64> link{};
  std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", file);
  const ssize_t length = readlink(link.data(), text.data(), text.size());
  return {text.data(), length < 0 ? 0 : static_cast<std::size_t>(length)};
}

bool fails_on(std::string_view call, int file) {
  path_text text;
  return fails(call, path_of(file, text));
}

template <class T>
T next(const char* name, T /*own*/) {
  return reinterpret_cast<T>(dlsym(RTLD_NEXT, name));
}

// Reading its own memory at address 0 is EIO, writing to a full device ENOSPC: the stream finds the
// fault where it would find a real one.
void break_stream(std::FILE* stream, bool reading) {
  const int bad = open(reading ? "/proc/self/mem" : "/dev/full", O_RDWR | O_CLOEXEC);
  dup2(bad, fileno(stream));
  close(bad);
}

int (*real_main)(int, char**, char**) = nullptr;

int main_with_faults(int count, char** arguments, char** environment) {
  begin();
  return real_main(count, arguments, environment);
}

}  // namespace

extern "C" {

int __libc_start_main(int (*main)(int, char**, char**), int count, char** arguments,  // NOLINT
                      void (*init)(), void (*fini)(), void (*rtld_fini)(), void* stack_end) {
  real_main = main;
  const auto start =
      reinterpret_cast<decltype(&__libc_start_main)>(dlsym(RTLD_NEXT, "__libc_start_main"));
  return start(main_with_faults, count, arguments, init, fini, rtld_fini, stack_end);
}

void* malloc(std::size_t size) { return fails("malloc", {}) ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t n, std::size_t size) {
  return fails("malloc", {}) ? nullptr : __libc_calloc(n, size);
}
void* realloc(void* old, std::size_t size) {
  return fails("malloc", {}) ? nullptr : __libc_realloc(old, size);
}

std::FILE* fopen(const char* path, const char* mode) {
  static const auto real = next("fopen", &fopen);
  return fails("fopen", path) ? nullptr : real(path, mode);
}

int open(const char* path, int flags, ...) {
  static const auto real = next("open", &open);
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  return fails("open", path) ? -1 : real(path, flags, mode);
}

ssize_t read(int file, void* to, std::size_t size) {
  static const auto real = next("read", &read);
  return fails_on("read", file) ? -1 : real(file, to, size);
}

ssize_t write(int file, const void* from, std::size_t size) {
  static const auto real = next("write", &write);
  return fails_on("write", file) ? -1 : real(file, from, size);
}

std::size_t fread(void* to, std::size_t size, std::size_t n, std::FILE* stream) {
  static const auto real = next("fread", &fread);
  if (fails_on("fread", fileno(stream))) break_stream(stream, true);
  return real(to, size, n, stream);
}

std::size_t fwrite(const void* from, std::size_t size, std::size_t n, std::FILE* stream) {
  static const auto real = next("fwrite", &fwrite);
  if (fails_on("fwrite", fileno(stream))) break_stream(stream, false);
  return real(from, size, n, stream);
}

int fflush(std::FILE* stream) {
  static const auto real = next("fflush", &fflush);
  if (stream != nullptr && fails_on("fflush", fileno(stream))) break_stream(stream, false);
  return real(stream);
}

int fclose(std::FILE* stream) {
  static const auto real = next("fclose", &fclose);
  const bool failing = fails_on("fclose", fileno(stream));
  const int closed = real(stream);
  if (failing) errno = wanted.why;
  return failing ? EOF : closed;
}

int close(int file) {
  static const auto real = next("close", &close);
  const bool failing = fails_on("close", file);
  const int closed = real(file);
  if (failing) errno = wanted.why;
  return failing ? -1 : closed;
}

int rename(const char* from, const char* to) noexcept {
  static const auto real = next("rename", &rename);
  return fails("rename", to) ? -1 : real(from, to);
}

int mkdir(const char* path, mode_t mode) noexcept {
  static const auto real = next("mkdir", &mkdir);
  return fails("mkdir", path) ? -1 : real(path, mode);
}

int stat(const char* path, struct stat* info) noexcept {
  static const auto real = next("stat", &stat);
  return fails("stat", path) ? -1 : real(path, info);
}

// A page that can never be drawn is given up after minutes, which thousands of faults have not.
unsigned alarm(unsigned seconds) noexcept {
  static const auto real = next("alarm", &alarm);
  const long most = number("FAULT_PATIENCE", 0);
  return real(most > 0 && seconds > most ? static_cast<unsigned>(most) : seconds);
}

int clock_gettime(clockid_t clock, struct timespec* now) noexcept {
  static const auto real = next("clock_gettime", &clock_gettime);
  static const long stopped = number("FAULT_TIME", 0);
  if (clock != CLOCK_REALTIME || stopped == 0) return real(clock, now);
  *now = {.tv_sec = stopped, .tv_nsec = 0};
  return 0;
}

std::time_t time(std::time_t* into) noexcept {
  struct timespec now {};
  clock_gettime(CLOCK_REALTIME, &now);
  if (into != nullptr) *into = now.tv_sec;
  return now.tv_sec;
}

// For an interpreter, whose own calls are nobody's business here.
void fault_shim_begin() { begun = true; }
void fault_shim_end() { begun = false; }

}  // extern "C"
