// Run numbers: from what an operator types to the number of a recorded run.
#pragma once
#include <cstdint>
#include <string_view>

#include "fault.hpp"

namespace input {

/// The number of a run, from an absolute or a relative one.
///
/// given    kind    kind of run; "TBT" (turn-by-turn) is the only one recorded
///          number  a positive number is a run number as it stands; 0 is the newest run of the
///                  index, -n the newest minus n
/// returns  the run number, or why there is no such run, with file and line where there is one
/// errors   a relative number with no variable for the index's path set ends the run (fullfilename)
/// note     the index is read anew for each relative number: runs are recorded while a session
///          lasts
/// source   the file KOVR_RUN_INDEX of the site's configuration
util::outcome<std::int32_t> number_to_true_number(std::string_view kind, std::int32_t number);

}  // namespace input
