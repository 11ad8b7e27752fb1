#include "in4get.hpp"

#include <string>

#include "list_io.hpp"
#include "terminal.hpp"

namespace input {

void in4get(std::string_view prompt, std::int32_t& value) {
  for (;;) {
    util::list_record answer;
    util::start_record(answer, util::ask_or_end(prompt));
    // An empty place, a slash or nothing at all keeps the default.
    if (util::take(answer, value) != util::taken::bad) return;
    util::tell_bad_answer(answer.text, "a whole number; type one, or press return for the default");
  }
}

}  // namespace input
