// Which answer a question finds prepared, round by round.
#include "prepared_answers.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// What comes of a question: the answer, "asked", or the fault's line.
std::string outcome_of(util::prepared_dialog& dialog, const std::string& question) {
  const auto found = util::prepared_answer(dialog, question);
  if (!found) return "fault: " + util::line_of(found.why);
  return *found ? (*found)->answer : "asked";
}

util::prepared_dialog dialog(bool batch) {
  util::prepared_dialog made{.batch = batch};
  made.questions = {{.begins = "Run ?", .option = "--run", .answers = {"4566", "4567"}},
                    {.begins = "Bunch ?", .option = "--bunch", .answers = {"1"}},
                    {.begins = "Limit ?", .option = "--limit", .by_default = ""},
                    {.begins = "First ?", .option = "--first"},
                    {.begins = "Another ?", .option = "--run", .answers = {"y", "n"}}};
  made.round_ends = "Another ?";
  return made;
}

struct exchange {
  const char* question;
  const char* expected;
};

TEST(prepared_answers, each_question_is_answered_once_a_round) {
  auto asked = dialog(false);
  for (const exchange& e :
       {exchange{"Run ? (def = 4567)", "4566"}, exchange{"Bunch ?", "1"},
        exchange{"Limit ?", "asked"},
        // Refused: whoever is at the terminal is asked, however often.
        exchange{"Bunch ?", "asked"}, exchange{"Bunch ?", "asked"},
        exchange{"Another ? (y/n)", "y"}, exchange{"Run ? (def = 4566)", "4567"},
        exchange{"Bunch ?", "1"}, exchange{"Another ? (y/n)", "n"}, exchange{"Run ?", "asked"},
        exchange{"Swap ?", "asked"}}) {
    EXPECT_EQ(outcome_of(asked, e.question), e.expected) << e.question;
  }
  auto batch = dialog(true);
  for (const exchange& e :
       {exchange{"Run ?", "4566"}, exchange{"Limit ?", ""},
        exchange{"Run ?",
                 "fault: \"Run ?\" is asked again after the answer \"4566\"; give another with "
                 "--run"},
        exchange{"Limit ?",
                 "fault: \"Limit ?\" is asked again after the answer \"\"; give another with "
                 "--limit"},
        exchange{"First ?", "fault: \"First ?\" has no answer; give one with --first"},
        exchange{"Swap ?", "fault: \"Swap ?\" has no answer, and no option gives one"}}) {
    EXPECT_EQ(outcome_of(batch, e.question), e.expected) << e.question;
  }
}

TEST(prepared_answers, options_whose_questions_never_came_are_known) {
  auto some = dialog(false);
  outcome_of(some, "Run ?");
  outcome_of(some, "Another ?");
  EXPECT_EQ(util::options_not_asked(some), std::vector<std::string>{"--bunch"});
}

// The newest run is another one next year; what was answered then is what was meant.
TEST(prepared_answers, a_recorded_dialog_answers_the_same_questions) {
  util::prepared_dialog again;
  again.recorded = {"run.json",
                    {{"Run ? (def = 4567)", ""},
                     {"Run ? (def = 4567)", ""},
                     // A default is the file answered last, whatever its name.
                     {"Run ? (def = a(def = b)", "./c"},
                     {"Limit ?", "60"}}};
  for (const exchange& e :
       {exchange{"Run ? (def = 4567)", ""}, exchange{"Run ? (def = 9999)", "4567"},
        exchange{"Run ? (def = 9999)", "./c"},
        exchange{
            "Bunch ?",
            "fault: run.json: asked is \"Bunch ?\", expected the recorded question \"Limit ?\""},
        exchange{"Limit ?", "60"},
        exchange{"Limit ?", "fault: run.json: no answer is recorded to \"Limit ?\""}}) {
    EXPECT_EQ(outcome_of(again, e.question), e.expected) << e.question;
  }
}

}  // namespace
