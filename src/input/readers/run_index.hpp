// run_index: the list of recorded runs, one a line: number, date, time; # begins a comment.
//
// The newest run is the largest number, wherever its line stands: runs can be recorded again.
#pragma once
#include <cstdint>
#include <string>

#include "fault.hpp"

namespace input {

/// The newest run of an index; the fault when it cannot be read or holds none.
util::outcome<std::int32_t> newest_run(const std::string& path);

}  // namespace input
