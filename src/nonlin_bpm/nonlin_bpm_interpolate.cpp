#include "cell_kernel.hpp"
#include "list_io.hpp"
#include "nonlin_bpm_mod.hpp"
#include "standard_output.hpp"

namespace nonlin_bpm_mod {

// By halves, whatever the spacing; where steps are equal, locate_equal finds the same place sooner.
int locate(const std::vector<double>& table, double value) {
  std::size_t below = 0;
  std::size_t above = table.size() + 1;
  while (above - below > 1) {
    const std::size_t middle = below + (above - below) / 2;
    if (value >= table[middle - 1]) {  // false for a NaN, which so ends at 0
      below = middle;
    } else {
      above = middle;
    }
  }
  return static_cast<int>(below);
}

void nonlin_bpm_interpolate(const position& x, derivatives& d) {
  // Kept for compatibility: a fault of the caller, told and survived.
  if (func_bpm == nullptr) {
    using util::list_line;
    util::print_line(
        list_line().text("nonlin_bpm_interpolate: func_bpm pointer must be assigned before").str());
    util::print_line(list_line().text("                        calling this routine").str());
    return;
  }
  cell_values value;
  cell_curvatures second;
  if (!evaluate_cell<true>(*func_bpm, x(1), x(2), value, &second)) {
    for (auto& button : d.item) button.fill(0);
    return;
  }
  for (int k = 1; k <= 4; ++k) {
    d(k)(0, 0) = value.phi[k - 1];
    d(k)(1, 0) = value.dx[k - 1];
    d(k)(0, 1) = value.dy[k - 1];
    d(k)(2, 0) = second.xx[k - 1];
    d(k)(0, 2) = second.yy[k - 1];
    d(k)(1, 1) = second.xy[k - 1];
    // The scale goes to all nine entries, also to those of higher order, which nobody sets.
    for (double& entry : d(k).item) entry *= x(3);
  }
  // Zero drops the button from every sum that a fit makes of these.
  const int bad = bpm_calib(bpm_index_com).ix_bad_button;
  if (bad != 0) d(bad).fill(0);
}

}  // namespace nonlin_bpm_mod
