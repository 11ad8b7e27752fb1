// in4get: a whole number asked with a default.
#pragma once
#include <cstdint>
#include <string_view>

namespace input {

/// Asks for a 32-bit integer.
///
/// given    prompt  shown with one leading blank, no line end
///          value   the default
/// returns  through value: the number typed; unchanged after an empty answer
/// errors   anything but a number is told in one line and asked again; end of input ends the run
void in4get(std::string_view prompt, std::int32_t& value);

}  // namespace input
