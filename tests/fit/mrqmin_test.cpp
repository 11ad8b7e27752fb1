#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "file_units.hpp"
#include "kept_solver.hpp"
#include "scratch_fixture.hpp"

namespace {
using namespace mrqmin_mod;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// A fit in progress: n points, ma parameters, unit deviations, all parameters free.
template <std::size_t n, std::size_t ma>
struct fit {
  model funcs;
  std::array<double, n> x{}, y{}, sig{};
  std::array<double, ma> a{};
  std::array<bool, ma> maska{};
  matrix covar{"covar", ma, ma};
  matrix alpha{"alpha", ma, ma};
  double chisq = 0;
  double alamda = -1;

  explicit fit(model m) : funcs(m) {
    sig.fill(1);
    maska.fill(true);
  }
  void step() {
    mrqmin({.x = x, .y = y, .sig = sig, .maska = maska, .funcs = funcs}, a, covar, alpha, chisq,
           alamda);
  }
  void finish() {
    alamda = 0;
    step();
  }
};

// Singular matrices leave fort.111 behind.
struct solver : scratch::fixture {
  void SetUp() override { reset(); }
};

// a1 + a3 x + a2 x^2: the straight line's parameters stand around the one that is held.
void parabola(std::span<const double> x, std::span<const double> a, std::span<double> yfit,
              matrix& dyda) {
  for (std::size_t i = 0; i < x.size(); ++i) {
    yfit[i] = a[0] + a[2] * x[i] + a[1] * x[i] * x[i];
    const auto row = dyda.row(static_cast<int>(i) + 1);
    row[0] = 1;
    row[1] = x[i] * x[i];
    row[2] = x[i];
  }
}

fit<4, 3> straight_line() {
  fit<4, 3> f{parabola};
  f.x = {1, 2, 3, 4};
  f.y = {3, 5, 7, 9.4};
  f.sig.fill(0.5);
  f.maska = {true, false, true};
  return f;
}

// Normal equations by hand: n = 4, sums x 10, xx 30, y 24.4, xy 71.6, so slope 2.12 and offset 0.8;
// the covariance is 0.25 / 20 times ((30, -10), (-10, 4)).
TEST_F(solver, straight_line_with_a_held_parameter) {
  fit<4, 3> f = straight_line();
  for (int i = 0; i < 8; ++i) f.step();
  // Closer than the root of the rounding error chi-square no longer shrinks, and steps are
  // rejected.
  EXPECT_NEAR(f.a[0], 0.8, 1e-7);
  EXPECT_NEAR(f.a[2], 2.12, 1e-7);
  EXPECT_EQ(f.a[1], 0);
  // Residuals 0.08, -0.04, -0.16, 0.12; squares sum to 0.048, over sig^2 to 0.192.
  EXPECT_NEAR(f.chisq, 0.192, 1e-12);

  f.finish();
  const double covariance[3][3] = {{0.375, 0, -0.125}, {0, 0, 0}, {-0.125, 0, 0.05}};
  const double curvature[3][3] = {{16, 0, 40}, {0, 0, 0}, {40, 0, 120}};
  for (int i = 1; i <= 3; ++i) {
    for (int j = 1; j <= 3; ++j) {
      EXPECT_NEAR(f.covar(i, j), covariance[i - 1][j - 1], 1e-13) << i << j;
      EXPECT_NEAR(f.alpha(i, j), curvature[i - 1][j - 1], 1e-12) << i << j;
    }
  }
}

void arc_tangent(std::span<const double> /*x*/, std::span<const double> a, std::span<double> yfit,
                 matrix& dyda) {
  yfit[0] = std::atan(a[0]);
  dyda(1, 1) = 1 / (1 + a[0] * a[0]);
}

// Seen from a = 0.5 the step improves; from a = 2 it runs beyond -3 and is worse.
TEST_F(solver, first_call_ends_at_a_tenth_or_ten_times_the_first_damping) {
  fit<1, 1> good{arc_tangent};
  good.a = {0.5};
  good.step();
  EXPECT_EQ(good.alamda, 0.1 * 0.001);
  EXPECT_EQ(good.chisq, std::atan(good.a[0]) * std::atan(good.a[0]));
  good.finish();

  fit<1, 1> bad{arc_tangent};
  bad.a = {2};
  bad.step();
  EXPECT_EQ(bad.alamda, 0.01);
  EXPECT_EQ(bad.a[0], 2);
  EXPECT_EQ(bad.chisq, std::atan(2.0) * std::atan(2.0));
  // Damping grows until a step is small enough.
  for (int i = 0; i < 3; ++i) bad.step();
  EXPECT_LT(bad.a[0], 2);
}

void always_one(std::span<const double> /*x*/, std::span<const double> /*a*/,
                std::span<double> yfit, matrix& dyda) {
  yfit[0] = 1;
  dyda(1, 1) = 1;
}
void number_at_zero_only(std::span<const double> /*x*/, std::span<const double> a,
                         std::span<double> yfit, matrix& dyda) {
  yfit[0] = a[0] == 0 ? 1 : nan;
  dyda(1, 1) = 1;
}
void never_a_number(std::span<const double> /*x*/, std::span<const double> /*a*/,
                    std::span<double> yfit, matrix& dyda) {
  yfit[0] = nan;
  dyda(1, 1) = nan;
}

TEST_F(solver, no_progress_is_a_rejected_step) {
  struct {
    const char* what;
    model funcs;
    double chisq;
  } const cases[] = {{"equal chi-square", always_one, 1},
                     {"trial is not a number", number_at_zero_only, 1},
                     {"nothing is a number", never_a_number, nan}};
  for (const auto& [what, funcs, chisq] : cases) {
    SCOPED_TRACE(what);
    fit<1, 1> f{funcs};
    f.step();
    f.step();
    EXPECT_EQ(f.alamda, 10 * (10 * 0.001));
    EXPECT_EQ(f.a[0], 0);
    EXPECT_TRUE(f.chisq == chisq || (std::isnan(chisq) && std::isnan(f.chisq)));
    f.finish();
  }
}

// Point n depends on parameter n alone, with slope n.
void separate(std::span<const double> x, std::span<const double> a, std::span<double> yfit,
              matrix& dyda) {
  for (std::size_t i = 0; i < x.size(); ++i) {
    const double slope = static_cast<double>(i) + 1;
    yfit[i] = slope * a[i];
    for (double& d : dyda.row(static_cast<int>(i) + 1)) d = 0;
    dyda(static_cast<int>(i) + 1, static_cast<int>(i) + 1) = slope;
  }
}

// The first step leaves curvature 1 and gradient 1 - 1/1.001 of parameter 1; the second takes them
// for parameter 2, whose own are 4 and 2.
TEST_F(solver, step_after_a_mask_change_uses_the_curvature_of_the_old_one) {
  fit<2, 2> f{separate};
  f.y = {1, 1};
  f.maska = {true, false};
  f.step();
  EXPECT_DOUBLE_EQ(f.a[0], 1 / 1.001);
  EXPECT_EQ(f.alamda, 0.1 * 0.001);
  f.maska = {false, true};
  f.step();
  EXPECT_DOUBLE_EQ(f.a[0], 1 / 1.001);
  EXPECT_NEAR(f.a[1], (1 - 1 / 1.001) / 1.0001, 1e-15);
}

TEST_F(solver, inverse_and_solution_with_row_swaps) {
  matrix a{"a", 3, 3};
  a.item = {0, 2, 0, 4, 0, 0, 0, 0, -8};
  matrix b{"b", 3, 1};
  b.item = {2, 4, 8};
  gaussj(a, b);
  EXPECT_EQ(a.item, (std::vector<double>{0, 0.25, 0, 0.5, 0, 0, 0, 0, -0.125}));
  EXPECT_EQ(b.item, (std::vector<double>{1, 1, -1}));
}

// First pivot 2: row 1 becomes (1/2, 1 | 1), row 2 (-1, 0 | 2), and the next pivot is zero.
TEST_F(solver, zero_pivot_is_told_twice_and_leaves_what_was_reduced) {
  matrix a{"a", 2, 2};
  a.item = {2, 2, 2, 2};
  matrix b{"b", 2, 1};
  b.item = {2, 4};
  testing::internal::CaptureStdout();
  gaussj(a, b);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), " gaussj: singular matrix (2)\n");
  EXPECT_EQ(a.item, (std::vector<double>{0.5, 1, -1, 0}));
  EXPECT_EQ(b.item, (std::vector<double>{1, 2}));
  util::close_all_units(false);
  EXPECT_EQ(scratch::lines_of("fort.111"),
            (std::vector<std::string>{" gaussj: singular matrix (2)"}));
}

