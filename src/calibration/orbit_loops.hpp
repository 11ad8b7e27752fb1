// The loops over the orbits of one block, written once as plain loops over columns. The compiler
// turns them into two, four or eight orbits at a time, as the function that they are inlined into
// may use; every orbit gets the bits that it would get alone, for nothing here is summed over
// orbits but in add_triangle, whose order is fixed.
//
// Short loops, so that several rounds of each are under way at once; what one leaves to the next
// stands in columns that stay in the first-level cache.
#pragma once
#include <algorithm>
#include <cmath>
#include <span>

#include "cell_kernel.hpp"
#include "exponential.hpp"
#include "orbit_block.hpp"

namespace calibration {

// How a harmonic acts on the four buttons: alike, as the beam moves outward, upward, or along the
// diagonal from BI to TO.
inline constexpr std::array<std::array<double, 4>, 4> button_sign{
    {{1, 1, 1, 1}, {-1, 1, -1, 1}, {-1, -1, 1, 1}, {1, -1, -1, 1}}};
inline constexpr std::size_t alike = 0, outward = 1, upward = 2, diagonal = 3;
inline constexpr std::array<std::size_t, n_h> harmonic_sign{
    outward, upward, alike, diagonal, outward, upward, alike, diagonal, outward, upward};

// The table gives signals that add up to 1 at the centre; the model's have mean 1.
inline constexpr double phi_scale = 4;
// Bounds on one step: of an orbit's ln intensity, and of the course against the measured intensity,
// whose exponential would otherwise let a bad course drown all other rows.
inline constexpr double largest_log_step = 0.3;
inline constexpr double largest_course_step = 2;
inline constexpr int max_halvings = 4;

using harmonic_columns = std::array<column, n_h>;

// Logarithms as unknowns: no step can make a gain negative, and a step is a relative one.
inline std::array<double, 4> gains_of(const common_unknowns& unknowns) {
  std::array<double, 4> t = log_gains(unknowns.value.data());
  for (double& gain : t) gain = exponential(gain);
  return t;
}

// --- the model ----------------------------------------------------------------------------------

// Real and imaginary parts of (X + iY)^n, n = 1..5: solutions of Laplace's equation, as any small
// change of the wall's potential inside it must be.
inline void harmonics(const column& X, const column& Y, harmonic_columns& f) {
  f[0] = X;
  f[1] = Y;
  for (std::size_t i = 2; i < n_h; i += 2) {
    for (std::size_t j = 0; j < block_size; ++j) {
      f[i][j] = f[i - 2][j] * X[j] - f[i - 1][j] * Y[j];
      f[i + 1][j] = f[i - 2][j] * Y[j] + f[i - 1][j] * X[j];
    }
  }
}

// What the harmonics h add to the buttons, for each way to act on the four of them.
inline void add_harmonics(const double* h, const harmonic_columns& f, button_columns& part) {
  for (std::size_t j = 0; j < block_size; ++j) {
    part[alike][j] = h[2] * f[2][j] + h[6] * f[6][j];
    part[diagonal][j] = h[3] * f[3][j] + h[7] * f[7][j];
    part[outward][j] = (h[0] * f[0][j] + h[4] * f[4][j]) + h[8] * f[8][j];
    part[upward][j] = (h[1] * f[1][j] + h[5] * f[5][j]) + h[9] * f[9][j];
  }
}

// Their slopes: n times the power below, for a power's derivative is one.
inline void add_slopes(const double* h, const harmonic_columns& f, button_columns& by_x,
                       button_columns& by_y) {
  for (std::size_t j = 0; j < block_size; ++j) {
    by_x[alike][j] = 2 * h[2] * f[0][j] + 4 * h[6] * f[4][j];
    by_y[alike][j] = -(2 * h[2] * f[1][j] + 4 * h[6] * f[5][j]);
    by_x[diagonal][j] = 2 * h[3] * f[1][j] + 4 * h[7] * f[5][j];
    by_y[diagonal][j] = 2 * h[3] * f[0][j] + 4 * h[7] * f[4][j];
  }
  for (std::size_t j = 0; j < block_size; ++j) {
    by_x[outward][j] = (h[0] + 3 * h[4] * f[2][j]) + 5 * h[8] * f[6][j];
    by_y[outward][j] = -(3 * h[4] * f[3][j] + 5 * h[8] * f[7][j]);
    by_x[upward][j] = 3 * h[5] * f[3][j] + 5 * h[9] * f[7][j];
    by_y[upward][j] = (h[1] + 3 * h[5] * f[2][j]) + 5 * h[9] * f[6][j];
  }
}

// The sum over the four ways, for button k.
inline double for_button(const button_columns& part, std::size_t k, std::size_t j) {
  return (part[0][j] + button_sign[1][k] * part[1][j]) +
         (button_sign[2][k] * part[2][j] + button_sign[3][k] * part[3][j]);
}

// What one loop leaves to the next.
struct loop_columns {
  button_columns phi, dx, dy;  // of the table; phi has mean 1 at the centre
  harmonic_columns f;
  button_columns part, by_x, by_y;
  button_columns scale;  // a button's signal for phi = 1
  button_columns u;
  column factor;
};

// Value and slopes at the places; every place is one that was usable before.
inline void look_up(const orbit_block& block, const table_struct& table, loop_columns& w) {
  nonlin_bpm_mod::cell_values cell{};
  for (std::size_t j = 0; j < block_size; ++j) {
    nonlin_bpm_mod::evaluate_cell<false>(table, block.x[j], block.y[j], cell);
    for (std::size_t k = 0; k < 4; ++k) {
      w.phi[k][j] = cell.phi[static_cast<int>(k)];
      w.dx[k][j] = cell.dx[static_cast<int>(k)];
      w.dy[k][j] = cell.dy[static_cast<int>(k)];
    }
  }
}

// Model, residuals, and the columns d b / d(x, y, L): these go where e1, e2 and v will stand.
inline void model_loop(const orbit_block& block, place_columns& at, double R0,
                       const common_unknowns& unknowns, loop_columns& w) {
  const std::array<double, 4> t = gains_of(unknowns);
  const double* const p = unknowns.value.data() + first_p;
  const double* const h = unknowns.value.data() + first_h;
  const double per_R0 = 1 / R0;
  for (std::size_t j = 0; j < block_size; ++j) {
    at.X[j] = block.x[j] * per_R0;
    at.Y[j] = block.y[j] * per_R0;
    at.intensity[j] = exponential(block.L[j]);
  }
  harmonics(at.X, at.Y, w.f);
  add_harmonics(h, w.f, w.part);
  add_slopes(h, w.f, w.by_x, w.by_y);
  for (std::size_t k = 0; k < 4; ++k) {
    for (std::size_t j = 0; j < block_size; ++j) {
      const double scale = t[k] * at.intensity[j];
      const double m = scale * (phi_scale * w.phi[k][j] + for_button(w.part, k, j));
      w.scale[k][j] = scale;
      at.m[k][j] = at.v[k][j] = m;
      at.r[k][j] = block.b[k][j] - m - p[k];
      at.e1[k][j] = scale * (phi_scale * w.dx[k][j] + for_button(w.by_x, k, j) * per_R0);
      at.e2[k][j] = scale * (phi_scale * w.dy[k][j] + for_button(w.by_y, k, j) * per_R0);
    }
  }
}

// --- directions ---------------------------------------------------------------------------------

inline double dot(const button_columns& a, const button_columns& b, std::size_t j) {
  // Two pairs instead of a chain: shorter to wait for, and the order is fixed by the brackets.
  return (a[0][j] * b[0][j] + a[1][j] * b[1][j]) + (a[2][j] * b[2][j] + a[3][j] * b[3][j]);
}

// Places first, intensity last: so v is free of what a place can explain, and e1 and e2 need no
// knowledge of the intensity. One pass does: on the axis the three are at right angles anyway.
inline void direction_loops(place_columns& at, button_columns& u) {
  button_columns &e1 = at.e1, &e2 = at.e2, &v = at.v;
  for (std::size_t j = 0; j < block_size; ++j) {
    const double n1 = std::sqrt(dot(e1, e1, j)), per_n1 = 1 / n1;
    for (std::size_t k = 0; k < 4; ++k) e1[k][j] *= per_n1;
    const double r12 = dot(e1, e2, j), r13 = dot(e1, v, j);
    for (std::size_t k = 0; k < 4; ++k) e2[k][j] -= r12 * e1[k][j];
    at.n1[j] = n1;
    at.r12[j] = r12;
    at.r13[j] = r13;
  }
  for (std::size_t j = 0; j < block_size; ++j) {
    const double n2 = std::sqrt(dot(e2, e2, j)), per_n2 = 1 / n2;
    for (std::size_t k = 0; k < 4; ++k) e2[k][j] *= per_n2;
    const double r23 = dot(e2, v, j);
    for (std::size_t k = 0; k < 4; ++k) v[k][j] -= at.r13[j] * e1[k][j] + r23 * e2[k][j];
    at.n2[j] = n2;
    at.r23[j] = r23;
  }
  for (std::size_t j = 0; j < block_size; ++j) {
    const double n3 = std::sqrt(dot(v, v, j)), per_n3 = 1 / n3;
    for (std::size_t k = 0; k < 4; ++k) v[k][j] *= per_n3;
    at.n3[j] = n3;
  }
  // u is the vector of their 3 x 3 minors; the six 2 x 2 minors of e2 and v serve all four.
  for (std::size_t j = 0; j < block_size; ++j) {
    const double a0 = e1[0][j], a1 = e1[1][j], a2 = e1[2][j], a3 = e1[3][j];
    const double b0 = e2[0][j], b1 = e2[1][j], b2 = e2[2][j], b3 = e2[3][j];
    const double c0 = v[0][j], c1 = v[1][j], c2 = v[2][j], c3 = v[3][j];
    const double m01 = b0 * c1 - b1 * c0, m02 = b0 * c2 - b2 * c0, m03 = b0 * c3 - b3 * c0;
    const double m12 = b1 * c2 - b2 * c1, m13 = b1 * c3 - b3 * c1, m23 = b2 * c3 - b3 * c2;
    u[0][j] = a1 * m23 - a2 * m13 + a3 * m12;
    u[1][j] = -(a0 * m23 - a2 * m03 + a3 * m02);
    u[2][j] = a0 * m13 - a1 * m03 + a3 * m01;
    u[3][j] = -(a0 * m12 - a1 * m02 + a2 * m01);
  }
}

// --- rows ---------------------------------------------------------------------------------------

// G of the orbits seen along one direction each: gains and harmonics, times factor; pedestals,
// times keep.
inline void local_rows(const button_columns& along, const button_columns& m, const loop_columns& w,
                       const column& factor, const column& keep, column* rows) {
  for (std::size_t j = 0; j < block_size; ++j) {
    const double g0 = along[0][j] * m[0][j], g1 = along[1][j] * m[1][j];
    const double g2 = along[2][j] * m[2][j], g3 = along[3][j] * m[3][j];
    const double half = 0.5 * factor[j];
    rows[0][j] = half * ((g0 - g1) + (g2 - g3));
    rows[1][j] = half * ((g0 + g1) - (g2 + g3));
    rows[2][j] = half * ((g0 - g1) - (g2 - g3));
  }
  for (std::size_t k = 0; k < n_p; ++k) {
    for (std::size_t j = 0; j < block_size; ++j) rows[first_p + k][j] = keep[j] * along[k][j];
  }
  // Ten harmonics share four ways to act on the buttons: those sums are made once.
  for (std::size_t j = 0; j < block_size; ++j) {
    const double g0 = along[0][j] * w.scale[0][j], g1 = along[1][j] * w.scale[1][j];
    const double g2 = along[2][j] * w.scale[2][j], g3 = along[3][j] * w.scale[3][j];
    const double all = factor[j] * ((g0 + g1) + (g2 + g3));
    const double out = factor[j] * ((g1 - g0) + (g3 - g2));
    const double up = factor[j] * ((g2 + g3) - (g0 + g1));
    const double across = factor[j] * ((g0 - g1) + (g3 - g2));
    column* const to = rows + first_h;
    to[0][j] = out * w.f[0][j];
    to[1][j] = up * w.f[1][j];
    to[2][j] = all * w.f[2][j];
    to[3][j] = across * w.f[3][j];
    to[4][j] = out * w.f[4][j];
    to[5][j] = up * w.f[5][j];
    to[6][j] = all * w.f[6][j];
    to[7][j] = across * w.f[7][j];
    to[8][j] = out * w.f[8][j];
    to[9][j] = up * w.f[9][j];
  }
}

// ln intensity of the smooth course and of what follows the position.
inline void course_loop(const orbit_block& block, const place_columns& at, const double* l,
                        const double* trend, std::size_t n_trend_used, column& model) {
  for (std::size_t j = 0; j < block_size; ++j) model[j] = l[0] * at.X[j] + l[1] * at.Y[j];
  for (std::size_t i = 0; i < n_trend_used; ++i) {
    for (std::size_t j = 0; j < block_size; ++j) model[j] += trend[i] * block.time[i][j];
  }
}

// Rows of v. The intensity in them is that of the smooth course, not the measured one: a row that
// grew with its own residual would pull gains and pedestals whenever the current jitters.
inline void steady_rows(const orbit_block& block, place_columns& at,
                        const common_unknowns& unknowns, std::size_t n_trend_used, loop_columns& w,
                        block_rows& rows) {
  column smooth;
  course_loop(block, at, unknowns.value.data() + first_l, unknowns.trend[block.set].data(),
              n_trend_used, smooth);
  for (std::size_t j = 0; j < block_size; ++j) {
    double ahead = smooth[j] - block.L[j];
    ahead = ahead < -largest_course_step ? -largest_course_step : ahead;
    ahead = ahead > largest_course_step ? largest_course_step : ahead;
    smooth[j] = exponential(ahead);
    w.factor[j] = block.keep_v[j] * smooth[j];
  }
  local_rows(at.v, at.m, w, w.factor, block.keep_v, rows.v.data());
  for (std::size_t j = 0; j < block_size; ++j) {
    const double weight = w.factor[j] * at.n3[j];
    rows.v[first_l][j] = weight * at.X[j];
    rows.v[first_l + 1][j] = weight * at.Y[j];
    // n3 (L - L_model) to first order, written with the ratio that scales the row beside it:
    // residual and slopes then belong to the same point.
    at.vr[j] += at.n3[j] * (1 - smooth[j]);
    rows.v[n_v_rows - 1][j] = block.keep_v[j] * at.vr[j];
    w.factor[j] = weight;
  }
  for (std::size_t i = 0; i < n_trend_used; ++i) {
    for (std::size_t j = 0; j < block_size; ++j) {
      rows.v[n_common + i][j] = w.factor[j] * block.time[i][j];
    }
  }
}

inline void fill_loops(orbit_block& block, place_columns& at, const model_setting& setting,
                       const common_unknowns& unknowns, block_rows& rows) {
  loop_columns w;
  look_up(block, *setting.table, w);
  model_loop(block, at, setting.R0, unknowns, w);
  direction_loops(at, w.u);
  local_rows(w.u, at.m, w, block.keep_u, block.keep_u, rows.u.data());
  for (std::size_t j = 0; j < block_size; ++j) {
    block.ur[j] = dot(w.u, at.r, j);
    at.vr[j] = dot(at.v, at.r, j);
    at.pair_v[j] = block.keep_v[j];
    rows.u[n_u_rows - 1][j] = block.keep_u[j] * block.ur[j];
  }
  if (setting.steady) steady_rows(block, at, unknowns, setting.n_trend, w, rows);
}

// --- the orbits' own step -----------------------------------------------------------------------

// Steps of place and ln intensity: what is left of the residuals after the common step, seen along
// the orbits' own directions.
inline void own_step(const orbit_block& block, const place_columns& at,
                     const model_setting& setting, const common_unknowns& unknowns,
                     const common_step& step, column& dx, column& dy, column& dL) {
  const std::array<double, 4> t = gains_of(unknowns);
  const std::array<double, 4> d_log_t = log_gains(step.by.value.data());
  const auto& d = step.by.value;
  harmonic_columns f;
  button_columns bend, left;
  harmonics(at.X, at.Y, f);
  add_harmonics(d.data() + first_h, f, bend);
  for (std::size_t k = 0; k < 4; ++k) {
    for (std::size_t j = 0; j < block_size; ++j) {
      left[k][j] = at.r[k][j] - at.m[k][j] * d_log_t[k] - d[first_p + k] -
                   at.intensity[j] * t[k] * for_button(bend, k, j);
    }
  }
  for (std::size_t j = 0; j < block_size; ++j) dL[j] = dot(at.v, left, j) / at.n3[j];
  if (setting.steady && !setting.differences) {
    // With differences there is no course to hold on to: a walk may be anywhere, so what is measured
    // stands alone.
    std::array<double, n_l> l{};
    for (std::size_t i = 0; i < n_l; ++i) l[i] = unknowns.value[first_l + i] + d[first_l + i];
    std::array<double, n_trend> trend = unknowns.trend[block.set];
    for (std::size_t i = 0; i < n_trend; ++i) trend[i] += step.by.trend[block.set][i];
    column course;
    course_loop(block, at, l.data(), trend.data(), setting.n_trend, course);
    for (std::size_t j = 0; j < block_size; ++j) {
      // Mean of the measured intensity and of the smooth course, each as far as it is known. An
      // orbit whose intensity was left out is not on the course: held there, its place would be
      // wrong, and with it what its u says.
      const double measured_variance = step.sigma2 / (at.n3[j] * at.n3[j]);
      const double mean =
          (dL[j] * step.prior_variance + (course[j] - block.L[j]) * measured_variance) /
          (step.prior_variance + measured_variance);
      dL[j] = block.keep_v[j] != 0 ? mean : dL[j];
    }
  }
  for (std::size_t j = 0; j < block_size; ++j) {
    double by = dL[j];
    by = by < -largest_log_step ? -largest_log_step : by;
    by = by > largest_log_step ? largest_log_step : by;
    dL[j] = by;
    // Backwards through the triangle: dL is known, then y, then x. A dL that was drawn or clamped
    // above moves the place with it, which is why it comes first.
    dy[j] = (dot(at.e2, left, j) - at.r23[j] * by) / at.n2[j];
    dx[j] = (dot(at.e1, left, j) - at.r12[j] * dy[j] - at.r13[j] * by) / at.n1[j];
  }
}

inline void follow_loops(orbit_block& block, const place_columns& at, const model_setting& setting,
                         const common_unknowns& unknowns, const common_step& step) {
  column dx, dy, dL, part;
  own_step(block, at, setting, unknowns, step, dx, dy, dL);
  for (std::size_t j = 0; j < block_size; ++j) {
    const double x = std::abs(dx[j]), y = std::abs(dy[j]);
    const double within = step.place_limit / (x < y ? y : x);
    part[j] = within < 1 ? within : 1;
    block.at_edge[j] = 0;
    block.L[j] += dL[j];
  }
  for (std::size_t j = 0; j < block_size; ++j) {
    // The table ends somewhere, and nothing is known of phi beyond: a place that would leave it
    // goes as far as halving lets it, and the orbit is remembered.
    int halvings = 0;
    while (halvings <= max_halvings &&
           !nonlin_bpm_mod::has_data(*setting.table, block.x[j] + part[j] * dx[j],
                                     block.y[j] + part[j] * dy[j])) {
      block.at_edge[j] = 1;
      part[j] /= 2;
      ++halvings;
    }
    if (halvings > max_halvings) part[j] = 0;
    block.x[j] += part[j] * dx[j];
    block.y[j] += part[j] * dy[j];
  }
}

// --- sums ---------------------------------------------------------------------------------------

// Orbits go to eight partial sums in turn, whatever number of them the processor adds at once, and
// these are added pairwise: the result is the same everywhere.
inline constexpr std::size_t n_partial = 8;

inline double total_of(const std::array<double, n_partial>& l) {
  return ((l[0] + l[4]) + (l[2] + l[6])) + ((l[1] + l[5]) + (l[3] + l[7]));
}

// Adds the products of rows i, i + 1 with rows j, j + 1. Four products at a time: each loaded number
// serves two of them, and four sums do not wait for one another.
template <int width>
inline void add_tile(const column& a0, const column& a1, const column& b0, const column& b1,
                     double* to0, double* to1) {
  typedef double real __attribute__((vector_size(8 * width)));  // NOLINT(modernize-use-using)
  std::array<std::array<double, n_partial>, 4> partial;
  for (std::size_t q = 0; q < n_partial; q += width) {
    real s00{}, s01{}, s10{}, s11{};
    for (std::size_t j = q; j < block_size; j += n_partial) {
      real x0, x1, y0, y1;
      __builtin_memcpy(&x0, a0.data() + j, sizeof x0);
      __builtin_memcpy(&x1, a1.data() + j, sizeof x1);
      __builtin_memcpy(&y0, b0.data() + j, sizeof y0);
      __builtin_memcpy(&y1, b1.data() + j, sizeof y1);
      s00 += x0 * y0;
      s01 += x0 * y1;
      s10 += x1 * y0;
      s11 += x1 * y1;
    }
    __builtin_memcpy(partial[0].data() + q, &s00, sizeof s00);
    __builtin_memcpy(partial[1].data() + q, &s01, sizeof s01);
    __builtin_memcpy(partial[2].data() + q, &s10, sizeof s10);
    __builtin_memcpy(partial[3].data() + q, &s11, sizeof s11);
  }
  to0[0] += total_of(partial[0]);
  to0[1] += total_of(partial[1]);
  to1[0] += total_of(partial[2]);
  to1[1] += total_of(partial[3]);
}

// Symmetric sums: the lower triangle says all, for half of the products. On the diagonal one more
// number is written, which nobody reads.
template <int width, class sums, class rows>
inline void add_triangle(const rows& row, sums& s) {
  static_assert(std::tuple_size_v<rows> % 2 == 0);
  for (std::size_t i = 0; i < row.size(); i += 2) {
    for (std::size_t j = 0; j <= i; j += 2) {
      add_tile<width>(row[i], row[i + 1], row[j], row[j + 1], s.of[i].data() + j,
                      s.of[i + 1].data() + j);
    }
  }
}

template <int width>
inline void add_rectangle(std::span<const column> a, std::span<const column> b, double* sums) {
  for (std::size_t i = 0; i + 1 < a.size(); i += 2) {
    double* const to = sums + i * b.size();
    for (std::size_t j = 0; j + 1 < b.size(); j += 2) {
      add_tile<width>(a[i], a[i + 1], b[j], b[j + 1], to + j, to + b.size() + j);
    }
  }
}

}  // namespace calibration
