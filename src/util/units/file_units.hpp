// File units: small numbers that stand for open files.
//
// Units 30..60 are handed out by lunget; 1, 11, 26, 67 and 111 have fixed uses. Writing to a unit
// that nothing opened goes to fort.N in the working directory, made on the first write: diagnostic
// lines need no opening. With an output_base set, outputs go there instead. Every write and every close is checked: a full disk ends the run with the
// file's name and the reason, never a short file with status 0.
#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "list_io.hpp"

namespace util {

inline constexpr int first_free_unit = 30;
inline constexpr int last_free_unit = 60;

/// Whether lunget ends the run (err_exit) when no unit is left. Set by default.
inline bool exit_on_error = true;

/// Where all that a run leaves goes: what has no leading slash lies below it. Empty: the working
/// directory. Names that are told in the transcript stay as they are; messages show the whole path.
inline std::string output_base;

/// Where an output of this name lies: below output_base, unless it has a place of its own.
std::string output_path(const std::string& name);

/// The name of an output that is named after an input and would lie beside it: with an output_base
/// its last part, so that it lies there too, wherever the input is.
std::string output_name(const std::string& name);

/// The first unit from 30 to 60 that is not open.
/// errors   all open: prints "NO LOGICAL UNIT OPENABLE BETWEEN 30 AND 60!" as an error of lunget,
///          then err_exit; with exit_on_error off returns 0
int lunget();

/// Opens an existing file for reading.
/// returns  0, or the errno value of the failure (a directory gives EISDIR)
int open_old(int unit, const std::string& path);

/// Opens a file for writing, at its output_path: replaced the first time this run opens that path,
/// appended to when the run comes back to it.
/// errors   a failing open ends the run: "cannot open <path> for writing: <reason>"
void open_output(int unit, const std::string& name);

/// Opens a file for writing that has its name only once it is closed: whole or not at all. A run that
/// ends before leaves nothing of it; one that stood there before stays until then.
/// errors   as for open_output
void open_whole_output(int unit, const std::string& path);

/// Remembers why a directory (its path) could not be made. An open_output below it that fails because the
/// directory is not there names this reason, which the open itself cannot know.
void note_unmade_directory(const std::string& directory, int reason);

/// Reads one line; the line end (LF or CR LF) is taken off.
/// returns  nothing at end of file
/// errors   a failing read ends the run with file and reason; so does a line of more than
///          longest_line (line_cutter.hpp) characters, with file and line
bool read_line(int unit, std::string& line);

/// Reads the next line with at least one item into the record (empty lines are skipped), counting
/// lines. Returns false at end of file.
bool read_record(int unit, list_record& record);

/// Puts the reading position back to the start of the file.
void rewind_unit(int unit);

/// Writes the text and a line end. A unit never opened writes to fort.<unit>.
void write_line(int unit, std::string_view text);

/// Writes text as it stands: lines that were made elsewhere, with their ends.
void write_text(int unit, std::string_view text);

/// Name of the file that the unit stands for; empty when it is not open.
std::string unit_path(int unit);

bool is_open(int unit);

/// Closes the unit; does nothing when it is not open. A failing close ends the run.
void close_unit(int unit);

/// Closes every unit from first to last. With `ending` set a failure is told on standard error and
/// the remaining units are still closed; returns whether all went well.
bool close_units(int first, int last, bool ending);

/// Closes everything that is open. Same rules as close_units.
bool close_all_units(bool ending);

/// Hands everything written so far to the system, so that an interrupt at a prompt loses nothing.
void flush_all_units();

/// A unit from lunget that closes itself when it goes out of scope.
class unit_handle {
 public:
  unit_handle() = default;
  explicit unit_handle(int unit) : number_(unit) {}
  unit_handle(const unit_handle&) = delete;
  unit_handle& operator=(const unit_handle&) = delete;
  unit_handle(unit_handle&& other) noexcept : number_(other.number_) { other.number_ = 0; }
  unit_handle& operator=(unit_handle&& other) noexcept;
  ~unit_handle();
  int number() const { return number_; }

 private:
  int number_ = 0;
};

}  // namespace util
