#include "template_gains.hpp"

#include <cmath>
#include <memory>
#include <string>

#include "terminal.hpp"
#include "text.hpp"

namespace expert {
namespace {

constexpr int last_template_bpm = 120;      // the last index that turn-by-turn data use
constexpr double largest_difference = 0.3;  // from 1, of a template that is believed

// Cards 0..3 are TI, BI, BO, TO; the store's buttons 1..4 are BI, BO, TI, TO.
constexpr util::bounded<int, 0, 3, "button of card"> button_of_card{{3, 1, 2, 4}};

}  // namespace

void ask_fitted_gains(gain_template::file_name& fit_gain_file,
                      gain_template::comment_list& old_comments_list, template_gains& fit_gain) {
  const std::string answer = util::ask_or_end(" Read fitted gains ");
  if (util::upcase(util::trim(answer)) != "Y") return;
  // 4 MB of tables that no other session needs.
  const auto table0_bpm_data = std::make_unique<gain_template::gain_table0>();
  const auto table1_bpm_data = std::make_unique<gain_template::gain_table1>();
  gain_template::read_kbpmii_button_gain(fit_gain_file, old_comments_list, *table0_bpm_data,
                                         *table1_bpm_data);
  for (int bpm = 0; bpm <= last_template_bpm; ++bpm) {
    bool believed = true;
    for (int card = 0; card <= 3; ++card) {
      const double gain = (*table0_bpm_data)(bpm).button(card).range(0);
      fit_gain(bpm, button_of_card(card)) = gain;
      believed = believed && !(std::abs(gain - 1) > largest_difference);
    }
    for (int button = 1; button <= 4 && !believed; ++button) fit_gain(bpm, button) = 1.0;
  }
}

}  // namespace expert
