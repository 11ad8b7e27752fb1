// Every column of a session's files against numbers that are calculated here, from the readings
// alone: positions and combinations by their formulas, gains and curve by an independent fit.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "raw_by_hand.hpp"
#include "session_harness.hpp"

namespace {

namespace fs = std::filesystem;
using session::contains;
using session::lines_of;
using session::numbers_of;
using session::read_file;
using std::to_string;
using four = std::array<double, 4>;
using numbers = std::vector<double>;

constexpr const char* series_dir = "inputs_1000random_xy_and_timing_offset";

/// One kept orbit: signals of buttons 1..4 and the beam current.
struct orbit {
  four b{};
  double current = 1;
};

/// What a BPM's files are to show.
struct bpm_by_hand {
  std::string name;
  int index = 0;
  double scale_h = 0.0259;  // [m]
  double scale_v = 0.0198;
  four true_gain{};
  std::vector<orbit> orbits{};
};

// --- formulas -----------------------------------------------------------------------------------

struct combined {
  double X, Y, Q;
};

combined combine(const four& b, const four& g) {
  const double g1 = g[0] * b[0], g2 = g[1] * b[1], g3 = g[2] * b[2], g4 = g[3] * b[3];
  const double S = g1 + g2 + g3 + g4;
  return {(g1 - g2 + g3 - g4) / S, (g1 + g2 - g3 - g4) / S, (g1 - g2 - g3 + g4) / S};
}

double x_of(const bpm_by_hand& bpm, const four& b) {
  return (b[1] + b[3] - b[0] - b[2]) * bpm.scale_h / (b[0] + b[1] + b[2] + b[3]);
}

double y_of(const bpm_by_hand& bpm, const four& b) {
  return (b[2] + b[3] - b[0] - b[1]) * bpm.scale_v / (b[0] + b[1] + b[2] + b[3]);
}

double curve(double u, double Am, double k, double h) {
  return Am * (std::sin(k * u) + h * std::sin(2 * k * u));
}

// --- an independent fit: multipliers 2..4 relative to the first, Am, k, h = h2 + h3 -------------

using six = std::array<double, 6>;

double residual(const six& p, const orbit& o) {
  const auto [X, Y, Q] = combine(o.b, {1, p[0], p[1], p[2]});
  return curve(X * Y, p[3], p[4], p[5]) - Q;
}

double chi_square(const six& p, const std::vector<orbit>& orbits) {
  double sum = 0;
  for (const orbit& o : orbits) sum += residual(p, o) * residual(p, o);
  return sum;
}

// Solves A x = b by elimination; A is positive definite.
six solve(std::array<six, 6> A, six b) {
  for (std::size_t i = 0; i < 6; ++i) {
    for (std::size_t r = i + 1; r < 6; ++r) {
      const double f = A[r][i] / A[i][i];
      for (std::size_t c = i; c < 6; ++c) A[r][c] -= f * A[i][c];
      b[r] -= f * b[i];
    }
  }
  for (std::size_t i = 6; i-- > 0;) {
    for (std::size_t c = i + 1; c < 6; ++c) b[i] -= A[i][c] * b[c];
    b[i] /= A[i][i];
  }
  return b;
}

// Damped Gauss-Newton steps to the last digit.
six independent_fit(const std::vector<orbit>& orbits) {
  six p{1, 1, 1, 0.2, 10, 0};
  double damping = 1e-2;
  for (int step = 0; step < 400; ++step) {
    std::array<six, 6> A{};
    six g{};
    for (const orbit& o : orbits) {
      six J{};
      for (std::size_t i = 0; i < 6; ++i) {
        six up = p, down = p;
        up[i] += 1e-6;
        down[i] -= 1e-6;
        J[i] = (residual(up, o) - residual(down, o)) / 2e-6;
      }
      for (std::size_t i = 0; i < 6; ++i) {
        g[i] -= J[i] * residual(p, o);
        for (std::size_t j = 0; j < 6; ++j) A[i][j] += J[i] * J[j];
      }
    }
    for (std::size_t i = 0; i < 6; ++i) A[i][i] *= 1 + damping;
    const six move = solve(A, g);
    six next = p;
    for (std::size_t i = 0; i < 6; ++i) next[i] += move[i];
    const bool better = chi_square(next, orbits) <= chi_square(p, orbits);
    damping = better ? std::max(damping / 10, 1e-15) : damping * 10;
    if (better) p = next;
  }
  return p;
}

// --- files --------------------------------------------------------------------------------------

// Rows of `width` numbers that no comment sign begins.
std::vector<numbers> rows_of(const fs::path& path, std::size_t width) {
  std::vector<numbers> rows;
  for (const std::string& line : lines_of(read_file(path))) {
    const numbers row = numbers_of(line);
    if (row.size() == width && line[0] != '#') rows.push_back(row);
  }
  return rows;
}

// The row of a summary table or of orbit.dat that begins with a BPM's index.
numbers row_of(const fs::path& table, int bpm, std::size_t width) {
  for (const numbers& row : rows_of(table, width)) {
    if (row[0] == bpm) return row;
  }
  ADD_FAILURE() << table << " has no row of " << width << " numbers for BPM " << bpm;
  return numbers(width, NAN);
}

// The numbers of the nth line of a file that holds a text, from behind the text on.
numbers behind(const fs::path& file, const std::string& text, int nth = 1) {
  for (const std::string& line : lines_of(read_file(file))) {
    const std::size_t at = line.find(text);
    if (at != std::string::npos && --nth == 0) return numbers_of(line.substr(at + text.size()));
  }
  ADD_FAILURE() << file << " has no line with " << text;
  return numbers(8, NAN);
}

// Four decimals; four digits of the exponent form 0.1234D+01.
constexpr double half_a_decimal = 0.501e-4;
double half_a_digit(double value) { return (5.01e-4 * std::abs(value)) + 1e-13; }

// NAME.dat: the last lines hold one orbit each.
void expect_readings(const fs::path& results, const bpm_by_hand& bpm) {
  const auto rows = rows_of(results / (bpm.name + ".dat"), 11);
  ASSERT_EQ(rows.size(), bpm.orbits.size()) << bpm.name;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(bpm.name + ".dat, orbit " + to_string(i + 1));
    const auto& [b, current] = bpm.orbits[i];
    const auto [X, Y, Q] = combine(b, {1, 1, 1, 1});
    const numbers expected{x_of(bpm, b), y_of(bpm, b), Q,    X,    Y,   X * Y / current,
                           current,      b[0],         b[1], b[2], b[3]};
    for (std::size_t c = 0; c < 11; ++c) {
      EXPECT_NEAR(rows[i][c], expected[c], half_a_digit(expected[c])) << "column " << c + 1;
    }
  }
}

