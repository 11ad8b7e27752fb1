// What a session says on standard error before its plot: what was fitted and what was left out.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "session_harness.hpp"

namespace {

using session::contains;
using session::lines_of;

constexpr const char* series_dir = "inputs_1000random_xy_and_timing_offset";

struct summary_case {
  const char* what;
  std::vector<std::string> answers;
  std::vector<const char*> told;  // the lines of the summary, each without the program's name
};

// Twelve BPMs: 19W without a signal, 43E (index 56) with a dead button.
TEST(session_summary, dead_bpms_and_buttons_are_named_with_their_reason) {
  const session::scratch here;
  session::simulate(here.path(),
                    "tree tree --bpms 12 --turns 40 --seed 5 --dead 3:1 3:2 3:3 3:4 7:3");
  // The raw run, then a text run of other BPMs: 30W has signals in its second turn only, 31W never
  // in all four buttons, 200W lies beyond the loop, and 19W comes to life.
  session::write_file(here.path() / "other_bpms.txt",
                      "Location : 30W\n--- Bunch 1 ---\n 99 200 200 200 0 0 0 0\n"
                      " 200 210 220 230 0 0 0 0\n"
                      "Location : 31W\n--- Bunch 1 ---\n 99 200 200 200 0 0 0 0\n"
                      " 200 99 200 200 0 0 0 0\n"
                      "Location : 200W\n--- Bunch 1 ---\n 200 210 220 230 0 0 0 0\n"
                      "Location : 19W\n--- Bunch 1 ---\n 200 210 220 230 0 0 0 0\n"
                      " 200 210 220 230 0 0 0 0\n");
  const char* dead_19W =
      "not fitted: BPM 19 (19W): all four buttons are below 100 in all of 40 turns";
  const char* dead_43E = "not fitted: BPM 56 (43E): button TI is below 100 in all of 40 turns";
  const std::string copy =
      "plot written to " + (std::filesystem::canonical(here.path()) / "RD-004566.gif").string();
  const summary_case cases[] = {
      {"all BPMs",
       {"T", "1000", "4566", "3", "1", "2", "", "n", "-1", "no"},
       {"10 BPMs fitted: 10 determined, 0 weak, 0 suspect, 0 not determined", dead_19W, dead_43E}},
      {"one BPM, and a copy told with its full name",
       {"T", "1000", "4566", "3", "1", "2", "", "n", "28", "g"},
       {"1 BPM fitted: 1 determined, 0 weak, 0 suspect, 0 not determined", copy.c_str()}},
      {"one dead BPM",
       {"T", "1000", "4566", "3", "1", "2", "", "n", "56", "no"},
       {"no BPM fitted", dead_43E}},
      {"N of 0: the default reads nothing",
       {"T", "", "4566", "3", "1", "2", "", "n", "-1", "no"},
       {"no BPM fitted: no turn was read with N = 0 at \"Compute positions (x,y) using nonlin BPM "
        "for N orbits\"; type a number above the turns of the run, such as 100000"}},
      {"a second data set with other BPMs",
       {"T", "1000", "4566", "3", "1", "2", "", "y", "1000", "other_bpms.txt", "n", "-1", "no"},
       {"10 BPMs fitted: 10 determined, 0 weak, 0 suspect, 0 not determined",
        "not fitted: BPM 19 (19W): silent in orbit 1; its first signal is in orbit 40; all four "
        "buttons are below 100 in all of 40 turns",
        "not fitted: BPM 30 (30W): silent in orbit 1; its first signal is in orbit 41",
        "not fitted: BPM 31 (31W): each of 2 turns has a button below 100: BI in 1 and BO in 1",
        dead_43E, "not fitted: BPM 200 (200W): its index is above 120, the last that is fitted"}},
      {"a run that nothing reads",
       {"T", "0", "RDe-004567.dat", "n", "-1", "no"},
       {"no BPM fitted: nothing was read"}}};
  for (const auto& [what, answers, told] : cases) {
    SCOPED_TRACE(what);
    const auto run =
        session::butngain(here.path(), answers, session::at_site(here.path() / "tree/online"));
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    std::string expected;
    for (const char* line : told) expected.append("butngain: ").append(line).append("\n");
    EXPECT_EQ(session::without_line_of_files(run.err), expected);
  }
}

// Two BPMs of five orbits and three silent in orbit 1, one of them to the end.
TEST(session_summary, bpms_that_are_not_determined_or_silent_stand_together) {
  const session::scratch here;
  const std::string silent = "0 0 0 0 0 0 1 1 1 1\n";
  std::string still;
  for (int orbit = 1; orbit <= 5; ++orbit) still += "0 0 9000 9000 9000 9000 1 1 1 1\n";
  for (const auto& [number, text] :
       {std::pair{0, silent + still}, {1, still}, {2, silent}, {3, still}, {4, silent + still}}) {
    session::write_file(here.path() / series_dir / ("exp_" + std::to_string(number) + ".txt"),
                        text);
  }
  const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "exp_4.txt", "no"});
  ASSERT_EQ(run.status, 0) << run.err;
  const auto lines = lines_of(run.err);
  ASSERT_EQ(lines.size(), 8U) << run.err;
  EXPECT_TRUE(contains(lines[0], "butngain: no table of these chambers"));
  EXPECT_TRUE(contains(lines[1], "butngain: BPM 2 (EXP_1): not determined: "));
  EXPECT_TRUE(contains(lines[2], "butngain: BPM 4 (EXP_3): not determined: "));
  EXPECT_EQ(
      lines[3],
      "butngain: 2 BPMs fitted: 0 determined, 0 weak, 0 suspect, 2 not determined (EXP_1, EXP_3)");
  EXPECT_EQ(lines[4],
            "butngain: look at BPMs 2 (EXP_1), 4 (EXP_3): not determined: too few orbits "
            "with signals");
  EXPECT_EQ(lines[5],
            "butngain: not fitted: BPMs 1 (EXP_0), 5 (EXP_4): silent in orbit 1; its first signal "
            "is in orbit 2");
  EXPECT_EQ(lines[6], "butngain: not fitted: BPM 3 (EXP_2): no signal in any of 6 orbits");
  EXPECT_TRUE(lines[7].starts_with("butngain: nothing to load: ")) << lines[7];
}

}  // namespace
