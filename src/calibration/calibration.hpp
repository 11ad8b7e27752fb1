// calibration: the button gains of one BPM from its readings and the table of its chamber.
//
// The table knows what each button would read for a beam anywhere. So every orbit j has a place
// (x, y) and an intensity exp(L), the BPM has four gains t and pedestals p, and all of them are
// fitted at once. In parts of the median button signal, for button k:
//
//     b_jk = t_k exp(L_j) [phi_k(x_j, y_j) + sum over i of h_i H_ik(X_j, Y_j)] + p_k + noise
//     X = x/R0,  Y = y/R0,  phi scaled to mean 1 over the buttons at the centre
//
// Four readings against three unknowns of the orbit leave one number that speaks of the BPM alone.
// When the intensity is steady it gives a second one:
//
//     L_j = smooth in time, a set of coefficients for each data set + l1 X + l2 Y + jitter
//
// h and l are the allowances. h is what a drawing leaves open of a chamber (button width and angle,
// disc or strip, ellipse): whatever the wall, phi is a solution of Laplace's equation with the four
// buttons mirror images of each other, so a chamber that differs adds, with signs (sx, sy) of the
// button's quadrant,
//     sx X,  sy Y,  X^2 - Y^2,  sx sy 2 X Y,  sx (X^3 - 3 X Y^2),  sy (3 X^2 Y - Y^3),
//     X^4 - 6 X^2 Y^2 + Y^4,  sx sy 4 (X^3 Y - X Y^3),
//     sx (X^5 - 10 X^3 Y^2 + 5 X Y^4),  sy (5 X^4 Y - 10 X^2 Y^3 + Y^5)
// and higher orders that do not matter. l is a current that follows the position. Each allowance
// has a prior, and so has each pedestal; the error E contains what they leave undecided.
//
// | in reading order       | what it holds                                                    |
// |------------------------|------------------------------------------------------------------|
// | calibration.cpp        | the whole rule: three fits, the choice between them, the verdict  |
// | input_check.cpp        | what is wrong with readings before anything is fitted             |
// | one_fit.hpp            | one fit of all unknowns                                           |
// | pedestal_knowledge.hpp | a fit when other things are believed of the pedestals             |
// | trouble_test.hpp       | what the readings would like the model to have                    |
// | orbit_block.hpp        | orbits in columns: model, directions u and v, rows for the sums   |
// | orbit_loops.hpp        | the work on them, as many orbits at once as the processor can     |
// | orbit_kernels.hpp      | that work for each instruction set; all give the same bits        |
// | normal_system.hpp      | the normal equations and their solution                           |
//
// Buttons 1..4 are BI, BO, TI, TO. A button gain t is what the button makes of the signal
// (signal = t x beam); the gains of a fit elsewhere in the program, by which signals are
// multiplied, are 1/t.
#pragma once
#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bounded.hpp"
#include "nonlin_bpm_mod.hpp"

