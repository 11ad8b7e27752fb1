// gain_fit_mod: the state of one gain fit, and the model that ties the four button signals of one
// BPM to its four gains.
//
// Buttons 1..4 are BI, BO, TI, TO. With g the gains, b the signals of one orbit and S = sum(g b):
//     X = (g1b1 - g2b2 + g3b3 - g4b4) / S      inner minus outer
//     Y = (g1b1 + g2b2 - g3b3 - g4b4) / S      bottom minus top
//     Q = (g1b1 - g2b2 - g3b3 + g4b4) / S      skew
// In a symmetric chamber Q is, to good accuracy, an odd function of the product XY alone, wherever
// the beam passes; unequal gains break that. The fit moves gains and curve until it holds again.
#pragma once
#include <span>

#include "bounded.hpp"
#include "matrix.hpp"
#include "orbit_store.hpp"
#include "text.hpp"

namespace gain_fit_mod {

inline constexpr int max_parameters = 8;  ///< gains 1..4, then Am, k, h2, h3

using signals = util::bounded<double, 1, 4, "but">;       ///< one orbit [ADC counts]
using parameters = util::bounded<double, 1, 8, "param">;  ///< gains 1..4, then Am, k, h2, h3 [-]
using derivatives = util::bounded<double, 1, 8, "dyda">;  ///< of the residual, by parameter
using gains = util::bounded<double, 1, 4, "gain">;        ///< by button [-]
using coefficient_set = util::bounded<double, 1, 4, "coefficients">;  ///< Am, k, h2, h3 [-]
using combination = util::bounded<double, 1, 4, "bvec">;              ///< signals with signs

// --- state: filled by the session, the readers and fit_gains; lives for the whole run ----------

inline store::orbit_store orbit_data{"orbit_data"};  // all readings; orbits 1..norbits are in use
inline int norbits = 0;                              // orbits held, 1..3000 while fitting
inline int bpm = -1;                                 // BPM under treatment, 0..5000; -1 means all
inline util::bounded<int, 1, 5000, "dets"> dets{};   // BPM indices present in the data
inline util::bounded<util::fixed_text<16>, 0, 5000, "bpm_names"> bpm_names{};  // by BPM index
inline gains gain{};                    // current gains, button order [-]
inline coefficient_set coefficients{};  // Am, k, h2, h3 [-]
inline double const_ = 0;               // amplitude of the last fit; 0 before the first
inline double intercept = 0;            // kept for the data files' sake; not used
inline double weight = 0;               // of the gain-normalisation penalty in chi
inline util::bounded2<double, 1, 4, 0, 5000, "arb_gain"> arb_gain{};  // expert multipliers [-]
inline int gain_correct = 0;  // 1 none, 2 pedestal, 3 gain and pedestal; 0 for synthetic data
inline int rd_number = 0;     // current run number
inline util::fixed_text<100> in_file;    // current data file
inline util::fixed_text<100> in_file_0;  // last data file: names the summaries
inline bool expert = false;              // never set by the dialog
inline int nvar = 0;                     // model parameters; 8 while fitting
inline int ind = 0;                      // gain held fixed in the current fit, 1..4
inline int nterms = 0;                   // data points handed to the solver; norbits while fitting

/// Puts every variable above back to its first value. For tests: a session never starts twice.
void reset();

// --- model -------------------------------------------------------------------------------------

/// Step of the central differences: a single-precision literal, widened.
inline constexpr double derivative_step{1e-4F};

/// Signs of the three combinations, by button.
inline constexpr signals spmmp{{+1, -1, -1, +1}};
inline constexpr signals spmpm{{+1, -1, +1, -1}};
inline constexpr signals sppmm{{+1, +1, -1, -1}};

/// The three sign-weighted copies of one reading: Bpmmp(i) = but(i) spmmp(i), and so on.
/// errors   none
void bvecs(const signals& but, combination& Bpmmp, combination& Bpmpm, combination& Bppmm);

/// Residual of one orbit against the model curve,
///     Am (sin(k u) + h2 sin(2 k u) + h3 sin(2 k u)) - Q,   u = X Y.
/// The last sine repeats the doubled argument: h2 and h3 act through their sum only.
///
/// given    param  gains and curve [-]
///          but    the four signals [ADC counts]
/// returns  the residual [-]; 0 for true gains and no noise
/// errors   none: S = 0 gives inf or nan, and the solver then rejects its step
/// note     one common factor on all gains cancels, so a fit must hold one gain fixed
/// source   multipole expansion of the wall charge: dipole terms give X and Y, skew quadrupole Q
double chi1(const parameters& param, const signals& but);

/// Mean square residual of the current BPM over orbits 1..norbits, at `gain` and `coefficients`.
/// returns  in chis the mean; nan without orbits
void chi1_square(double& chis);

/// Derivatives of chi1 by the eight parameters, as central differences with derivative_step.
/// given    iterm  number of the data point (orbit)
/// returns  in dyda the eight derivatives; beyond norbits dyda is left as it was
void derivative1(const parameters& param, const signals& but, derivatives& dyda, int iterm);

/// The model routine for the solver: data point n is orbit n of the current BPM.
/// given    xx    abscissae, not looked at
///          a     the eight parameters
/// returns  yfit  nterms residuals
///          dyda  their derivatives, nterms rows of nvar
/// note     a data point beyond norbits repeats the reading and the derivatives of the one before
void mrqmin_funcs1(std::span<const double> xx, std::span<const double> a, std::span<double> yfit,
                   mrqmin_mod::matrix& dyda);

/// The unnormalised residual that the older data files were made with:
///     (P - (c / current) R T) + weight (G - 1)
/// with P, R, T the sums of gain(i) times Bpmmp(i), Bpmpm(i), Bppmm(i), and G that of gain(i)^2.
/// given    c        amplitude [1/ADC counts]
///          current  beam current of the orbit [mA]
double chi(const gains& gains_in, double c, const signals& but, double current);

/// The gains into the first four parameters, and back; the curve is not touched.
void gain_to_a(const gains& from, parameters& a);
void a_to_gain(gains& to, const parameters& a);

}  // namespace gain_fit_mod
