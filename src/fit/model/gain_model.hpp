// gain_model: the mathematical model that ties the four button signals of one BPM to its four gains.
//
// Buttons 1..4 are BI, BO, TI, TO. With g the gains, b the signals of one orbit and S = sum(g b):
//     X = (g1b1 - g2b2 + g3b3 - g4b4) / S      inner minus outer
//     Y = (g1b1 + g2b2 - g3b3 - g4b4) / S      bottom minus top
//     Q = (g1b1 - g2b2 - g3b3 + g4b4) / S      skew
// In a symmetric chamber Q is, to good accuracy, an odd function of the product XY alone, wherever
// the beam passes; unequal gains break that. The fit moves gains and curve until it holds again.
//
// Everything here works on its arguments alone and is safe on several threads.
#pragma once
#include "bounded.hpp"

namespace gain_fit_mod {

inline constexpr int max_parameters = 8;  ///< gains 1..4, then Am, k, h2, h3

/// Parameters that a fit moves: one of the eight, a gain, is held.
inline constexpr int free_parameters = max_parameters - 1;

using signals = util::bounded<double, 1, 4, "but">;       ///< one orbit [ADC counts]
using parameters = util::bounded<double, 1, 8, "param">;  ///< gains 1..4, then Am, k, h2, h3 [-]
using derivatives = util::bounded<double, 1, 8, "dyda">;  ///< of the residual, by parameter
using gains = util::bounded<double, 1, 4, "gain">;        ///< by button: multipliers g [-]
using coefficient_set = util::bounded<double, 1, 4, "coefficients">;  ///< Am, k, h2, h3 [-]
using combination = util::bounded<double, 1, 4, "bvec">;              ///< signals with signs

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

/// Derivatives of chi1 by the eight parameters, as central differences with derivative_step.
/// errors   none: as chi1
derivatives chi1_derivatives(const parameters& param, const signals& but);

/// An unnormalised residual, which no fit uses; kept for compatibility:
///     (P - (c / current) R T) + weight (G - 1)
/// with P, R, T the sums of gain(i) times Bpmmp(i), Bpmpm(i), Bppmm(i), and G that of gain(i)^2.
/// given    c        amplitude [1/ADC counts]
///          current  beam current of the orbit [mA]
///          weight   of the gain-normalisation penalty [-]
double unnormalised_residual(const gains& gain, double c, const signals& but, double current,
                             double weight);

/// Gains and curve side by side, as the model takes them.
parameters parameters_of(const gains& gain, const coefficient_set& coefficients);

/// The gains into the first four parameters, and back; the curve is not touched.
void gain_to_a(const gains& from, parameters& a);
void a_to_gain(gains& to, const parameters& a);

}  // namespace gain_fit_mod