struct motion {
  double h_min = INFINITY, h_max = -INFINITY, v_min = INFINITY, v_max = -INFINITY;
  double x = 0, y = 0;            // means [m]
  double total = 0, squares = 0;  // of the button totals
};

motion motion_of(const bpm_by_hand& bpm) {
  motion m;
  for (const auto& [b, current] : bpm.orbits) {
    const double x = x_of(bpm, b), y = y_of(bpm, b), total = b[0] + b[1] + b[2] + b[3];
    m.h_min = std::min(m.h_min, x);
    m.h_max = std::max(m.h_max, x);
    m.v_min = std::min(m.v_min, y);
    m.v_max = std::max(m.v_max, y);
    m.x += x / static_cast<double>(bpm.orbits.size());
    m.y += y / static_cast<double>(bpm.orbits.size());
    m.total += total;
    m.squares += total * total;
  }
  return m;
}

// The columns of orbit.dat and of the "_out" table that need no fit.
void expect_motion(const fs::path& results, const std::string& label, const bpm_by_hand& bpm) {
  SCOPED_TRACE(bpm.name);
  const motion m = motion_of(bpm);
  const numbers mean = row_of(results / "orbit.dat", bpm.index, 3);
  EXPECT_NEAR(mean[1], m.x, half_a_decimal);
  EXPECT_NEAR(mean[2], m.y, half_a_decimal);
  const numbers out = row_of(results / (label + "_out"), bpm.index, 22);
  const double n = static_cast<double>(bpm.orbits.size());
  const numbers extremes{m.h_min, m.h_max, m.h_max - m.h_min, m.v_min, m.v_max, m.v_max - m.v_min};
  for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(out[1 + i], extremes[i], half_a_decimal) << i;
  EXPECT_NEAR(out[16], m.total / n, half_a_decimal);
  const double rms = std::sqrt((m.squares - m.total * m.total / n) / n);
  EXPECT_NEAR(out[17], rms, (1e-6 * rms) + half_a_decimal);
  for (std::size_t k = 0; k < 4; ++k) EXPECT_NEAR(out[18 + k], bpm.true_gain[k], half_a_decimal);
}

