// How a run ends when there is no sensible way on.
//
// Every ending flushes standard output first and closes every file unit, so all that was written
// is on disk. Messages go to standard error and begin with the program's name.
//
//   run_time_error  one line, status 1
//   err_exit        the two fixed lines on standard output, a stack trace on standard error,
//                   status 2
//   stop_program    the caller has said everything; status as given
//
// The end of the process is one replaceable procedure (end_process), so that a fuzz target can
// leave by an exception or a jump instead. Files and the terminal lie above this storey: they leave
// their closing here (close_files, erase_unfinished_line) when there is something to close.
#pragma once
#include <exception>
#include <string>
#include <string_view>

namespace util {

/// Name that begins every message: "butngain" unless another program of the house sets its own.
inline std::string_view program_name = "butngain";

/// Ends the process with this status. Replaceable (fuzz targets, tests); must not return.
inline void (*end_process)(int status) = nullptr;

/// A run-time error that was met where the run must not end: on a thread that works beside others.
struct postponed_error {
  std::string what;  ///< what would have been told
};

/// Whether this thread's run-time errors, and its want of memory, are thrown (postponed_error,
/// std::bad_alloc) instead of ending the run. Whoever sets it catches them.
inline thread_local bool postpone_end = false;

/// Ends the run as the fault that was caught would have: postponed_error as run_time_error, all others
/// by throwing them again. Where this thread postpones too, that is thrown again as well.
[[noreturn]] void end_as_postponed(const std::exception_ptr& fault);

/// Which files an ending closes: those whose unit was handed out for the moment, or every one.
enum class closing { handed_out, every };

/// Closes open files at the end of a run; a failure is told on standard error, and the rest is
/// closed all the same. Returns whether all went well. Who opens files sets it with the first
/// one; null as long as there is nothing to close.
inline bool (*close_files)(closing which) = nullptr;

/// Removes the scratch files of what was not finished, when a run ends before it is. Who makes such
/// files sets it with the first one.
inline void (*remove_unfinished)() = nullptr;

/// Erases a line that is still being drawn on the terminal, before a message goes there. Who draws
/// sets it; null as long as nobody has drawn.
inline void (*erase_unfinished_line)() = nullptr;

/// Told of the end of a run, once, when every file is closed: how it ended ("whole", "interrupted",
/// "run-time error: ...") and with which status. Returns false when the note of it could not be made,
/// which it has told. Who keeps a record of the run sets it; null as long as nobody does.
inline bool (*note_ending)(std::string_view how, int status) = nullptr;

/// For an ending of another storey: notes it. Returns the status to leave with: 1 in place of 0 when
/// the note could not be made.
int ending_noted(std::string_view how, int status);

/// errno value of the failed write that was told last; 0 before the first. The same reason is not told
/// again for every other file that it met: a full disk is one fault.
inline int write_failure_told = 0;

/// One line on standard error, "butngain: <what>", behind everything printed so far and on a line of
/// its own. What could steer a terminal stands as an escape.
/// errors   none: a line that nobody can get changes nothing
void tell_line(std::string_view what);

/// Ends the run with one line "butngain: run-time error: <what>", status 1.
[[noreturn]] void run_time_error(std::string_view what);

/// Ends the run: "subscript 3001 of orbit_data is outside 1..3000". With a dimension from 1 on the
/// text names it: "subscript 1 (= 6) of gain_save is outside 1..5".
[[noreturn]] void subscript_error(std::string_view array, long long subscript, long long lower,
                                  long long upper, int dimension = 0);

/// Ends the run: "<name> is used before it is given a value".
[[noreturn]] void not_given_error(std::string_view name);

/// Ends the run: `end of input at "<prompt>"`, the prompt without its outer blanks. On a terminal
/// the cursor's line is ended first.
[[noreturn]] void end_of_input_error(std::string_view prompt);

/// The common fatal exit: closes every unit from 30 to 60, prints its two lines on standard output,
/// writes a stack trace to standard error, and ends the process with status 2.
[[noreturn]] void err_exit();

/// Ends the run because a write failed: "writing <what>: <reason>", status 1.
/// given    reason  errno value; 0 where the reason is lost: it is EIO then
[[noreturn]] void write_error(std::string_view what, int reason);

/// Closes all units, flushes standard output and ends the process with this status. When the last
/// of standard output cannot be written, says so and ends with status 1 instead.
[[noreturn]] void stop_program(int status);

/// "No such file or directory" and the like for an errno value.
std::string system_text(int error_number);

}  // namespace util
