// orbit_kernels: the work on one block of orbits and the sums over it, for each instruction set.
// All give the same bits.
#pragma once
#include <span>
#include <string_view>
#include <vector>

#include "normal_system.hpp"
#include "orbit_block.hpp"

namespace calibration {

struct orbit_kernels {
  const char* name;
  /// Fills a block at its places, and the rows for the sums.
  void (*fill_rows)(orbit_block& block, place_columns& at, const model_setting& setting,
                    const common_unknowns& unknowns, block_rows& rows);
  /// Moves the orbits of a block by the step of the common unknowns and their own; `unknowns` are
  /// the values before the step.
  void (*follow)(orbit_block& block, const place_columns& at, const model_setting& setting,
                 const common_unknowns& unknowns, const common_step& step);
  /// Adds the products of the rows of one block.
  void (*add_u)(const block_rows& rows, u_sums& sums);
  void (*add_v)(const block_rows& rows, v_sums& sums);
  /// Adds the products of the columns a with the columns b to a matrix of b.size() columns; both
  /// are even in number.
  void (*add_pairs)(std::span<const column> a, std::span<const column> b, double* sums);
};

/// given    name  one of instruction_sets(); empty, or unknown here: the best
const orbit_kernels& kernels_named(std::string_view name);

/// Instruction sets that there are kernels for and that this machine has; the last one is the best.
std::vector<std::string_view> instruction_sets();

}  // namespace calibration
