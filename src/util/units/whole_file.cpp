#include "whole_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>

#include "run_time.hpp"

namespace util {
namespace {

// What is in the making, for the end of a run that comes before it is finished: a signal may be that
// end, so what is kept needs neither memory nor a lock to be looked through. Several threads may each
// write a file of their own; a name for which there is no room is removed by its writer alone.
enum class slot_state { free, filling, holds };
struct slot {
  std::atomic<slot_state> state{slot_state::free};
  std::array<char, PATH_MAX> name{};
};
std::array<slot, 64> unfinished;

// The files first: a folder goes when it is empty.
void remove_all() {
  for (const auto remove_one : {&unlink, &rmdir}) {
    for (const slot& one : unfinished) {
      if (one.state == slot_state::holds) static_cast<void>(remove_one(one.name.data()));
    }
  }
}

// A device or a pipe is written to where it is: renaming something onto it would replace it.
bool is_special(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode);
}

// A name that nobody else makes: process and counter tell apart what runs at the same time. One
// that stands there all the same was left by a process that was killed, and is passed over.
int open_scratch(const std::string& path, std::string& name) {
  static std::atomic<int> counter{0};
  // So many names left over by killed processes are passed over; more are no accident.
  constexpr int most_tries = 100;
  constexpr mode_t everybody = 0666;  // less what the umask takes away
  name = path;
  // NOLINTNEXTLINE(*-vararg): the system's own interface
  if (is_special(path)) return open(name.c_str(), O_WRONLY | O_CLOEXEC);
  for (int i = 0; i < most_tries; ++i) {
    name = path + ".part" + std::to_string(getpid()) + "_" + std::to_string(++counter);
    // Noted before it is there: a run may end between the two.
    scratch_begun(name);
    // Neither a file nor a link of this name is written through: in a folder that others can write
    // to, it could lead the text elsewhere.
    // NOLINTNEXTLINE(*-vararg): the system's own interface
    const int file =
        open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, everybody);
    if (file >= 0) return file;
    const int reason = errno;
    scratch_ended(name);
    errno = reason;
    if (reason != EEXIST) return file;
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

void scratch_begun(const std::string& name) {
  remove_unfinished = remove_all;
  if (name.size() >= PATH_MAX) return;
  for (slot& one : unfinished) {
    slot_state expected = slot_state::free;
    if (!one.state.compare_exchange_strong(expected, slot_state::filling)) continue;
    *std::copy(name.begin(), name.end(), one.name.begin()) = '\0';
    one.state = slot_state::holds;
    return;
  }
}

void scratch_ended(const std::string& name) {
  for (slot& one : unfinished) {
    if (one.state == slot_state::holds && name == one.name.data()) one.state = slot_state::free;
  }
}

unfinished_file::~unfinished_file() {
  if (file < 0) return;
  static_cast<void>(close(file));
  give_up_scratch(scratch, path);
}

outcome<std::string> make_scratch(const std::string& path) {
  std::string name;
  const int file = open_scratch(path, name);
  if (file < 0) return fault{system_text(errno), path, {}};
  static_cast<void>(close(file));
  return name;
}

int put_in_place(const std::string& scratch, const std::string& path) {
  if (scratch == path) return 0;
  const int reason = std::rename(scratch.c_str(), path.c_str()) == 0 ? 0 : errno;
  if (reason == 0) {
    scratch_ended(scratch);
  } else {
    give_up_scratch(scratch, path);
  }
  return reason;
}

void give_up_scratch(const std::string& scratch, const std::string& path) {
  if (scratch == path) return;
  static_cast<void>(unlink(scratch.c_str()));
  scratch_ended(scratch);
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
  if (whole.trouble == 0) {
    whole.trouble = put_in_place(whole.scratch, whole.path);
  } else {
    give_up_scratch(whole.scratch, whole.path);
  }
  if (whole.trouble == 0) return {};
  return fault{system_text(whole.trouble), whole.path, {}};
}

status write_whole_file(const std::string& path, std::string_view text) {
  unfinished_file whole;
  if (auto fault = begin_whole_file(whole, path)) return fault;
  put(whole, text);
  return finish(whole);
}

}  // namespace util
