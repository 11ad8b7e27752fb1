#include "left_out.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace {

using turn = util::bounded<double, 1, 4, "button">;
constexpr turn strong{{100, -100, 250, 1000}};
constexpr turn bo_silent{{100, 99, 250, 1000}};
constexpr turn bo_and_ti_silent{{100, -99, 0, 1000}};
constexpr turn all_silent{{0, 0, 0, 0}};
constexpr turn no_number{{100, 100, 100, std::numeric_limits<double>::quiet_NaN()}};

TEST(left_out, the_reason_names_the_buttons_that_are_silent_in_every_turn) {
  const struct {
    std::vector<turn> turns;
    const char* reason;  // empty: one turn is kept, so there is no remark
  } cases[] = {
      {{all_silent, strong, bo_silent}, ""},
      {{}, "none of its turns was read"},
      {{bo_silent, bo_and_ti_silent, all_silent}, "button BO is below 100 in all of 3 turns"},
      {{bo_and_ti_silent, all_silent}, "buttons BO and TI are below 100 in all of 2 turns"},
      {{all_silent}, "all four buttons are below 100 in all of 1 turns"},
      {{no_number}, "button TO is below 100 in all of 1 turns"},
      {{bo_silent, bo_and_ti_silent, no_number},
       "each of 3 turns has a button below 100: BO in 2, TI in 1 and TO in 1"}};
  for (const auto& [turns, reason] : cases) {
    SCOPED_TRACE(reason);
    store::left_out.clear();
    store::turn_tally seen;
    for (const turn& t : turns) EXPECT_EQ(store::count_turn(seen, t, 100), t.item == strong.item);
    store::remark_unless_kept(12, "12W", seen, 100);
    ASSERT_EQ(store::left_out.size(), *reason == '\0' ? 0U : 1U);
    if (store::left_out.empty()) continue;
    EXPECT_EQ(store::left_out[0].bpm, 12);
    EXPECT_EQ(store::left_out[0].reason, reason);
    EXPECT_EQ(store::left_out[0].turns, static_cast<int>(turns.size()));
  }
}

}  // namespace
