#include "left_out.hpp"

#include <fmt/core.h>

#include <array>
#include <cmath>
#include <string_view>

namespace store {
namespace {

// In the order of the store: bottom before top, inner before outer.
constexpr std::array<std::string_view, 4> button_names{"BI", "BO", "TI", "TO"};

// "BI", "BI and TO", "BI, BO and TO".
std::string listed(const std::vector<std::string>& items) {
  std::string text;
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) text += i + 1 == items.size() ? " and " : ", ";
    text += items[i];
  }
  return text;
}

}  // namespace

bool count_turn(turn_tally& tally, const util::bounded<double, 1, 4, "button">& button,
                double weakest) {
  bool strong = true;
  for (int k = 1; k <= 4; ++k) {
    if (std::abs(button(k)) >= weakest) continue;  // false for a NaN too: it is weak
    ++tally.weak_in(k);
    strong = false;
  }
  ++tally.turns;
  if (strong) ++tally.kept;
  return strong;
}

std::string reason_of(const turn_tally& tally, double weakest) {
  if (tally.turns == 0) return "none of its turns was read";
  std::vector<std::string> silent;
  std::vector<std::string> at_times;
  for (int k = 1; k <= 4; ++k) {
    const std::string_view name = button_names.at(static_cast<std::size_t>(k) - 1);
    const int weak = tally.weak_in(k);
    if (weak == tally.turns) silent.emplace_back(name);
    if (weak > 0) at_times.push_back(fmt::format("{} in {}", name, weak));
  }
  // No button to blame alone: who looks for the fault needs to know how often each was weak.
  if (silent.empty()) {
    return fmt::format("each of {} turns has a button below {:g}: {}", tally.turns, weakest,
                       listed(at_times));
  }
  return fmt::format("{} below {:g} in all of {} turns",
                     silent.size() == 4   ? "all four buttons are"
                     : silent.size() == 1 ? fmt::format("button {} is", silent[0])
                                          : fmt::format("buttons {} are", listed(silent)),
                     weakest, tally.turns);
}

void remark_unless_kept(int bpm, std::string_view name, const turn_tally& tally, double weakest) {
  // One turn that was kept makes an orbit: the BPM is then in the store, however poor.
  if (tally.kept > 0) return;
  left_out.push_back({bpm, std::string{name}, reason_of(tally, weakest), tally.turns});
}

}  // namespace store
