#include "file_units.hpp"

#include <stdio_ext.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <utility>

#include "bounded.hpp"
#include "line_cutter.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"
#include "text.hpp"
#include "whole_file.hpp"

namespace util {
namespace {

constexpr int max_unit = 120;               // the highest with a fixed use is 111
constexpr std::size_t buffer_size = 65536;  // 16 times the library's own: fewer calls of the system

struct open_file {
  std::FILE* stream = nullptr;
  std::string path;
  std::string scratch;  // its name until it is closed; empty where that is the path
  bool for_writing = false;
  // The stream's own when writing, as long as it is open.
  std::unique_ptr<char[]> buffer;  // NOLINT(*-c-arrays)
  line_cutter cutter;              // the lines of a file that is read
};

// The table of units, and the names that this run has opened for writing before, as they were
// given: one file under two spellings counts as two.
bounded<open_file, 1, max_unit, "file units"> units;
std::set<std::string> written_before;

// The run's directory when it could not be made, and why.
struct unmade_directory {
  std::string prefix;  // with the slash; empty when there is none
  int reason = 0;
};
unmade_directory unmade;

// A failed write has been told; closing at the end of the run must not tell it again.
[[noreturn]] void end_on(open_file& file, int reason) {
  // Copied: the record that holds the name is emptied before the name is printed.
  const std::string path = file.path;
  static_cast<void>(std::fclose(file.stream));
  file = open_file{};
  write_error(path, reason);
}

// Only whole lines go to the system: a signal that ends the run leaves no half one. To be called with
// the size of what comes next, and behind what is more than the buffer holds.
void make_room(open_file& file, std::size_t size) {
  if (__fpending(file.stream) + size <= buffer_size) return;
  errno = 0;
  if (std::fflush(file.stream) != 0) end_on(file, errno);
}

// What a run's end asks of this table.
bool close_at_the_end(closing which) {
  return which == closing::handed_out ? close_units(first_free_unit, last_free_unit, true)
                                      : close_all_units(true);
}

int attach(int unit, const std::string& path, const char* mode) {
  // From here on there is something to close, whichever way the run ends.
  close_files = close_at_the_end;
  close_unit(unit);  // a unit opened again lets go of its file, and tells what could not be written
  std::FILE* stream = std::fopen(path.c_str(), mode);
  if (stream == nullptr) return errno;
  open_file& file = units(unit);
  file.stream = stream;
  file.path = path;
  file.for_writing = mode[0] != 'r';
  if (!file.for_writing) return 0;
  // Ours, not the library's: its size is then the same on every system. Not cleared: a session opens
  // two files a BPM.
  file.buffer = std::make_unique_for_overwrite<char[]>(buffer_size);  // NOLINT(*-c-arrays)
  std::setvbuf(stream, file.buffer.get(), _IOFBF, buffer_size);
  return 0;
}

// Closes the stream and forgets the file. Returns 0 or the errno value of what failed. What was to be
// whole has its name only when the run goes on.
int detach(open_file& file, bool ending) {
  // A write that failed earlier may have left nothing for fclose to fail at; its reason is gone.
  const bool failed_before = std::ferror(file.stream) != 0;
  errno = 0;
  const int closed = std::fclose(file.stream);
  const int reason = errno;
  const open_file was = std::exchange(file, open_file{});
  if (!was.scratch.empty()) {
    if (!ending && closed == 0 && !failed_before) return put_in_place(was.scratch, was.path);
    give_up_scratch(was.scratch, was.path);
  }
  if (closed != 0) return reason != 0 ? reason : EIO;
  return failed_before ? EIO : 0;
}

}  // namespace

int lunget() {
  for (int unit = first_free_unit; unit <= last_free_unit; ++unit) {
    if (!is_open(unit)) return unit;
  }
  print_line(" ERROR IN lunget: NO LOGICAL UNIT OPENABLE BETWEEN 30 AND 60!");
  if (exit_on_error) err_exit();
  return 0;
}

int open_old(int unit, const std::string& path) {
  const int failed = attach(unit, path, "re");  // e: no program started later inherits the file
  if (failed != 0) return failed;
  // A directory opens for reading and fails only at the first read.
  struct stat info {};
  if (fstat(fileno(units(unit).stream), &info) == 0 && S_ISDIR(info.st_mode)) {
    close_unit(unit);
    return EISDIR;
  }
  return 0;
}

std::string output_path(const std::string& name) {
  if (output_base.empty() || name.starts_with('/')) return name;
  return output_base + (output_base.ends_with('/') ? "" : "/") + name;
}

std::string output_name(const std::string& name) {
  return output_base.empty() ? name : name.substr(name.rfind('/') + 1);
}

void open_output(int unit, const std::string& name) {
  const std::string path = output_path(name);
  const bool again = written_before.contains(path);
  const int failed = attach(unit, path, again ? "ae" : "we");
  if (failed != 0) {
    const bool below_unmade =
        failed == ENOENT && !unmade.prefix.empty() && path.rfind(unmade.prefix, 0) == 0;
    run_time_error("cannot open " + path + " for writing: " +
                   (below_unmade ? "its directory could not be made: " + system_text(unmade.reason)
                                 : system_text(failed)));
  }
  written_before.insert(path);
}

void open_whole_output(int unit, const std::string& path) {
  const auto scratch = make_scratch(path);
  if (!scratch) run_time_error("cannot open " + path + " for writing: " + scratch.why.what);
  if (const int failed = attach(unit, *scratch, "we"); failed != 0) {
    run_time_error("cannot open " + path + " for writing: " + system_text(failed));
  }
  // Messages are about the file that is wanted.
  units(unit).path = path;
  units(unit).scratch = *scratch;
}

void note_unmade_directory(const std::string& directory, int reason) {
  unmade = {directory + "/", reason};
}

bool read_line(int unit, std::string& line) {
  open_file& file = units(unit);
  if (file.stream == nullptr) {
    run_time_error("reading from unit " + std::to_string(unit) + ", which is not open");
  }
  switch (cut_line(file.cutter, file.stream, line)) {
    case line_cut::failed:
      run_time_error("reading " + shown(file.path) + " at byte " + std::to_string(file.cutter.got) +
                     ": " + system_text(errno));
    case line_cut::endless:
      run_time_error(shown(file.path) + ":" + std::to_string(file.cutter.number) +
                     ": no line end within " + std::to_string(longest_line) +
                     " characters, expected a text file");
    case line_cut::end:
      return false;
    case line_cut::line:
      return true;
  }
  return false;
}

bool read_record(int unit, list_record& record) {
  std::string line;
  while (read_line(unit, line)) {
    // Empty lines count too: the number is that of an editor.
    ++record.line;
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    start_record(record, line);
    return true;
  }
  return false;
}

void rewind_unit(int unit) {
  open_file& file = units(unit);
  if (file.stream == nullptr) return;
  std::rewind(file.stream);
  // The block in hand is of the place before: dropped with it.
  file.cutter = {};
}

void write_text(int unit, std::string_view text) {
  open_file& file = units(unit);
  if (file.stream == nullptr) open_output(unit, "fort." + std::to_string(unit));
  make_room(file, text.size());
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), file.stream) != text.size()) end_on(file, errno);
  if (text.size() > buffer_size) make_room(file, buffer_size);
}

