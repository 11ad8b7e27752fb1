#include "swap_buttons.hpp"

#include <string>
#include <utility>

#include "list_io.hpp"
#include "terminal.hpp"
#include "text.hpp"

namespace expert {

void ask_swap(std::span<store::bpm_struct> readings) {
  if (util::upcase(util::trim(util::ask_or_end(" Swap ? "))) != "Y") return;
  for (;;) {
    // List-directed: "2,3" and "2 3" are the same answer.
    util::list_record pair = util::ask_record(" Pair to swap (i.e. 2,3) ");
    const auto i1 = util::take_int(pair);
    const auto i2 = util::take_int(pair);
    if (!i1 || !i2) {
      util::tell_bad_answer(pair.text, "a pair of button numbers; type two, such as 2,3");
      continue;
    }
    // The signals only: the truth of synthetic data stays with the button that it was made for.
    for (store::bpm_struct& reading : readings) {
      std::swap(reading.button(*i1), reading.button(*i2));
    }
    return;
  }
}

}  // namespace expert
