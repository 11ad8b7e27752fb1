#include "interrupt.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "file_units.hpp"
#include "scratch.hpp"

namespace {

// The signals that end a session between two BPMs.
struct ending {
  const char* what;
  int number;
  const char* told;
};
constexpr ending endings[] = {
    {"Ctrl-C", SIGINT, "^butngain: interrupted; what was fitted so far is written\n$"},
    {"asked to end", SIGTERM, "^butngain: terminated; what was fitted so far is written\n$"},
    {"lost terminal", SIGHUP, "^butngain: hung up; what was fitted so far is written\n$"}};

// Whoever runs the tests may ignore the signals (a job in the background does): a loop that waits
// for one would fill the disk.
void heed_signals() {
  for (const ending& e : endings) signal(e.number, SIG_DFL);
}

// A loop that is interrupted at its second record, and ends soon when that does not work.
void interrupted_loop(int number) {
  heed_signals();
  util::open_output(31, "left.dat");
  util::watch_interrupts();
  for (int record = 1; record <= 100; ++record) {
    if (util::interrupted()) util::leave_interrupted();
    util::write_line(31, "record " + std::to_string(record));
    if (record == 2) raise(number);
  }
  std::exit(0);
}

TEST(interrupt_death, first_one_leaves_whole_files_and_dies_of_the_signal) {
  for (const auto& [what, number, told] : endings) {
    SCOPED_TRACE(what);
    const scratch::workplace here;
    EXPECT_EXIT(interrupted_loop(number), testing::KilledBySignal(number), told);
    EXPECT_EQ(scratch::content("left.dat"), "record 1\nrecord 2\n");
  }
}

TEST(interrupt_death, second_one_kills_at_once) {
  const auto twice = [] {
    heed_signals();
    util::watch_interrupts();
    raise(SIGINT);
    raise(SIGINT);
    std::exit(0);
  };
  EXPECT_EXIT(twice(), testing::KilledBySignal(SIGINT), "^$");
}

TEST(interrupt_death, default_action_is_back_after_the_watch) {
  const auto after = [] {
    heed_signals();
    util::watch_interrupts();
    util::restore_interrupts();
    raise(SIGINT);
    std::exit(0);
  };
  EXPECT_EXIT(after(), testing::KilledBySignal(SIGINT), "^$");
}

TEST(interrupt_death, a_job_that_ignores_it_goes_on) {
  const auto background = [] {
    signal(SIGINT, SIG_IGN);
    util::watch_interrupts();
    raise(SIGINT);
    raise(SIGINT);
    std::exit(util::interrupted() ? 1 : 0);
  };
  EXPECT_EXIT(background(), testing::ExitedWithCode(0), "^$");
}

}  // namespace
