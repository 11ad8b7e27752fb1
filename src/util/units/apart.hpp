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

#include <functional>
#include <string>
#include <string_view>

#include "fault.hpp"

namespace util {

struct apart {
  pid_t process = -1;
  int said = -1;    ///< the pipe that what it says comes through, behind what libraries said
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
/// note     what libraries wrote to standard error there is the reason of a failure, of which they
///          say a line for each thing that they could not do; when all went well it is passed on
std::string wait_apart(apart& work);

/// All of it in one call.
/// given    where  what the fault is told of when the other process could not say it
/// returns  the fault of the work, or that it could not be done
status done_apart(const std::string& where, const std::function<status()>& work);

}  // namespace util
