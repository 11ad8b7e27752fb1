#include "bunch_dialog.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "list_io.hpp"
#include "terminal.hpp"

namespace input {
namespace {

// A number typed as a word; a blank answer keeps the value. As a word, so that what is no number can
// be told as it was typed; what stands behind it is not looked at.
void ask_number(std::string_view prompt, std::int32_t& value) {
  for (;;) {
    util::list_record answer;
    util::start_record(answer, util::ask_or_end(prompt));
    std::string word;
    if (util::take(answer, word) != util::taken::value) return;
    if (const auto number = util::scan_integer(word)) {
      value = *number;
      return;
    }
    util::tell_bad_answer(word, "a bunch number; type one, such as 1");
  }
}

// Position of the last bunch with the number; 0 when there is none.
int position_of(const tbt_mod::tbt_all_data_struct& tbt, std::int32_t number) {
  int position = 0;  // the last one wins: kept for compatibility
  // A file may call a bunch 0, and the answer 0 means "none": numbers below 1 match nothing.
  if (number < 1) return position;
  for (std::size_t k = 0; k < tbt.bunch.size(); ++k) {
    if (operators_number(tbt.bunch[k]) == number) position = static_cast<int>(k) + 1;
  }
  return position;
}

void tell_bunches(const tbt_mod::tbt_all_data_struct& tbt) {
  util::list_line line;
  line.text("there is data for bunches ");
  for (const auto& bunch : tbt.bunch) line.integer(operators_number(bunch));
  util::print_line(line.str());
  util::print_line(" try again");
}

}  // namespace

// In 64 bits: a file may hold any 32-bit number, the largest one too. The division goes toward zero.
std::int32_t operators_number(const tbt_mod::tbt_bunch_struct& bunch) {
  return static_cast<std::int32_t>((std::int64_t{bunch.ix_bunch} + 1) / 2);
}

bunch_choice ask_bunches(const tbt_mod::tbt_all_data_struct& tbt) {
  for (;;) {
    // Both begin afresh in every round: an answer that led nowhere is no default for the next one.
    std::int32_t bunch = 1;
    ask_number(" Bunch number? ", bunch);
    util::print_line(util::list_line().text("bunch = ").integer(bunch).str());
    std::int32_t pedestal = 0;
    ask_number("Pedestal bunch number ? (0 if none)", pedestal);
    util::print_line(util::list_line().text("pedestal bunch = ").integer(pedestal).str());

    const bunch_choice choice{position_of(tbt, bunch), position_of(tbt, pedestal)};
    // A pedestal bunch that is not there is no reason to ask again: many runs have none.
    if (choice.nbunch == 0) {
      tell_bunches(tbt);
      continue;
    }
    if (choice.empty_bunch == 0) util::print_line(" There is no pedestal bunch");
    return choice;
  }
}

}  // namespace input
