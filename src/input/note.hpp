// Notes to the operator that are no part of the transcript: what of the data could not be used.
#pragma once
#include <string_view>

namespace input {

/// Tells one line on standard error, "butngain: <what>", behind all that was printed before it.
void note(std::string_view what);

}  // namespace input
