// gain_batch: the sums that the gain fit asks for, over all orbits of one BPM at once.
//
// What chi1 and its derivatives say for one orbit is computed here for many, to fit the solver's two
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
//   trials       keep their combinations and sines, which the derivatives of an accepted one share.
//
// Held to the literal form by a test: gains 1e-9, coefficients 1e-6, chi-square 1e-5 (relative).
// The same bits on every machine, from every compiler and at every optimisation level.
#pragma once
#include <span>
#include <string_view>
#include <vector>

#include "gain_batch_kernel.hpp"
#include "gain_model.hpp"

namespace gain_fit_mod {

/// The signals of one BPM's orbits, laid out for the kernels, and the kernels to be used on them.
/// Read only once it is made: safe on several threads.
struct signal_batch {
  signal_batch() = default;
  signal_batch(signal_batch&&) = default;  // the views stay good: the memory moves along
  signal_batch& operator=(signal_batch&&) = default;
  signal_batch(const signal_batch&) = delete;
  signal_batch& operator=(const signal_batch&) = delete;
  ~signal_batch() = default;

  std::vector<double> copied;      ///< button after button, each column from a cache line's start
  signal_columns columns{};        ///< views of the above; they move with it but are not copied
  const batch_kernels* kernels{};  ///< of one instruction set
};

/// Lays out the signals of all orbits.
/// given    readings         one a orbit [ADC counts]
///          instruction_set  one of instruction_sets(); empty, or unknown here: the best
signal_batch make_batch(std::span<const signals> readings, std::string_view instruction_set = {});

/// What the last trial found, kept for the derivatives that follow when it is accepted. One for each
/// fit that is under way; it may be used on batch after batch.
struct trial_values {
  std::vector<double> memory;
  std::vector<unsigned char> far;
  trial_columns columns{};  ///< views of the above
};

/// Sum of squares of the residuals at a (8 parameters).
/// returns  found  what product_sums_at needs
double chi_square(const signal_batch& batch, std::span<const double> a, trial_values& found);

/// Sums over the orbits of the products of the derivatives by the free parameters, in the order of
/// the mask, and (row residual_column) of derivative and minus the residual.
/// given    found  by chi_square on this batch at this a, the last time that it was asked
void product_sums_at(const signal_batch& batch, std::span<const double> a,
                     std::span<const bool> maska, const trial_values& found, product_sums& sums);

/// Instruction sets that there are kernels for and that this machine has; the last one is the best.
std::vector<std::string_view> instruction_sets();

}  // namespace gain_fit_mod
