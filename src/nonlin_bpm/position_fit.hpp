// position_fit: the form of the position fit that every processor can run, for those who compare.
#pragma once
#include <span>

#include "nonlin_bpm_mod.hpp"

namespace nonlin_bpm_mod {

/// As fit_positions, with two lanes whatever the processor: the same bits.
void fit_positions_narrow(const table_struct& table, const calib_struct& calib,
                          std::span<const button_signals> but_in, std::span<position> x,
                          std::span<double> chi2_out);

}  // namespace nonlin_bpm_mod
