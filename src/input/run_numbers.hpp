// Run numbers: from what an operator types to the number of a recorded run.
//
// The run index lists every recorded turn-by-turn run, one a line: number, date, time; # begins a
// comment. The newest run is the largest number, wherever its line stands.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>

namespace input {

/// The number of a run, from an absolute or a relative one.
///
/// given    kind    kind of run; "TBT" (turn-by-turn) is the only one recorded
///          number  a positive number is a run number as it stands; 0 is the newest run, -n the
///                  newest minus n
/// returns  true_number  the run number; as it was when err is set
///          err          whether there is no such run
///          fault        then why, in one line with file and line where there is one
/// errors   a relative number with no variable for the index's path set ends the run (fullfilename)
/// note     the index is read anew for each relative number: runs are recorded while a session
///          lasts
/// source   the file KOVR_RUN_INDEX of the site's configuration
void number_to_true_number(std::string_view kind, std::int32_t number, std::int32_t& true_number,
                           bool& err, std::string& fault);

}  // namespace input
