// coefficients: gain coefficients that were loaded into the electronics since they were calibrated.
//
// The file is what a session leaves as gains.load: `#` begins a comment; every other line is one
// button,
//     bpm name button old new ...
// of which name, button (BI, BO, TI, TO) and new count; a new value of "-" is none.
#pragma once
#include <map>
#include <string>

#include "chamber.hpp"
#include "fault.hpp"

namespace sim {

/// By name of the BPM, the coefficients of its four buttons [-].
using loaded_coefficients = std::map<std::string, buttons>;

/// errors   cannot be read; a line that is none, a value that is 0 or no number, a button twice or a
///          BPM of which a button lacks: the fault with file and line
util::outcome<loaded_coefficients> read_coefficients(const std::string& path);

}  // namespace sim
