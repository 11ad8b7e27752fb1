#include "template_gains.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "scratch.hpp"

namespace {

// A row of eleven gains of which only the first, range 0, is looked at.
std::string row(const char* block_and_button, const std::string& first) {
  std::string text = std::string{block_and_button} + " " + first;
  for (int range = 1; range <= 10; ++range) text += " 0.5";
  return text + "\n";
}

std::string section(const char* name, const std::string& ti) {
  return std::string{"[BPM_"} + name + "]\n" + row("0 TI", ti) + row("0 BI", "1.01") +
         row("0 BO", "1.02") + row("0 TO", "1.04") + row("1 TI", "9") + row("1 BI", "9") +
         row("1 BO", "9") + row("1 TO", "9");
}

TEST(template_gains, cards_become_buttons_and_a_wild_template_is_not_believed) {
  const scratch::workplace here;
  scratch::write("gains",
                 "[NAMES]\n12 12W\n13 13W\n" + section("12W", "0.97") + section("13W", "1.31"));
  scratch::answer("n\ny\ngains\n");

  const auto fit_gain = std::make_unique<expert::template_gains>();
  const auto comments = std::make_unique<gain_template::comment_list>();
  gain_template::file_name file;
  testing::internal::CaptureStdout();
  expert::ask_fitted_gains(file, *comments, *fit_gain);
  EXPECT_EQ((*fit_gain)(13, 1), 0);  // "n" reads nothing
  expert::ask_fitted_gains(file, *comments, *fit_gain);
  testing::internal::GetCapturedStdout();

  const double expected[] = {1.01, 1.02, 0.97, 1.04};  // BI, BO, TI, TO
  for (int button = 1; button <= 4; ++button) {
    EXPECT_EQ((*fit_gain)(12, button), expected[button - 1]);
    EXPECT_EQ((*fit_gain)(13, button), 1.0);   // one gain is off by 0.31
    EXPECT_EQ((*fit_gain)(120, button), 1.0);  // not in the template: zeros are off by 1
    EXPECT_EQ((*fit_gain)(121, button), 0.0);
  }
}

}  // namespace