void write_line(int unit, std::string_view text) {
  open_file& file = units(unit);
  if (file.stream == nullptr) open_output(unit, "fort." + std::to_string(unit));
  make_room(file, text.size() + 1);
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), file.stream) != text.size() ||
      std::putc('\n', file.stream) == EOF) {
    end_on(file, errno);
  }
}

std::string unit_path(int unit) { return units(unit).path; }

bool is_open(int unit) { return units(unit).stream != nullptr; }

void close_unit(int unit) {
  open_file& file = units(unit);
  if (file.stream == nullptr) return;
  const std::string path = file.path;
  const bool for_writing = file.for_writing;
  const int failed = detach(file, false);
  // What was read is in hand already: a failing close takes nothing away from it.
  if (failed != 0 && for_writing) write_error(path, failed);
}

bool close_units(int first, int last, bool ending) {
  bool well = true;
  for (int unit = first; unit <= last; ++unit) {
    open_file& file = units(unit);
    if (file.stream == nullptr) continue;
    if (!ending) {  // the first failure ends the run, which closes the rest
      close_unit(unit);
      continue;
    }
    const std::string path = file.path;
    const bool for_writing = file.for_writing;
    const int failed = detach(file, true);
    if (failed == 0 || !for_writing) continue;
    // Told here, not through run_time_error: the run is ending already, and the others must close.
    well = false;
    if (failed == write_failure_told) continue;
    write_failure_told = failed;
    tell_line("run-time error: writing " + path + ": " + system_text(failed));
  }
  return well;
}

// Fixed units too: tables that the session writes by number live there.
bool close_all_units(bool ending) { return close_units(1, max_unit, ending); }

void flush_all_units() {
  for (open_file& file : units.item) {
    if (file.stream == nullptr || !file.for_writing) continue;
    errno = 0;
    // A full disk shows here, at a question, rather than at the end of the run.
    if (std::fflush(file.stream) != 0) end_on(file, errno);
  }
}

unit_handle& unit_handle::operator=(unit_handle&& other) noexcept {
  if (this != &other) {
    if (number_ != 0) close_unit(number_);
    number_ = other.number_;
    other.number_ = 0;
  }
  return *this;
}

unit_handle::~unit_handle() {
  if (number_ != 0) close_unit(number_);
}

}  // namespace util
