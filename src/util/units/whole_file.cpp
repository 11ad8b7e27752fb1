#include "whole_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "run_time.hpp"

namespace util {
namespace {

// A name that nobody else makes: process and counter tell apart what runs at the same time. One
// that stands there all the same was left by a process that was killed, and is passed over.
int open_scratch(const std::string& path, std::string& name) {
  static std::atomic<int> counter{0};
  constexpr int most_tries = 100;
  constexpr mode_t everybody = 0666;  // less what the umask takes away
  for (int i = 0; i < most_tries; ++i) {
    name = path + ".part" + std::to_string(getpid()) + "_" + std::to_string(++counter);
    // NOLINTNEXTLINE(*-vararg): the system's own interface
    const int file =
        open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, everybody);
    if (file >= 0 || errno != EEXIST) return file;
  }
  return -1;
}

// 0, or the errno value of the write that failed.
int write_all(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

}  // namespace

unfinished_file::~unfinished_file() {
  if (file < 0) return;
  static_cast<void>(close(file));
  static_cast<void>(unlink(scratch.c_str()));
}

status begin_whole_file(unfinished_file& whole, const std::string& path) {
  whole.path = path;
  whole.file = open_scratch(path, whole.scratch);
  if (whole.file < 0) return fault{system_text(errno), path, {}};
  return {};
}

void put(unfinished_file& whole, std::string_view text) {
  if (whole.trouble == 0) whole.trouble = write_all(whole.file, text);
}

status finish(unfinished_file& whole) {
  // Some file systems tell of a full disk only here.
  if (close(whole.file) != 0 && whole.trouble == 0) whole.trouble = errno;
  whole.file = -1;
  if (whole.trouble == 0 && std::rename(whole.scratch.c_str(), whole.path.c_str()) != 0) {
    whole.trouble = errno;
  }
  if (whole.trouble == 0) return {};
  static_cast<void>(unlink(whole.scratch.c_str()));
  return fault{system_text(whole.trouble), whole.path, {}};
}

status write_whole_file(const std::string& path, std::string_view text) {
  unfinished_file whole;
  if (auto fault = begin_whole_file(whole, path)) return fault;
  put(whole, text);
  return finish(whole);
}

}  // namespace util
