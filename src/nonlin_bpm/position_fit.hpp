// position_fit: the position fit for each kind of processor, for those who compare.
#pragma once
#include <span>
#include <string_view>
#include <vector>

#include "nonlin_bpm_mod.hpp"

namespace nonlin_bpm_mod {

/// Instruction sets that there is a form of the fit for and that this machine has; the last one is
/// what fit_positions takes.
std::vector<std::string_view> position_instruction_sets();

/// As fit_positions, with the form for one of these instruction sets ("generic" for an unknown
/// one): the same bits.
void fit_positions_with(std::string_view instruction_set, const table_struct& table,
                        const calib_struct& calib, std::span<const button_signals> but_in,
                        std::span<position> x, std::span<double> chi2_out);

}  // namespace nonlin_bpm_mod
