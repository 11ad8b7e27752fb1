// apart: work in a process of its own, for libraries that do not survive everything.
//
// Where there is no memory, the drawing libraries crash, or wait for ever; a session that has fitted
// everything must not end with them. What the work leaves is files; what it says is one text.
//
//     util::apart work;
//     if (util::begin_apart(work)) util::end_apart(work, draw(...));  // the other process ends here
//     const std::string reason = util::wait_apart(work);
#pragma once
#include <sys/types.h>

#include <string>
#include <string_view>

namespace util {

struct apart {
  pid_t process = -1;
  int said = -1;    ///< the pipe that what it says comes through
  int trouble = 0;  ///< errno value of why there is no process
};

/// Begins it: everything printed or written so far is handed to the system first, so that nothing is
/// written twice.
/// returns  true in the other process, which must come to end_apart; false in this one
/// note     for a program of one thread
bool begin_apart(apart& work);
/// Ends the other process. Empty text: all went well.
[[noreturn]] void end_apart(const apart& work, std::string_view text);
/// Waits for it, two minutes at most.
/// returns  what it said; how it ended, when it could not say anything
std::string wait_apart(apart& work);

}  // namespace util
