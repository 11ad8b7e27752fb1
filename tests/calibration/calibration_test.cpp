// Runs of a BPM in a round pipe, calibrated against the pipe's own table.
#include "calibration.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <tuple>
#include <utility>

#include "cell_kernel.hpp"
#include "exponential.hpp"
#include "orbit_kernels.hpp"
#include "pedestal_knowledge.hpp"
#include "round_pipe.hpp"

namespace {

using calibration::calibrate;
using calibration::fit_kind;
using calibration::record;
using calibration::trouble_kind;
using calibration::verdict_reason;
using calibration::verdict_word;
using round_pipe::as_run;
using round_pipe::error_of;
using round_pipe::made_run;
using round_pipe::make;
using round_pipe::plan;

TEST(calibration, gains_come_back_wherever_the_beam_passes) {
  struct place {
    double x, y, bound;
  };
  // Bounds: twice what 60 such BPMs showed at most.
  for (const auto& [x, y, bound] :
       {place{0, 0, 4e-4}, {2e-3, -1.5e-3, 4e-4}, {5e-3, 3e-3, 6e-4}, {8e-3, 6e-3, 1e-3}}) {
    SCOPED_TRACE(x);
    const made_run made = make({.x = x, .y = y}, 1);
    const record r = calibrate(as_run(made));
    EXPECT_EQ(r.verdict.word, verdict_word::determined) << text_of(r.verdict);
    EXPECT_LT(error_of(r.t, made), bound);
    EXPECT_NEAR(r.t(1) * r.t(2) * r.t(3) * r.t(4), 1, 1e-12);
    EXPECT_NEAR(chosen_fit(r).noise, 1e-4, 1e-5);
    ASSERT_EQ(r.place.size(), 400U);
    double mean = 0;
    for (const auto& at : r.place) mean += at.x / 400;
    EXPECT_NEAR(mean, x, 0.5e-3);
  }
}

TEST(calibration, pulls_are_those_of_the_noise) {
  // Pedestals known exactly and a free intensity leave the noise alone; 3 x 40 pulls.
  double squares = 0, sum = 0;
  for (unsigned seed = 1; seed <= 40; ++seed) {
    const made_run made = make({.orbits = 200}, seed);
    const record r = calibrate(as_run(made, 1e-7));
    for (int k = 2; k <= 4; ++k) {
      const auto& c = r.free.noise_covariance;
      const double pull = (std::log(r.free.t(k) / r.free.t(1)) -
                           std::log(made.t[static_cast<std::size_t>(k - 1)] / made.t[0])) /
                          std::sqrt(c(k, k) + c(1, 1) - 2 * c(k, 1));
      squares += pull * pull / 120;
      sum += pull / 120;
    }
  }
  EXPECT_NEAR(std::sqrt(squares), 1, 0.25);
  EXPECT_NEAR(sum, 0, 0.35);
}

TEST(calibration, neither_units_nor_mirrors_matter) {
  const made_run made = make({.x = 3e-3, .y = -2e-3}, 5);
  const record r = calibrate(as_run(made));
  made_run other = made;
  for (auto& column : other.signal) {
    for (double& b : column) b *= 1.7e6;
  }
  const record scaled = calibrate(as_run(other));
  EXPECT_NEAR(scaled.median_signal, 1.7e6 * r.median_signal, 1e-3);
  std::swap(other.signal[0], other.signal[1]);
  std::swap(other.signal[2], other.signal[3]);
  const record mirrored = calibrate(as_run(other));
  const std::array<int, 4> partner{2, 1, 4, 3};
  for (int k = 1; k <= 4; ++k) {
    EXPECT_NEAR(scaled.t(k), r.t(k), 1e-9);
    EXPECT_NEAR(mirrored.t(partner[static_cast<std::size_t>(k - 1)]), r.t(k), 1e-6);
  }
  EXPECT_NEAR(mirrored.place[7].x, -r.place[7].x, 1e-8);
}

TEST(calibration, every_trouble_gets_its_word) {
  struct trouble {
    const char* what;
    plan p;
    double sigma_p;
    verdict_word word;
    verdict_reason reason;
  };
  const double known = calibration::pedestals_subtracted, open = calibration::pedestals_left_in;
  const std::vector<trouble> troubles{
      {"nothing wrong", {}, known, verdict_word::determined, verdict_reason::none},
      {"pedestals left in",
       {.pedestal = 3e-3},
       open,
       verdict_word::weak,
       verdict_reason::pedestals_not_known},
      {"pedestals of 1 % thought known",
       {.pedestal = 1e-2},
       known,
       verdict_word::suspect,
       verdict_reason::pedestals},
      {"a current that follows x",
       {.current_slope = 0.5},
       known,
       verdict_word::suspect,
       verdict_reason::pedestals},
      {"a gain steps by 1 %",
       {.orbits = 1000, .gain_step = 0.01},
       known,
       verdict_word::suspect,
       verdict_reason::gains_change},
      {"beam at rest",
       {.spread = 1e-5},
       known,
       verdict_word::not_determined,
       verdict_reason::error_too_large},
      {"motion in x alone",
       {.spread_y = 0},
       known,
       verdict_word::not_determined,
       verdict_reason::one_line},
      {"nine orbits",
       {.orbits = 9},
       known,
       verdict_word::not_determined,
       verdict_reason::few_orbits},
      {"a full scale",
       {.full_scale = 1.1},
       known,
       verdict_word::suspect,
       verdict_reason::saturated_button},
      {"a dead button",
       {.full_scale = 0.01},
       known,
       verdict_word::suspect,
       verdict_reason::dead_button},
      {"stuck from the start",
       {.full_scale = 0.7},
       known,
       verdict_word::suspect,
       verdict_reason::stuck_button},
      {"stuck later",
       {.stuck_from = 350},
       known,
       verdict_word::suspect,
       verdict_reason::stuck_button},
      {"every eighth reading wild",
       {.wild_every = 8},
       known,
       verdict_word::suspect,
       verdict_reason::many_outliers},
  };
  for (const auto& [what, p, sigma_p, word, reason] : troubles) {
    const made_run made = make(p, 3);
    const record r = calibrate(as_run(made, sigma_p));
    EXPECT_EQ(r.verdict.word, word) << what << ": " << text_of(r.verdict);
    EXPECT_EQ(r.verdict.reason, reason) << what << ": " << text_of(r.verdict);
  }
  EXPECT_EQ(calibrate({}).verdict.reason, verdict_reason::no_table);
}

TEST(calibration, a_few_wild_readings_are_left_out) {
  const made_run made = make({.wild_every = 50}, 4);
  const record r = calibrate(as_run(made));
  EXPECT_EQ(r.verdict.word, verdict_word::determined) << text_of(r.verdict);
  EXPECT_EQ(chosen_fit(r).outliers, 8);
  EXPECT_FALSE(r.place[49].used);
  EXPECT_TRUE(r.place[48].used);
  EXPECT_LT(error_of(r.t, made), 4e-4);
}

TEST(calibration, readings_that_are_no_numbers_are_left_out) {
  made_run made = make({}, 4);
  made.signal[2][10] = std::nan("");
  made.signal[0][20] = -1e9;
  made.signal[1][30] = HUGE_VAL;
  const record r = calibrate(as_run(made));
  EXPECT_EQ(chosen_fit(r).orbits, 397);
  EXPECT_LT(error_of(r.t, made), 4e-4);
}

TEST(calibration, a_restless_current_leaves_the_intensity_free) {
  const made_run made = make({.walk = 1e-3}, 6);
  const record r = calibrate(as_run(made));
  EXPECT_EQ(r.chosen, fit_kind::free_intensity);
  EXPECT_LT(error_of(r.t, made), 4e-4);
}

TEST(calibration, data_sets_at_two_currents_tell_the_pedestals) {
  const made_run made = make({.pedestal = 3e-3, .second_set_current = 0.6}, 7);
  auto run = as_run(made, calibration::pedestals_left_in);
  const std::vector<int> starts{0, 200};
  run.set_start = starts;
  const record r = calibrate(run);
  EXPECT_EQ(r.verdict.word, verdict_word::determined) << text_of(r.verdict);
  EXPECT_LT(r.wide.jitter, 5e-5);  // each set has a current of its own
  EXPECT_LT(error_of(r.t, made), 1e-3);
}

// A third of the orbits has another current, and lies elsewhere: they are not on the course, and
// must not be drawn to it.
TEST(calibration, orbits_of_another_current_keep_their_own) {
  for (unsigned seed = 1; seed <= 4; ++seed) {
    const made_run made = make({.orbits = 600, .other_current = 0.8}, seed);
    const record r = calibrate(as_run(made));
    EXPECT_EQ(r.verdict.word, verdict_word::determined) << text_of(r.verdict);
    EXPECT_NEAR(r.steady.intensity_outliers, 200, 20);
    EXPECT_LT(error_of(r.wide.t, made), 2e-3);
    EXPECT_LT(error_of(r.t, made), 1e-3);
  }
}

// Current too restless to tell pedestals: each of these is asked of the readings beside the fit.
TEST(calibration, readings_are_asked_for_what_the_model_lacks) {
  struct lack {
    const char* what;
    plan p;
    trouble_kind kind;
    bool is_seen;
  };
  for (const auto& [what, p, kind, is_seen] :
       {lack{"cross-talk", {.orbits = 1000, .cross_talk = 0.03}, trouble_kind::cross_talk, true},
        {"compression", {.orbits = 1000, .compression = 0.02}, trouble_kind::compression, true},
        {"a step", {.orbits = 1000, .gain_step = 3e-3}, trouble_kind::step, true},
        {"a set's pedestal", {.set_pedestal = 2e-3}, trouble_kind::pedestals_of_set, true},
        {"nothing", {.orbits = 1000}, trouble_kind::drift, false}}) {
    const made_run made = make(p, 11);
    auto run = as_run(made);
    const std::vector<int> starts{0, p.orbits / 2};
    if (kind == trouble_kind::pedestals_of_set) run.set_start = starts;
    const record r = calibrate(run);
    double most = 0;
    for (const auto& t : r.trouble) {
      if (t.kind == kind || !is_seen) most = std::max(most, t.chi_square);
    }
    EXPECT_EQ(most > 25, is_seen) << what << " " << most;
    EXPECT_EQ(r.verdict.word == verdict_word::suspect, is_seen) << what << text_of(r.verdict);
  }
}

// The same gains and errors as a fit that was made with the other prior: W as T2, and T1 with less
// knowledge than it had.
TEST(pedestal_knowledge, stands_for_another_fit) {
  const made_run made = make({.pedestal = 5e-4}, 12);
  auto run = as_run(made);
  run.sigma_p = 3e-4;
  const record narrow = calibrate(run);
  run.sigma_p = 1e-3;
  const record wider = calibrate(run);
  for (const auto& [from, prior, other, to] :
       {std::tuple{&narrow.wide, calibration::pedestals_left_in, 3e-4, &narrow.steady},
        {&narrow.free, 3e-4, 1e-3, &wider.free}}) {
    const auto under = calibration::with_prior(*from, prior, other);
    for (int k = 2; k <= 4; ++k) {
      const auto i = static_cast<std::size_t>(k - 2);
      const auto& c = to->covariance;
      const double variance = c(k, k) + c(1, 1) - 2 * c(k, 1);
      EXPECT_NEAR(under.value[i], std::log(to->t(k) / to->t(1)), 0.1 * std::sqrt(variance)) << k;
      EXPECT_NEAR(under.variance[i], variance, 0.1 * variance) << k;
    }
    EXPECT_GT(std::abs(under.value[0] - std::log(from->t(2) / from->t(1))), 1e-5) << "no change";
  }
}

// Gains that hang on the pedestals, in data that could not tell three times as much: what is said of
// the pedestals decides.
TEST(calibration, gains_that_wrong_pedestals_would_spoil_are_at_most_weak) {
  const made_run made = make({.orbits = 1000, .x = 5e-3, .y = 3e-3, .spread = 1.5e-3}, 12);
  auto run = as_run(made);
  for (const auto& [sigma_p, reason] :
       {std::pair{3e-4, verdict_reason::pedestals_not_checked}, {5e-5, verdict_reason::none}}) {
    run.sigma_p = sigma_p;
    const record r = calibrate(run);
    EXPECT_EQ(r.verdict.reason, reason) << sigma_p << " " << text_of(r.verdict);
    EXPECT_LT(r.verdict.E, 1e-3) << sigma_p;
  }
}

// Near the axis all chambers look alike, to 4e-4 of a gain.
TEST(calibration, a_stand_in_table_is_at_most_weak_off_the_axis) {
  const made_run near_axis = make({}, 8);
  auto run = as_run(near_axis);
  const double own_error = calibrate(run).verdict.E;
  run.own_table = false;
  run.tolerance = 1e-4;
  const record r = calibrate(run);
  EXPECT_EQ(r.verdict.word, verdict_word::determined) << text_of(r.verdict);
  EXPECT_NEAR(r.verdict.E, std::hypot(own_error, 4e-4), 1e-6);
  EXPECT_NEAR(r.E_mech, 1.1e-4 / 45e-3, 2e-5);

  plan off;
  off.x = 3e-3;
  const made_run off_axis = make(off, 8);
  run = as_run(off_axis);
  run.own_table = false;
  EXPECT_EQ(text_of(calibrate(run).verdict), "weak: the table is not this chamber's own");
}

TEST(calibration, the_four_fits_are_judged_by_their_distance) {
  const made_run made = make({}, 9);
  for (const auto& [off, word] : {std::pair{0.0, verdict_word::determined},
                                  {5e-3, verdict_word::weak},
                                  {5e-2, verdict_word::not_determined}}) {
    auto run = as_run(made);
    run.fits.emplace();
    for (int f = 1; f <= 4; ++f) {
      for (int k = 1; k <= 4; ++k) {
        (*run.fits)(f, k) = 1.3 / made.t[static_cast<std::size_t>(k - 1)];
      }
    }
    (*run.fits)(3, 2) *= 1 + off;
    const record r = calibrate(run);
    ASSERT_TRUE(r.fits_verdict);
    EXPECT_EQ(r.fits_verdict->word, word);
    EXPECT_NEAR(r.fits_differ, off, off / 20 + 4e-4);
  }
}

TEST(calibration, threads_do_not_see_one_another) {
  std::vector<made_run> made;
  for (unsigned seed = 1; seed <= 4; ++seed) made.push_back(make({.orbits = 100}, seed));
  std::vector<record> together(made.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < made.size(); ++i) {
    threads.emplace_back([&, i] { together[i] = calibrate(as_run(made[i])); });
  }
  for (std::thread& t : threads) t.join();
  for (std::size_t i = 0; i < made.size(); ++i) {
    EXPECT_EQ(calibrate(as_run(made[i])).t.item, together[i].t.item);
  }
}

// A run does not depend on its processor: every kind of fit, a walk and data sets included.
TEST(orbit_kernels, every_instruction_set_gives_the_same_bits) {
  const auto sets = calibration::instruction_sets();
  EXPECT_EQ(sets.front(), "generic");
  for (const plan& p : {plan{}, plan{.orbits = 131, .x = 8e-3, .y = 6e-3, .wild_every = 20},
                        plan{.walk = 1e-2}, plan{.orbits = 300, .second_set_current = 2}}) {
    const made_run made = make(p, 13);
    auto run = as_run(made);
    const std::vector<int> starts{0, p.orbits / 2};
    if (p.second_set_current != 1) run.set_start = starts;
    run.instruction_set = sets.front();
    const record expected = calibrate(run);
    for (const std::string_view set : sets) {
      SCOPED_TRACE(set);
      run.instruction_set = set;
      const record r = calibrate(run);
      for (const auto& [now, then] : {std::pair{&r.free, &expected.free},
                                      {&r.wide, &expected.wide},
                                      {&r.steady, &expected.steady}}) {
        EXPECT_EQ(now->t.item, then->t.item);
        EXPECT_EQ(now->covariance.item, then->covariance.item);
        EXPECT_EQ(now->pedestal.item, then->pedestal.item);
        EXPECT_EQ(now->chi_square_v, then->chi_square_v);
      }
      for (std::size_t i = 0; i < r.trouble.size(); ++i) {
        EXPECT_EQ(r.trouble[i].chi_square, expected.trouble[i].chi_square);
      }
      for (std::size_t j = 0; j < r.place.size(); ++j) {
        ASSERT_EQ(r.place[j].x, expected.place[j].x) << j;
        ASSERT_EQ(r.place[j].intensity, expected.place[j].intensity) << j;
      }
    }
  }
}

TEST(exponential, is_the_library_s_but_for_its_last_bits) {
  for (double a = -30; a <= 30; a += 0.0137) {
    const double expected = std::exp(a);
    EXPECT_NEAR(calibration::exponential(a) / expected, 1, 4e-16) << a;
    EXPECT_NEAR(calibration::logarithm(expected), a, 4e-16 * std::max(1.0, std::abs(a))) << a;
  }
  EXPECT_EQ(calibration::exponential(0), 1);
  EXPECT_TRUE(std::isnan(calibration::exponential(std::nan(""))));
}

TEST(cell_kernel, has_data_is_where_a_cell_gives_signals) {
  nonlin_bpm_mod::table_struct table = round_pipe::make_table();
  for (auto& c : table.grid(40, 20).b.c)
    c = nonlin_bpm_mod::lanes{};  // as a cell with a corner outside
  for (const double x : {-0.0241, -0.024, 0.0, table.x(40), table.x(40) + 1e-4, 0.0239, 0.024}) {
    for (const double y : {0.0, table.y(20) + 1e-4, 0.025}) {
      nonlin_bpm_mod::cell_values at{};
      nonlin_bpm_mod::evaluate_cell<false>(table, x, y, at);
      EXPECT_EQ(nonlin_bpm_mod::has_data(table, x, y), at.phi[0] > 0) << x << " " << y;
    }
  }
}

}  // namespace
