// From readings to the page: sessions on simulated data, week after week, and what butngain trend
// makes of them.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>

#include "session_harness.hpp"

namespace {

using session::contains;
using session::read_file;

// Nine runs of two BPMs on orbits of their own. From the sixth on button TI of the second has 0.5 %
// more.
TEST(trend_session, a_step_of_half_a_per_cent_is_found_in_real_runs) {
  const session::scratch here;
  std::string times = "run,time\n";
  for (int run = 1; run <= 9; ++run) {
    session::simulate(
        here.path(),
        fmt::format("series --bpms 2 --orbits 400 --noise 1e-4 --gain-spread 0 --seed {} --orbit "
                    "{} {} --gain 1:1:1.02 --gain 2:3:{}",
                    run, 0.3 * (run % 4), -0.2 * (run % 3), run < 6 ? 1.01 : 1.01 * 1.005));
    session::settings how;
    how.arguments = {"--batch",   "--data",    "F",
                     "--first",   "exp_0.txt", "--last",
                     "exp_1.txt", "--output",  fmt::format("runs/week_{}", run)};
    ASSERT_EQ(session::butngain(here.path(), {}, how).status, 0);
    times += fmt::format("week_{},2026-0{}-07\n", run, run);
  }
  session::write_file(here.path() / "times.csv", times);
  session::settings how;
  how.arguments = {"trend", "runs", "--times", "times.csv", "--output", "found"};
  const auto done = session::butngain(here.path(), {}, how);
  EXPECT_EQ(done.status, 1) << done.err;
  EXPECT_TRUE(done.err.empty()) << done.err;
  EXPECT_TRUE(contains(done.out, "1 of 2 BPMs changed: EXP_1 (TI +0.")) << done.out;
  EXPECT_TRUE(contains(done.out, "between 2026-05-07 and 2026-06-07")) << done.out;
  EXPECT_TRUE(contains(done.out, "9 runs from 2026-01-07 to 2026-09-07; 0 left out")) << done.out;
  const auto changes = session::lines_of(read_file(here.path() / "found/changes.csv"));
  ASSERT_EQ(changes.size(), 2U);
  ASSERT_TRUE(changes[1].starts_with("step,2,EXP_1,TI,")) << changes[1];
  EXPECT_NEAR(std::stod(changes[1].substr(std::string{"step,2,EXP_1,TI,"}.size())), 4.99e-3, 4e-4);
  EXPECT_FALSE(contains(done.out, "--times FILE")) << done.out;
  // The same runs by the time of the sessions: seconds apart, in the same order.
  how.arguments = {"trend", "runs", "--output", "by_session"};
  const auto at_once = session::butngain(here.path(), {}, how);
  EXPECT_EQ(at_once.status, 1);
  EXPECT_TRUE(contains(at_once.out, "made at once. If their data are older, --times"))
      << at_once.out;
}

}  // namespace
