// gain_batch: the sums that the gain fit asks for, over all orbits of one BPM at once.
//
// What chi1 and derivative1 say for one orbit is computed here for many, to fit the solver's two
// questions: the sum of squares at a point (every trial), and curvature matrix and gradient (only
// where a trial was accepted, only for free parameters). Several orbits go through the processor
// side by side; the sums run in the order of the orbits. Different from the literal form:
//
//   total        1/S is taken once and multiplied with; chi1 divides each signal.
//   sines        our own (sine_pair.hpp), so that results do not depend on the machine.
//   derivatives  of gains and argument scale: the same central difference, d = derivative_step, in
//                closed form. With e = d b_i / S and the signs s of its button, gain i gives
//                    Q+ - Q- = 2 e (sQ - Q) / (1 - e^2)
//                    u+-     = (u + e^2 sX sY +- e (sY X + sX Y)) / (1 +- e)^2
//                    sin k u+ - sin k u- = 2 cos(k (u+ + u-)/2) sin(k (u+ - u-)/2)
//                and the last angle is so small that two terms of its sine serve. One sine and one
//                cosine per orbit then do for all. Where e or that angle is not small, the orbit's
//                derivatives come from stepped residuals. Amplitude and weights are always
//                stepped: rounding alone tells their columns apart.
//
// Held to the literal form by a test: gains 1e-9, coefficients 1e-6, chi-square 1e-5 (relative).
// The same bits on every machine, from every compiler and at every optimisation level.
#pragma once
#include <string_view>
#include <vector>

#include "mrqmin.hpp"

namespace gain_fit_mod {

/// Copies the signals of orbits 1..norbits of BPM `bpm` out of the store, for the sums below. They
/// stay until the next call.
void load_batch();

/// The sums over the loaded orbits: what the solver needs of the model.
extern const mrqmin_mod::residual_sums batch_sums;

/// Instruction sets that there are kernels for and that this machine has; the last one is used.
std::vector<std::string_view> instruction_sets();
/// Uses another one, for tests and benches; nothing changes for a name that is not in the list.
void use_instruction_set(std::string_view name);

}  // namespace gain_fit_mod
