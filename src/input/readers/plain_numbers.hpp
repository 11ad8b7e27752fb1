// plain_numbers: numbers between blanks, as programs print them, taken quickly or not at all.
//
// Files of a million numbers are read by these first. What they do not take (a comma, a repeat
// count, a D exponent, more digits than a double holds exactly) is no fault: the caller then reads
// the line by the rules of free format (list_io.hpp), which give the same values for what is taken
// here.
#pragma once
#include <cstdint>
#include <string_view>

namespace input {

/// Takes the next number off the front of a line, with the blanks before it.
/// returns  false when it is not plain; `rest` and `value` then stay as they are
/// errors   none
bool take_plain(std::string_view& rest, double& value);
bool take_plain(std::string_view& rest, std::int32_t& value);

}  // namespace input
