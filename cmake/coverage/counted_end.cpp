// Endings without exit handlers, for builds that count what is reached: the counts are written first.
// The linker puts these in the place of the three (--wrap). Programs that go on in another one (execv)
// and processes that fork are the compiler's own care.
#include <csignal>

extern "C" {
void __gcov_dump(void);
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __real__Exit(int status);
int __real_raise(int number);

// Twice is once: what was written is not written again.
[[noreturn]] void __wrap__exit(int status) {
  __gcov_dump();
  __real__exit(status);
}

[[noreturn]] void __wrap__Exit(int status) {
  __gcov_dump();
  __real__Exit(status);
}

int __wrap_raise(int number) {
  struct sigaction now {};
  // Only where it ends the process: a test that raises what it handles goes on counting.
  if (sigaction(number, nullptr, &now) == 0 && now.sa_handler == SIG_DFL) __gcov_dump();
  return __real_raise(number);
}
}
