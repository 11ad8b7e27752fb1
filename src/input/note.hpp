// What the dialogs tell on standard error: notes that are no part of the transcript, and the faults
// that end a run.
#pragma once
#include <string_view>

#include "fault.hpp"

namespace input {

/// Tells one line, "butngain: <what>", behind all that was printed before it.
void note(std::string_view what);

/// Ends the run with the fault's line, status 1. Control characters are shown as codes: the fault
/// may quote a file.
[[noreturn]] void end_run(const util::fault& why);

}  // namespace input