// What the four repetitions print: gains and curve of each, from the header of NAME.dat_fit.
struct repetition {
  double chisq = 0;
  four gain{}, coef{};
};

std::array<repetition, 4> repetitions_of(const fs::path& results, const std::string& name) {
  std::array<repetition, 4> all;
  for (std::size_t f = 0; f < 4; ++f) {
    const numbers n = behind(results / (name + ".dat_fit"), "#  ind=", static_cast<int>(f) + 1);
    all[f].chisq = n.at(1);
    for (std::size_t k = 0; k < 4; ++k) {
      all[f].gain[k] = n.at(2 + k);
      all[f].coef[k] = n.at(6 + k);
    }
  }
  return all;
}

// What the tables make of the repetitions: means of gains and curve, ratios and their scatter.
void expect_combination(const fs::path& results, const std::string& label, const bpm_by_hand& bpm) {
  SCOPED_TRACE(bpm.name);
  const auto fits = repetitions_of(results, bpm.name);
  const fs::path file = results / (bpm.name + ".dat_fit");
  const numbers gain = behind(file, "# gain = "), coef = behind(file, "# coef = ");
  const numbers out = row_of(results / (label + "_out"), bpm.index, 22);
  const numbers err = row_of(results / (label + "_err"), bpm.index, 33);
  const double chisq = fits[3].chisq;  // the fourth fit's stands for all
  EXPECT_NEAR(behind(file, "# chis_deg = ").at(0),
              chisq / (static_cast<double>(bpm.orbits.size()) - 7), half_a_digit(chisq));
  EXPECT_NEAR(out[15], chisq, half_a_decimal + half_a_digit(chisq));
  EXPECT_NEAR(behind(file, "const = ").at(0), fits[3].coef[0], 2e-4);
  for (std::size_t k = 0; k < 4; ++k) {
    double g = 0, c = 0, ratio = 0, squares = 0;
    for (std::size_t f = 0; f < 4; ++f) {
      const double r = err[1 + 5 * f + k];
      EXPECT_NEAR(r, fits[f].gain[0] / fits[f].gain[k], 3e-4) << f;
      EXPECT_NEAR(err[5 + 5 * f], chisq, half_a_decimal + half_a_digit(chisq));
      g += fits[f].gain[k] / 4;
      c += fits[f].coef[k] / 4;
      ratio += r / 4;
      squares += r * r;
    }
    EXPECT_NEAR(gain[k], g, 2 * half_a_decimal);
    EXPECT_NEAR(out[7 + k], 1 / g, 3e-4);
    EXPECT_NEAR(coef[k], c, 2 * half_a_decimal);
    EXPECT_NEAR(out[11 + k], c, 2 * half_a_decimal);
    EXPECT_NEAR(err[21 + k], ratio, 2 * half_a_decimal);
    EXPECT_NEAR(err[25 + k], std::sqrt(std::abs(squares - 4 * ratio * ratio)), 0.03);
    EXPECT_NEAR(err[29 + k], bpm.true_gain[k], half_a_decimal);
  }
}

