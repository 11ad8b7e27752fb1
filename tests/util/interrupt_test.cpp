#include "interrupt.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "file_units.hpp"
#include "scratch.hpp"

namespace {

// A loop that is interrupted at its second record.
void interrupted_loop() {
  util::open_output(31, "left.dat");
  util::watch_interrupts();
  for (int record = 1;; ++record) {
    if (util::interrupted()) util::leave_interrupted();
    util::write_line(31, "record " + std::to_string(record));
    if (record == 2) raise(SIGINT);
  }
}

TEST(interrupt_death, first_one_leaves_whole_files_and_dies_of_the_signal) {
  const scratch::workplace here;
  EXPECT_EXIT(interrupted_loop(), testing::KilledBySignal(SIGINT),
              "^butngain: interrupted; what was fitted so far is written\n$");
  EXPECT_EQ(scratch::content("left.dat"), "record 1\nrecord 2\n");
}

TEST(interrupt_death, second_one_kills_at_once) {
  const auto twice = [] {
    util::watch_interrupts();
    raise(SIGINT);
    raise(SIGINT);
    std::exit(0);
  };
  EXPECT_EXIT(twice(), testing::KilledBySignal(SIGINT), "^$");
}

TEST(interrupt_death, default_action_is_back_after_the_watch) {
  const auto after = [] {
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
