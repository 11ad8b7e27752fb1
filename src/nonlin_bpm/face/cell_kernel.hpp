// The one cell kernel: value and derivatives of the four buttons at one place, four lanes at once.
// The public interpolation is this kernel with second derivatives, the position fit takes it
// without; both therefore give the same values and slopes, bit for bit.
#pragma once
#include <algorithm>
#include <cstddef>
#include <vector>

#include "lookup_table.hpp"

namespace nonlin_bpm_mod {

struct cell_values {
  four phi, dx, dy;  ///< value and slopes [1, 1/m]
};
struct cell_curvatures {
  four xx, yy, xy;  ///< second derivatives [1/m^2]
};

/// `locate` for equal steps: looks first where the value should be. The walk that follows makes
/// the answer the same, whatever the rounding of the guess.
inline int locate_equal(const std::vector<double>& table, double per_step, double value) {
  if (table.empty() || !(value >= table.front())) return 0;
  const std::size_t n = table.size();
  if (value >= table.back()) return static_cast<int>(n);
  std::size_t i = std::min(static_cast<std::size_t>((value - table.front()) * per_step), n - 1);
  while (value < table[i]) --i;
  while (value >= table[i + 1]) ++i;
  return static_cast<int>(i) + 1;
}

/// The bicubic polynomials of a cell at (t, u), and their derivatives by t and u when asked for.
/// given    c  c(i, to) fetches coefficient number i of the buttons, of one cell or of several
///          t, u  for all lanes, or lane by lane
template <bool with_slopes, class wide, class coefficients, class place>
[[gnu::always_inline]] inline void cell_polynomials(const coefficients& c, const place& t,
                                                    const place& u, wide& p, wide& p_t, wide& p_u) {
  p = wide{};
  if constexpr (with_slopes) p_t = p_u = wide{};
  for (std::size_t i = 4; i-- > 0;) {
    wide c1, c2, c3, c4;
    c(4 * i, c1);
    c(4 * i + 1, c2);
    c(4 * i + 2, c3);
    c(4 * i + 3, c4);
    p = t * p + ((c4 * u + c3) * u + c2) * u + c1;
    if constexpr (with_slopes) {
      wide r2, r3, r4;
      c(4 + i, r2);
      c(8 + i, r3);
      c(12 + i, r4);
      p_u = t * p_u + ((3 * c4 * u + 2 * c3) * u + c2);
      p_t = u * p_t + (3 * r4 * t + 2 * r3) * t + r2;
    }
  }
}

/// Second derivatives of the same, by t twice, u twice, and both.
[[gnu::always_inline]] inline void cell_second(const lanes* c, double t, double u, four& p_tt,
                                               four& p_uu, four& p_tu) {
  p_tt = p_uu = p_tu = four{};
  for (std::size_t i = 4; i-- > 0;) {
    const four &c2 = c[4 * i + 1].v, &c3 = c[4 * i + 2].v, &c4 = c[4 * i + 3].v;
    const four &r3 = c[8 + i].v, &r4 = c[12 + i].v;
    p_uu = t * p_uu + 6 * c4 * u + 2 * c3;
    p_tt = u * p_tt + 6 * r4 * t + 2 * r3;
    if (i > 0) p_tu = t * p_tu + static_cast<double>(i) * ((3 * c4 * u + 2 * c3) * u + c2);
  }
}

/// Evaluates one place. Second derivatives are worked out only when asked for.
/// returns  false outside the table or on its last lines; the outputs are then as they were
template <bool with_second>
inline bool evaluate_cell(const table_struct& table, double x1, double x2, cell_values& value,
                          cell_curvatures* second = nullptr) {
  const int ix = locate_equal(table.x.item, table.x_per_step, x1);
  const int iy = locate_equal(table.y.item, table.y_per_step, x2);
  if (ix == 0 || iy == 0 || ix == table.grid.nx || iy == table.grid.ny) return false;
  // From here on both subscripts and their successors are inside.
  const double* const x = table.x.item.data() + (ix - 1);
  const double* const y = table.y.item.data() + (iy - 1);
  const double hx = x[1] - x[0];
  const double hy = y[1] - y[0];
  const double t = (x1 - x[0]) / hx;
  const double u = (x2 - y[0]) / hy;
  const lanes* const cell = table.grid.item[table.grid.offset(ix, iy)].b.c.data();

  four p_t, p_u;
  cell_polynomials<true>([cell](std::size_t i, four& to) { to = cell[i].v; }, t, u, value.phi, p_t,
                         p_u);
  value.dx = p_t / hx;
  value.dy = p_u / hy;
  if constexpr (with_second) {
    four p_tt, p_uu, p_tu;
    cell_second(cell, t, u, p_tt, p_uu, p_tu);
    second->xx = p_tt / (hx * hx);
    second->yy = p_uu / (hy * hy);
    second->xy = p_tu / (hx * hy);
  }
  return true;
}

/// Whether (x1, x2) lies in a cell with data: what evaluate_cell then gives is a beam's signals.
/// given    table  any table; nothing else is read
inline bool has_data(const table_struct& table, double x1, double x2) {
  const int ix = locate_equal(table.x.item, table.x_per_step, x1);
  const int iy = locate_equal(table.y.item, table.y_per_step, x2);
  if (ix == 0 || iy == 0 || ix == table.grid.nx || iy == table.grid.ny) return false;
  // The first coefficient is the signal at the cell's corner, 0 in a cell without data.
  return table.grid.item[table.grid.offset(ix, iy)].b.c[0].v[0] > 0;
}

}  // namespace nonlin_bpm_mod