namespace calibration {

using buttons = util::bounded<double, 1, 4, "button">;
using button_square = util::bounded2<double, 1, 4, 1, 4, "square">;  ///< button by button
/// Multipliers of the four fits of a session, by fit and button: signals times these are equal for
/// a centred beam.
using four_fits = util::bounded2<double, 1, 4, 1, 4, "fit">;

inline constexpr std::size_t n_harmonics = 10;

/// How well the pedestals are known, in parts of the median button signal.
inline constexpr double pedestals_subtracted = 3e-4;
inline constexpr double pedestals_left_in = 1e-2;

/// What is known of one BPM's run. Nothing is copied: what the spans and pointers show must live
/// as long as the call.
struct bpm_run {
  /// The readings: a column of orbits, in time order, for each button [any unit]
  std::array<std::span<const double>, 4> signal;
  /// First orbit (from 0) of every data set, ascending; empty: all orbits are one set
  std::span<const int> set_start;
  const nonlin_bpm_mod::table_struct* table = nullptr;
  bool exact_table = false;            ///< no allowances: as in simulations that use the table
  bool own_table = true;               ///< false: a stand-in, not the table of this chamber; good
                                       ///< to 4e-4 within 2 mm of the axis, at most weak beyond
  double sigma_p = pedestals_left_in;  ///< rms of what the pedestals may still be [median signal]
  double half_height = 0;              ///< R0 [m]; 0: worked out from the table's central slopes
  double tolerance = 0;                ///< of the buttons' places along the wall [m]; 0: unknown
  std::optional<four_fits> fits;       ///< of the same readings, to be judged beside
  std::string_view instruction_set{};  ///< to be used, for tests; empty: the best of this machine
};

enum class verdict_word {
  determined,      ///< the gains are right within E
  weak,            ///< they are, but E is large or the pedestals are not known
  not_determined,  ///< the data leave them open
  suspect          ///< something is wrong with the data or the BPM: see the reason
};

/// Why a verdict is not "determined". In the order in which they are looked for.
enum class verdict_reason {
  none,
  no_table,              ///< nothing was calibrated
  few_orbits,            ///< nothing was calibrated
  dead_button,           ///< nothing was calibrated
  stuck_button,          ///< a button that gives one reading, or repeats itself while others move
  saturated_button,      ///< readings that end at a maximum
  no_convergence,        ///< 40 steps were not enough
  one_line,              ///< the beam moved along a line
  error_too_large,       ///< E above 1e-2
  pedestals,             ///< pedestals beyond sigma_p, or a current that follows the position
  unlikely_gains,        ///< a gain further than exp(0.5) from its fellows
  many_outliers,         ///< more than 5 % of the orbits
  at_the_edge,           ///< more than 2 % of the places at the edge of the table
  gains_change,          ///< gains drift, bend or step in time
  other_signals,         ///< cross-talk between the buttons, or buttons that compress
  pedestals_not_known,   ///< sigma_p of 1e-2 or more
  stand_in_table,        ///< the table is not this chamber's
  error_large,           ///< E above 1e-3
  pedestals_not_checked  ///< pedestals three times those said to be known might spoil the gains
};

/// Which of the fits the gains are from.
enum class fit_kind {
  free_intensity,    ///< T1: every orbit's intensity is free
  steady_intensity,  ///< T2: the intensity is smooth in time
  wide_pedestals     ///< W: as T2, with the pedestals left open to 1e-2
};

/// One fit. Pedestals, noise and jitter are in parts of the median button signal.
struct fit_result {
  fit_kind kind = fit_kind::free_intensity;
  bool differences = false;    ///< the current was taken for a random walk
  buttons t{};                 ///< button gains, product 1 [-]
  button_square covariance{};  ///< of ln t [-]
  button_square
      noise_covariance{};  ///< the part of it that the noise makes, without the allowances
  double E = 0;            ///< largest standard deviation of ln(t_k/t_1), k = 2..4 [-]
  double E_noise = 0;      ///< the same of noise_covariance [-]
  buttons pedestal{};
  button_square pedestal_covariance{};
  button_square shared_covariance{};  ///< of ln t (first) with the pedestals (second)
  double noise = 0;                   ///< rms of one reading
  double noise_v = 0;                 ///< rms of the v-residuals; 0 when free
  double jitter = 0;                  ///< rms of the intensity about its smooth course; 0 when free
  double chi_square = 0;              ///< u-residuals over the noise, squared and summed [-]
  double chi_square_v = 0;            ///< the same of the v-residuals over theirs; 0 when free
  double persistence = 0;  ///< autocorrelation of the v-residuals from orbit to orbit, -1..1
  std::array<double, n_harmonics> h{};  ///< allowances for the chamber, in the order above [-]
  std::array<double, 2> l{};            ///< current that follows the position [-]
  int orbits = 0;                       ///< that took part
  int outliers = 0;                     ///< that were left out
  int intensity_outliers = 0;           ///< of which only the intensity was left out
  int at_edge = 0;                      ///< held back by the edge of the table
  int steps = 0;
  bool converged = false;
};

/// Things beyond the model that the readings are asked for.
enum class trouble_kind {
  cross_talk,       ///< a channel sees part of its two neighbours' signals
  compression,      ///< a button's large signals read too small
  drift,            ///< gains go along a line in time,
  bend,             ///< or along a parabola,
  step,             ///< or are others in the second half of the run
  pedestals_of_set  ///< a data set has pedestals of its own
};

/// How large one of them is, if it is the only one.
struct trouble_size {
  trouble_kind kind = trouble_kind::cross_talk;
  int which = 0;          ///< button 1..4, or data set from 0
  double size = 0;        ///< part, or largest change of a gain ratio, or pedestal [-]
  double chi_square = 0;  ///< by how much it betters the fit [-]
  int freedom = 0;        ///< of that chi-square
  double shift = 0;       ///< what it does to a gain ratio at most [-]
};

/// What became of one orbit.
struct orbit_place {
  double x = 0, y = 0;   ///< [m]
  double intensity = 0;  ///< signal of a centred beam on a button of gain 1 [unit of signals]
  double residual = 0;   ///< what the orbit says about the BPM alone [median signal]
  bool used = false;     ///< false: an outlier, or no usable reading
};

/// The verdict on a set of gains.
struct judgement {
  verdict_word word = verdict_word::not_determined;
  verdict_reason reason = verdict_reason::few_orbits;
  int button = 0;  ///< the button that the reason is about, 0: none
  double E = 0;    ///< error figure that the word rests on [-]
};

/// The outcome for one BPM. When nothing was calibrated (see verdict_reason) gains are 1 and the
/// lists are empty.
struct record {
  judgement verdict;
  buttons t{{1, 1, 1, 1}};  ///< the button gains, product 1 [-]
  fit_kind chosen = fit_kind::free_intensity;
  fit_result free, steady, wide;  ///< T1, T2, W
  double median_signal = 0;       ///< median over orbits of the four-signal sum, over 4
  double pedestal_chi = 0;        ///< how far W's pedestals are beyond sigma_p; 20 is too far [-]
  double slope_chi = 0;           ///< how far W's slopes of the current are beyond their prior
  double moved_gains = 0;         ///< largest change of ln(t_k/t_1) in time that stands out [-]
  double moved_sigma = 0;         ///< root of the chi-square that speaks for it [-]
  std::vector<trouble_size> trouble;  ///< what else the readings were asked for
  double E_mech = 0;               ///< error from the tolerance of the buttons' places; 0: unknown
  std::vector<orbit_place> place;  ///< orbit by orbit
  // The four fits of the session, when they are given.
  double fits_differ = 0;                 ///< largest |ln ratio of the fits - ln ratio here| [-]
  std::optional<judgement> fits_verdict;  ///< the word on their gains
};

/// The calibration of one BPM.
/// given    run  see there; readings that are no numbers or have no positive sum are left out
/// returns  the record; its verdict is always one of the four words with a reason
/// errors   none
/// note     safe on several threads: nothing outside the argument is read, nothing is written
record calibrate(const bpm_run& run);

/// The result that the gains of a record are from.
const fit_result& chosen_fit(const record& r);

/// The four words: "determined", "weak", "not determined", "suspect".
std::string_view text_of(verdict_word word);

/// One line about a verdict: "suspect: button 3 is saturated".
std::string text_of(const judgement& j);

}  // namespace calibration