void blind(std::span<const double> /*x*/, std::span<const double> /*a*/, std::span<double> yfit,
           matrix& dyda) {
  yfit[0] = 1;
  for (double& d : dyda.row(1)) d = 0;
}

TEST_F(solver, a_fit_that_sees_nothing_goes_on_to_its_end) {
  fit<1, 2> f{blind};
  testing::internal::CaptureStdout();
  for (int i = 0; i < 3; ++i) f.step();
  f.finish();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            " gaussj: singular matrix (2)\n gaussj: singular matrix (2)\n"
            " gaussj: singular matrix (2)\n gaussj: singular matrix (2)\n");
  EXPECT_EQ(f.a[0], 0);
  EXPECT_EQ(f.chisq, 1);
}

// --- stops --------------------------------------------------------------------------------------

// Death tests match standard error: the stop's lines on standard output are sent there.
void show_output() { dup2(STDERR_FILENO, STDOUT_FILENO); }

void fit_with_sizes(std::size_t n_sig, int n_alpha) {
  show_output();
  fit<4, 3> f = straight_line();
  matrix alpha{"alpha", n_alpha, n_alpha};
  mrqmin({.x = f.x,
          .y = f.y,
          .sig = std::span{f.sig}.first(n_sig),
          .maska = f.maska,
          .funcs = f.funcs},
         f.a, f.covar, alpha, f.chisq, f.alamda);
}

TEST(solver_death, sizes_that_disagree_stop_with_status_2) {
  EXPECT_EXIT(fit_with_sizes(3, 3), testing::ExitedWithCode(2),
              "nrerror: an assert_eq failed with this tag:mrqmin: ndata\n"
              "program terminated by assert_eq3\n");
  EXPECT_EXIT(fit_with_sizes(4, 2), testing::ExitedWithCode(2),
              "tag:mrqmin: ma\nprogram terminated by assert_eqn\n");
  const auto spread = [] {
    show_output();
    matrix covar{"covar", 2, 3};
    const std::array maska{true, true};
    mrqmin_mod::covsrt(covar, maska);
  };
  EXPECT_EXIT(spread(), testing::ExitedWithCode(2),
              "tag:covsrt\nprogram terminated by assert_eq3\n");
  const auto stop = [] {
    show_output();
    nrerror("gaussj: singular matrix (1)");
  };
  EXPECT_EXIT(stop(), testing::ExitedWithCode(2),
              "nrerror: gaussj: singular matrix \\(1\\)\nprogram terminated by nrerror\n");
}

TEST(solver_death, step_before_the_first_call_is_refused) {
  const auto step = [] {
    fit<1, 1> f{always_one};
    f.alamda = 1;
    f.step();
  };
  EXPECT_EXIT(step(), testing::ExitedWithCode(1), "before the initialising call");
}

}  // namespace
