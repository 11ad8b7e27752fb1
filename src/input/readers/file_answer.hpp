// The file that an answer names.
#pragma once
#include <cstddef>
#include <string>
#include <string_view>

#include "fault.hpp"

namespace input {

/// Path of the file that an operator named: quotes taken off, a leading $NAME replaced by the
/// variable's value, as names completed on a terminal have it.
/// given    answer  as typed
///          width   characters that the path may have
/// returns  the path, or the fault: variable not set, path too long. Unlike util::fullfilename this
///          does not end the run: the question can be asked again
util::outcome<std::string> path_of_answer(std::string_view answer, std::size_t width);

}  // namespace input
