#include "jobs.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "run_time.hpp"

namespace {

constexpr std::array<unsigned, 3> threads_tried{1, 2, 7};

// Work of different sizes, so that the order of making is not that of the list.
double burn(std::size_t i) {
  double sum = 0;
  for (std::size_t k = 0; k < (i * 7919 % 13) * 2000; ++k) sum += std::sqrt(static_cast<double>(k));
  return sum;
}

TEST(side_by_side_jobs, are_taken_in_order_by_the_caller_whatever_the_threads) {
  for (const unsigned threads : threads_tried) {
    SCOPED_TRACE(threads);
    constexpr std::size_t count = 300;
    constexpr std::size_t large = std::size_t{1} << 18;
    std::vector<std::unique_ptr<double>> made(count);
    std::vector<double> taken;
    std::mutex mutex;
    std::size_t waiting = 0, most_waiting = 0;
    const auto make = [&](std::size_t i) {
      made[i] = std::make_unique<double>(burn(i));
      const std::lock_guard lock(mutex);
      most_waiting = std::max(most_waiting, ++waiting);
      return large;
    };
    const auto take = [&](std::size_t i) {
      ASSERT_EQ(i, taken.size());
      taken.push_back(*made[i]);
      const std::lock_guard lock(mutex);
      --waiting;
    };
    EXPECT_EQ(
        util::make_in_order({.count = count, .make = make, .take = take, .stop = {}}, threads),
        count);
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(taken.at(i), burn(i));
    // One waits for each thread, and one is in each thread's hands when the limit is reached.
    EXPECT_LE(most_waiting, std::size_t{2} * threads);
  }
}

TEST(side_by_side_jobs, that_are_stopped_leave_nothing_half) {
  for (const unsigned threads : threads_tried) {
    SCOPED_TRACE(threads);
    constexpr std::size_t large = std::size_t{1} << 18;
    std::atomic<std::size_t> begun{0};
    std::size_t taken = 0;
    const auto make = [&](std::size_t i) {
      ++begun;
      burn(i);
      return large;
    };
    const std::size_t said = util::make_in_order({.count = 1000,
                                                  .make = make,
                                                  .take = [&](std::size_t) { ++taken; },
                                                  .stop = [&] { return taken >= 5; }},
                                                 threads);
    EXPECT_EQ(said, taken);
    EXPECT_EQ(begun, taken);
    EXPECT_GE(taken, 5U);
    EXPECT_LT(taken, 1000U);
  }
}

TEST(side_by_side_jobs, of_several_faults_tell_the_first_of_the_list) {
  for (const unsigned threads : threads_tried) {
    std::atomic<int> made{0};
    try {
      util::side_by_side(50, threads, [&](std::size_t i) {
        ++made;
        burn(50 - i);
        if (i == 20 || i == 40) throw std::string{"number " + std::to_string(i)};
      });
      FAIL();
    } catch (const std::string& fault) {
      EXPECT_EQ(fault, "number 20");
    }
    EXPECT_EQ(made, 50);
  }
}

// What would end the run does so when its turn has come, from the caller's thread.
TEST(side_by_side_jobs_death, end_the_run_behind_what_comes_before) {
  for (const unsigned threads : threads_tried) {
    const auto run = [&] {
      const auto make = [](std::size_t i) -> std::size_t {
        if (i == 4) util::run_time_error("number 4 has no end");
        if (i == 6) throw std::bad_alloc();
        return 0;
      };
      const auto take = [](std::size_t i) { util::tell_line("took " + std::to_string(i)); };
      util::make_in_order({.count = 9, .make = make, .take = take, .stop = {}}, threads);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(1),
                "took 0\n.*took 3\n.*run-time error: number 4 has no end\n$");
  }
}

TEST(side_by_side_jobs, made_meanwhile_are_there_afterwards_and_their_faults_are_quiet) {
  for (const bool wanted : {true, false}) {
    bool made = false;
    {
      const util::meanwhile work(wanted, [&] { made = true; });
      const util::meanwhile failing(true, [] { util::run_time_error("nobody hears this"); });
    }
    EXPECT_EQ(made, wanted);
  }
}

}  // namespace