// Four matrices, 0 where the gain is held and nowhere else.
void expect_whole_matrices(const fs::path& file) {
  const auto lines = lines_of(read_file(file));
  std::size_t held = 0;
  for (std::size_t at = 0; at < lines.size(); ++at) {
    if (!contains(lines[at], "# covariance matrix")) continue;
    for (std::size_t i = 0; i < 8; ++i) {
      const numbers row = numbers_of(lines.at(at + 1 + i).substr(1));
      ASSERT_EQ(row.size(), 8U);
      for (std::size_t j = 0; j < 8; ++j) {
        EXPECT_EQ(row[j] == 0, i == held || j == held) << held << i << j;
      }
    }
    ++held;
  }
  EXPECT_EQ(held, 4U);
}

// Gains, curve and chi-square of a BPM whose beam moved enough for one answer.
void expect_fit(const fs::path& results, const std::string& label, const bpm_by_hand& bpm,
                double tolerance) {
  SCOPED_TRACE(bpm.name);
  const six p = independent_fit(bpm.orbits);
  const double chisq = chi_square(p, bpm.orbits);
  for (const repetition& fit : repetitions_of(results, bpm.name)) {
    for (std::size_t k = 1; k < 4; ++k) EXPECT_NEAR(fit.gain[k] / fit.gain[0], p[k - 1], tolerance);
    EXPECT_NEAR(fit.chisq, chisq, (1e-2 * chisq) + 1e-11);
  }
  const numbers out = row_of(results / (label + "_out"), bpm.index, 22);
  EXPECT_NEAR(out[11], p[3], 10 * tolerance);
  EXPECT_NEAR(out[12], p[4], 300 * tolerance);
  EXPECT_NEAR(out[13] + out[14], p[5], 30 * tolerance);  // h2 and h3 act through their sum alone
}

// --- data ---------------------------------------------------------------------------------------

// Readings of a beam about (X0, Y0) that lie on the curve 0.2 (sin 10 u + 0.1 sin 20 u), but for
// `scatter` of Q.
std::vector<orbit> on_a_curve(int n, const four& gain, double X0, double Y0, double scatter) {
  std::vector<orbit> orbits;
  for (int i = 0; i < n; ++i) {
    const double X = X0 + 0.006 * (i * 37 % 101 - 50);
    const double Y = Y0 + 0.005 * (i * 59 % 97 - 48);
    const double Q = curve(X * Y, 0.2, 10, 0.1) + scatter * ((i * 43 % 89) / 44.0 - 1);
    const double S = 1.6e6 + 1e3 * i;  // four times this has room in a table
    orbits.push_back(
        {{std::round(S * (1 + X + Y + Q) * gain[0]), std::round(S * (1 - X + Y - Q) * gain[1]),
          std::round(S * (1 + X - Y - Q) * gain[2]), std::round(S * (1 - X - Y + Q) * gain[3])}});
  }
  return orbits;
}

// A centred beam that stands still, read with a noise of 1e-4.
std::vector<orbit> standing_still(int n) {
  std::vector<orbit> orbits;
  for (int i = 0; i < n; ++i) {
    orbits.push_back({{1e6 + 3 * (i * 37 % 101), 1e6 + 3 * (i * 59 % 97), 1e6 + 3 * (i * 43 % 89),
                       1e6 + 3 * (i * 61 % 103)}});
  }
  return orbits;
}

// The gains of the first line are the BPM's: tables show no other line's.
void put_series_file(const session::scratch& here, int number, const bpm_by_hand& bpm) {
  std::string text;
  for (const orbit& o : bpm.orbits) {
    const double other = text.empty() ? 0 : 0.125;
    text += "0 0";
    for (const double b : o.b) text += " " + to_string(static_cast<long long>(b));
    for (const double g : bpm.true_gain) text += " " + to_string(g + other);
    text += "\n";
  }
  session::write_file(here.path() / series_dir / ("exp_" + to_string(number) + ".txt"), text);
}

