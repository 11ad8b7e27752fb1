// calibration: the button gains of one BPM from its readings and the table of its chamber.
//
//     butngain::calibration_input input;
//     input.readings = readings;
//     input.chamber_table = table;
//     const butngain::calibration found = butngain::calibrate(input);
//     std::cout << butngain::line_of(found.verdict) << '\n';
//
// The table knows what each button would read for a beam anywhere. So every orbit has a place and
// an intensity, the BPM has four gains and four pedestals, and all of them are fitted at once:
// with the orbits' intensities free (T1), with an intensity that is smooth in time (T2), and with
// pedestals left open (W). The verdict says which of them the gains are from and what they are
// worth. Pedestals, noise and jitter are in parts of the median button signal.
//
// ownership  What the spans of an input show must live as long as the call; results are plain
//            records.
// threads    calibrate() may be called on several threads at once; calibrate_many() does.
#pragma once
#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common.hpp"
#include "error.hpp"
#include "fit.hpp"
#include "table.hpp"

#pragma GCC visibility push(default)
namespace butngain {

/// How well the pedestals are known when they were subtracted, and when they were not.
inline constexpr double pedestals_subtracted = 3e-4;
inline constexpr double pedestals_left_in = 1e-2;

struct calibration_input {
  std::span<const signals> readings;  ///< in time order [any unit]
  std::span<const int> set_start;     ///< first orbit (from 0) of every data set, ascending;
                                      ///< empty: all orbits are one set
  table chamber_table;
  bool exact_table = false;            ///< no allowances: simulations that use the same table
  bool own_table = true;               ///< false: a stand-in, not the table of this chamber
  double sigma_p = pedestals_left_in;  ///< rms of what the pedestals may still be
  double half_height = 0;              ///< of the chamber [m]; 0: worked out from the table
  double tolerance = 0;                ///< of the buttons' places along the wall [m]; 0: unknown
  bool with_fits = true;               ///< makes the four fits too, and judges their gains beside
};

enum class verdict_word {
  determined,      ///< the gains are right within the error
  weak,            ///< they are, but the error is large or something is not known
  not_determined,  ///< the data leave them open
  suspect          ///< something is wrong with the data or the BPM: see the reason
};

/// Why a verdict is not "determined".
enum class verdict_reason {
  none,
  no_table,
  few_orbits,
  dead_button,
  stuck_button,
  saturated_button,
  no_convergence,
  one_line,
  error_too_large,
  pedestals,
  unlikely_gains,
  many_outliers,
  at_the_edge,
  gains_change,
  other_signals,
  pedestals_not_known,
  stand_in_table,
  error_large,
  pedestals_not_checked
};

struct judgement {
  verdict_word word = verdict_word::not_determined;
  verdict_reason reason = verdict_reason::few_orbits;
  int button = -1;   ///< 0..3, the button that the reason is about; -1: none
  double error = 0;  ///< that the word rests on: standard deviation of ln(t_k/t_0) [-]
};

/// The four words, and the whole line: "suspect: button 3 is saturated" (buttons from 1, as people
/// count). Errors none.
std::string_view text_of(verdict_word word);
std::string line_of(const judgement& j);

enum class fit_kind { free_intensity, steady_intensity, wide_pedestals };  ///< T1, T2, W

using square = std::array<four, 4>;  ///< button by button

/// One fit of all unknowns.
struct calibration_fit {
  fit_kind kind = fit_kind::free_intensity;
  bool differences = false;   ///< the current was taken for a random walk
  four gain{};                ///< button gains t, product 1 [-]
  square covariance{};        ///< of ln t [-]
  square noise_covariance{};  ///< the part of it that the noise makes
  double error = 0;           ///< largest standard deviation of ln(t_k/t_0) [-]
  double noise_error = 0;     ///< the same of noise_covariance [-]
  four pedestal{};
  square pedestal_covariance{};
  double noise = 0;                  ///< rms of one reading
  double noise_v = 0;                ///< rms of the intensity's residuals; 0 when free
  double jitter = 0;                 ///< rms of the intensity about its course; 0 when free
  double chi_square = 0;             ///< residuals over the noise, squared and summed [-]
  double chi_square_v = 0;           ///< the same of the intensity's; 0 when free [-]
  double persistence = 0;            ///< autocorrelation of the intensity's residuals, -1..1
  std::array<double, 10> chamber{};  ///< allowances for what a drawing leaves open [-]
  std::array<double, 2> current{};   ///< a current that follows the position [-]
  int orbits = 0;                    ///< that took part
  int outliers = 0;                  ///< that were left out
  int intensity_outliers = 0;        ///< of which only the intensity was left out
  int at_edge = 0;                   ///< held back by the edge of the table
  int steps = 0;
  bool converged = false;
};

/// Things beyond the model that the readings are asked for: cross-talk between neighbouring buttons,
/// compression of large signals, gains that go along a line or a parabola in time or step half way
/// through, pedestals of one data set alone.
enum class trouble_kind { cross_talk, compression, drift, bend, step, pedestals_of_set };

/// How large one of them is, if it is the only one.
struct trouble_size {
  trouble_kind kind = trouble_kind::cross_talk;
  int which = 0;          ///< compression: button 0..3; pedestals_of_set: data set from 0; else 0
  double size = 0;        ///< part, or largest change of a gain ratio, or pedestal [-]
  double chi_square = 0;  ///< by how much it betters the fit [-]
  int freedom = 0;        ///< of that chi-square
  double shift = 0;       ///< what it does to a gain ratio at most [-]
};

/// What became of one orbit.
struct orbit_place {
  double x = 0, y = 0;   ///< [m]
  double intensity = 0;  ///< signal of a centred beam on a button of gain 1 [unit of readings]
  double residual = 0;   ///< what the orbit says about the BPM alone
  bool used = false;     ///< false: an outlier, or no usable reading
};

/// The outcome for one BPM. When nothing was calibrated gains are 1 and places are empty.
struct calibration {
  judgement verdict;
  four gain{1, 1, 1, 1};  ///< button gains t, product 1 [-]
  fit_kind chosen = fit_kind::free_intensity;
  calibration_fit free, steady, wide;  ///< T1, T2, W
  double median_signal = 0;            ///< of the four-signal sum, over 4 [unit of readings]
  double pedestal_chi = 0;             ///< how far W's pedestals are beyond sigma_p; 20 is too far
  double slope_chi = 0;                ///< how far W's slopes of the current are beyond their prior
  double moved_gains = 0;             ///< largest change of ln(t_k/t_0) in time that stands out [-]
  double moved_sigma = 0;             ///< root of the chi-square that speaks for it [-]
  std::vector<trouble_size> trouble;  ///< what else the readings were asked for
  double mechanical_error = 0;        ///< from the tolerance of the buttons' places; 0: unknown
  std::vector<orbit_place> place;     ///< orbit by orbit
  std::optional<four_fits> fits;      ///< with_fits
  double fits_differ = 0;             ///< largest |ln ratio| between the fits' gains and these [-]
  std::optional<judgement> fits_verdict;  ///< the word on the fits' gains
};

/// The fit that the gains of a calibration are from. Errors none.
const calibration_fit& chosen_fit(const calibration& c);

/// Calibrates one BPM. Readings that are no numbers, or have no positive sum, are left out.
/// errors   argument: a table without contents; set_start; sigma_p, half_height or tolerance that
///          cannot be
calibration calibrate(const calibration_input& input);

/// Calibrates many BPMs, each on one thread.
/// given    threads  0: one for each processor
///          tell     called when a BPM is done, and every tenth of a second
/// returns  the outcomes, in the order of the inputs; the same as calibrate() gives
/// errors   as calibrate; stopped, when the BPMs in work are done
std::vector<calibration> calibrate_many(std::span<const calibration_input> inputs,
                                        unsigned threads = 0, const progress& tell = {});

}  // namespace butngain
#pragma GCC visibility pop