// Three BPMs of a series: one whose readings scatter about the curve; one on the curve whose beam
// stays on one side of both axes, so that no extreme is 0 and x has nothing in common with y; and
// one whose beam stands still.
TEST(by_hand, synthetic_session_column_by_column) {
  const session::scratch here;
  const std::string label = "inputs_1000random_xy_and_timing_offset.dat";
  const four gain{1.04, 0.97, 1.01, 0.93};
  const bpm_by_hand scattered{"EXP_3", 1, 0.0102, 0.0104, gain, on_a_curve(40, gain, 0, 0, 0.03)};
  const bpm_by_hand exact{"EXP_4", 2, 0.0259, 0.0198, gain, on_a_curve(40, gain, -0.35, 0.3, 0)};
  const bpm_by_hand still{"EXP_5", 3, 0.0259, 0.0198, {1, 1, 1, 1}, standing_still(40)};
  put_series_file(here, 3, scattered);
  put_series_file(here, 4, exact);
  put_series_file(here, 5, still);
  const auto run = session::butngain(here.path(), {"F", "exp_3.txt", "exp_5.txt", "no"});
  ASSERT_EQ(run.status, 0) << run.err;

  const fs::path results = here.run_directory();
  for (const bpm_by_hand* bpm : {&scattered, &exact, &still}) {
    expect_readings(results, *bpm);
    expect_motion(results, label, *bpm);
    expect_combination(results, label, *bpm);
  }
  expect_fit(results, label, scattered, 1e-3);
  expect_fit(results, label, exact, 2e-4);
  EXPECT_EQ(rows_of(results / "orbit.dat", 3).size(), 3U);

  // The constant in a file of readings is that of the BPM before.
  EXPECT_EQ(behind(results / "EXP_3.dat", "const = ").at(0), 0);
  EXPECT_NEAR(behind(results / "EXP_4.dat", "const = ").at(0),
              repetitions_of(results, "EXP_3")[3].coef[0], 1e-4);

  // A gain of the mean that the fourth fit alone would not give: else the means above prove little.
  const auto fits = repetitions_of(results, "EXP_5");
  EXPECT_GT(std::abs(fits[3].coef[1] - (fits[0].coef[1] + fits[1].coef[1]) / 2), 1e-2);

  expect_whole_matrices(results / "EXP_3.dat_fit");
  EXPECT_TRUE(contains(run.err, "BPM 3 (EXP_5): not determined: ")) << run.err;
}

// Three data sets: a raw run of 34E and 33E, one of 10W and 33E, a text run of 34E. The BPMs stand
// on both sides of the index 66 (33E) from which turns count one later. 33E comes last in both raw
// runs and loses a turn, so the orbits of each are one fewer than its turns: what 34E has beyond
// them must not come back in the second set, which does not hold it.
TEST(by_hand, three_data_sets_of_different_bpms) {
  const session::scratch here;
  const struct {
    const char *run, *names, *turns, *current;
  } raw_runs[] = {{"4566", "34E,33E", "14", "2.5"}, {"4570", "10W,33E", "10", "0.75"}};
  ASSERT_EQ(session::bpmsim(here.path(), {"tree", "tree", "--bpms", "1", "--turns", "2"}).status,
            0);
  for (const auto& [run, names, turns, current] : raw_runs) {
    const auto made =
        session::bpmsim(here.path(), {"raw", "--tree", "tree/online", "--run", run, "--runs", "2",
                                      "--names", names, "--turns", turns, "--current", current,
                                      "--signal", "1800", "--pedestal", "30"});
    ASSERT_EQ(made.status, 0) << made.err;
  }
  std::string text = "Location : 34E\n--- Bunch 1 ---\n";
  bpm_by_hand at_65{"34E", 65, 0.0259, 0.0198, {}, {}};
  bpm_by_hand at_66{"33E", 66, 0.0259, 0.0198, {}, {}};
  // In each pair of runs the second one lies over the first.
  const auto add = [&](bpm_by_hand& bpm, const char* run, std::size_t first, std::size_t count) {
    const auto at =
        session::read_instrument(here.path() / "tree/online/kbpmII/raw/04" / run, bpm.name);
    for (std::size_t turn = first; turn < first + count; ++turn) {
      orbit o;
      for (std::size_t k = 1; k <= 4; ++k) o.b[k - 1] = std::round(signal(at, turn, k));
      bpm.orbits.push_back(o);
    }
  };
  add(at_65, "RD-004566.dat", 0, 13);
  add(at_66, "RD-004566.dat", 1, 13);
  add(at_66, "RD-004570.dat", 1, 9);
  for (int turn = 0; turn < 5; ++turn) {
    const four b{1500.0 + 10 * turn, 1600.0 - 20 * turn, 1700.0 + 5 * turn, 1750.0 - 7 * turn};
    for (const double signal : b) text += " " + to_string(signal);
    text += " 0 0 0 0\n";
    at_65.orbits.push_back({{1000 * b[0], 1000 * b[1], 1000 * b[2], 1000 * b[3]}});
  }
  session::write_file(here.path() / "third_run.txt", text);
  // Empty orbits of a BPM are dropped, currents are not: kept orbit n has the current of orbit n.
  std::vector<double> current(13, 2.5);
  current.insert(current.end(), 9, 0.75);
  current.insert(current.end(), 5, 1);
  for (bpm_by_hand* bpm : {&at_65, &at_66}) {
    for (std::size_t i = 0; i < bpm->orbits.size(); ++i) bpm->orbits[i].current = current[i];
  }

  session::settings how;
  how.environment["KOVR_ONLINE"] = (here.path() / "tree/online").string();
  const auto run = session::butngain(
      here.path(),
      {"T", "100", "4567",          "3", "1",  "0",  "",  "y", "100", "4571", "3", "1", "0", "",
       "y", "0",   "third_run.txt", "n", "66", "-1", "no"},
      how);
  ASSERT_EQ(run.status, 0) << run.err;
  // The choice is among the BPMs of the last set.
  EXPECT_TRUE(contains(run.out,
                       " No data for bpm           66  choose another\n Available bpms are: \n"
                       "  65   0   0   0"));
  const fs::path results = here.run_directory();
  for (const bpm_by_hand* bpm : {&at_65, &at_66}) {
    expect_readings(results, *bpm);
    expect_motion(results, "third_run.txt", *bpm);
    expect_combination(results, "third_run.txt", *bpm);
  }
  EXPECT_FALSE(fs::exists(results / "10W.dat"));
  EXPECT_EQ(lines_of(read_file(results / "33E.dat"))[2], "file[ 2]= \"RD-004571.dat\"");
  // The table of the fitted file has the last orbit's current throughout.
  for (const auto& row : rows_of(results / "34E.dat_fit", 10)) EXPECT_EQ(row[6], 0.75);
  for (const auto& row : rows_of(results / "33E.dat_fit", 10)) EXPECT_EQ(row[6], 0.75);
}

// Simulated signals off the model's validity leave a valley in which the fit creeps on.
TEST(by_hand, a_fit_that_does_not_settle_ends_after_a_hundred_and_two_calls) {
  const session::scratch here;
  ASSERT_EQ(
      session::bpmsim(here.path(), {"series", "--bpms", "1", "--orbits", "200", "--spread", "9"})
          .status,
      0);
  const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "", "no"});
  int calls = 0;
  std::vector<int> of_fits;
  for (const std::string& line : lines_of(run.out)) {
    if (line == "  ") calls = 0;  // the pair sweep ends with a blank line
    if (contains(line, " coef = ")) ++calls;
    if (contains(line, "final")) of_fits.push_back(calls);
  }
  EXPECT_EQ(of_fits, (std::vector{102, 102, 102, 102}));
}

}  // namespace
