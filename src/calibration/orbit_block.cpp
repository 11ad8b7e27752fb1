#include "orbit_block.hpp"

#include <algorithm>
#include <cmath>

#include "cell_kernel.hpp"

namespace calibration {
namespace {

// How a harmonic acts on the four buttons: alike, as the beam moves outward, upward, or along the
// diagonal from BI to TO.
constexpr std::array<std::array<double, 4>, 4> button_sign{
    {{1, 1, 1, 1}, {-1, 1, -1, 1}, {-1, -1, 1, 1}, {1, -1, -1, 1}}};
constexpr std::size_t alike = 0, outward = 1, upward = 2, diagonal = 3;
constexpr std::array<std::size_t, n_h> harmonic_sign{outward, upward, alike,    diagonal, outward,
                                                     upward,  alike,  diagonal, outward,  upward};

// The harmonic polynomials, or their slopes, at one place.
using polynomials = std::array<double, n_h>;

// Columns of the gain unknowns: left against right, bottom against top, one diagonal against the
// other. The fourth, all alike, is the intensity's.
constexpr std::array<std::array<double, 4>, n_z> gain_direction{
    {{0.5, -0.5, 0.5, -0.5}, {0.5, 0.5, -0.5, -0.5}, {0.5, -0.5, -0.5, 0.5}}};

// The table gives signals that add up to 1 at the centre; the model's have mean 1.
constexpr double phi_scale = 4;
// Bounds on one step: of an orbit's ln intensity, and of the course against the measured intensity,
// whose exponential would otherwise let a bad course drown all other rows.
constexpr double largest_log_step = 0.3;
constexpr double largest_course_step = 2;
constexpr int max_halvings = 4;

// Logarithms as unknowns: no step can make a gain negative, and a step is a relative one.
std::array<double, 4> gains_of(const common_unknowns& unknowns) {
  std::array<double, 4> t = log_gains(unknowns.value.data());
  for (double& gain : t) gain = std::exp(gain);
  return t;
}

// Value and slopes of the four buttons; phi has mean 1 at the centre.
struct block_cells {
  button_columns phi, dx, dy;
};

// Value and slopes at the places; every place is one that was usable before.
void look_up(const orbit_block& block, const table_struct& table, block_cells& cells) {
  nonlin_bpm_mod::cell_values at{};
  for (std::size_t j = 0; j < block_size; ++j) {
    nonlin_bpm_mod::evaluate_cell<false>(table, block.x[j], block.y[j], at);
    for (std::size_t k = 0; k < 4; ++k) {
      cells.phi[k][j] = phi_scale * at.phi[static_cast<int>(k)];
      cells.dx[k][j] = phi_scale * at.dx[static_cast<int>(k)];
      cells.dy[k][j] = phi_scale * at.dy[static_cast<int>(k)];
    }
  }
}

// One orbit's three columns, made orthonormal; u is the vector of their 3 x 3 minors.
struct directions {
  std::array<double, 4> e1, e2, v, u;
  double n1, n2, n3, r12, r13, r23;
};

inline double dot(const std::array<double, 4>& a, const std::array<double, 4>& b) {
  // Two pairs instead of a chain: shorter to wait for, and the order is fixed by the brackets.
  return (a[0] * b[0] + a[1] * b[1]) + (a[2] * b[2] + a[3] * b[3]);
}

// Places first, intensity last: so v is free of what a place can explain, and e1 and e2 need no
// knowledge of the intensity. One pass does: on the axis the three are at right angles anyway.
inline void orthonormalise(directions& d) {
  d.n1 = std::sqrt(dot(d.e1, d.e1));
  for (double& e : d.e1) e /= d.n1;
  d.r12 = dot(d.e1, d.e2);
  for (std::size_t k = 0; k < 4; ++k) d.e2[k] -= d.r12 * d.e1[k];
  d.n2 = std::sqrt(dot(d.e2, d.e2));
  for (double& e : d.e2) e /= d.n2;
  d.r13 = dot(d.e1, d.v);
  d.r23 = dot(d.e2, d.v);
  for (std::size_t k = 0; k < 4; ++k) d.v[k] -= d.r13 * d.e1[k] + d.r23 * d.e2[k];
  d.n3 = std::sqrt(dot(d.v, d.v));
  for (double& e : d.v) e /= d.n3;
  // The six 2 x 2 minors of e2 and v serve all four components.
  const auto& [a0, a1, a2, a3] = d.e1;
  const auto& [b0, b1, b2, b3] = d.e2;
  const auto& [c0, c1, c2, c3] = d.v;
  const double m01 = b0 * c1 - b1 * c0, m02 = b0 * c2 - b2 * c0, m03 = b0 * c3 - b3 * c0;
  const double m12 = b1 * c2 - b2 * c1, m13 = b1 * c3 - b3 * c1, m23 = b2 * c3 - b3 * c2;
  d.u[0] = a1 * m23 - a2 * m13 + a3 * m12;
  d.u[1] = -(a0 * m23 - a2 * m03 + a3 * m02);
  d.u[2] = a0 * m13 - a1 * m03 + a3 * m01;
  d.u[3] = -(a0 * m12 - a1 * m02 + a2 * m01);
}

// Real and imaginary parts of (X + iY)^n, n = 1..5: solutions of Laplace's equation, as any small
// change of the wall's potential inside it must be.
inline polynomials harmonics(double X, double Y) {
  const double XX = X * X, YY = Y * Y, XY = X * Y;
  const double fourth = XX * XX - 6 * XX * YY + YY * YY, diagonal_fourth = 4 * XY * (XX - YY);
  return {X,
          Y,
          XX - YY,
          2 * XY,
          X * (XX - 3 * YY),
          Y * (3 * XX - YY),
          fourth,
          diagonal_fourth,
          X * fourth - Y * diagonal_fourth,
          Y * fourth + X * diagonal_fourth};
}

inline polynomials harmonics_by_x(double X, double Y) {
  const double XX = X * X, YY = Y * Y, XY = X * Y;
  return {1,
          0,
          2 * X,
          2 * Y,
          3 * (XX - YY),
          6 * XY,
          4 * X * (XX - 3 * YY),
          4 * Y * (3 * XX - YY),
          5 * (XX * XX - 6 * XX * YY + YY * YY),
          20 * XY * (XX - YY)};
}

inline polynomials harmonics_by_y(double X, double Y) {
  const double XX = X * X, YY = Y * Y, XY = X * Y;
  return {0,
          1,
          -2 * Y,
          2 * X,
          -6 * XY,
          3 * (XX - YY),
          -4 * Y * (3 * XX - YY),
          4 * X * (XX - 3 * YY),
          -20 * XY * (XX - YY),
          5 * (XX * XX - 6 * XX * YY + YY * YY)};
}

// What the harmonics h add to the four buttons.
inline std::array<double, 4> allowance(const double* h, const polynomials& f) {
  std::array<double, 4> part{};
  for (std::size_t i = 0; i < n_h; ++i) part[harmonic_sign[i]] += h[i] * f[i];
  std::array<double, 4> sum{};
  for (std::size_t k = 0; k < 4; ++k) {
    sum[k] = (part[0] + button_sign[1][k] * part[1]) +
             (button_sign[2][k] * part[2] + button_sign[3][k] * part[3]);
  }
  return sum;
}

// G of one orbit seen along one direction: gains, pedestals, harmonics. scale is a button's signal
// for phi = 1, m its signal.
inline void local_rows(const std::array<double, 4>& along, const std::array<double, 4>& m,
                       const std::array<double, 4>& scale, const polynomials& f, double keep,
                       column* rows, std::size_t j) {
  for (std::size_t i = 0; i < n_z; ++i) {
    const auto& s = gain_direction[i];
    rows[i][j] = keep * ((along[0] * m[0] * s[0] + along[1] * m[1] * s[1]) +
                         (along[2] * m[2] * s[2] + along[3] * m[3] * s[3]));
  }
  for (std::size_t k = 0; k < n_p; ++k) rows[first_p + k][j] = keep * along[k];
  // Ten harmonics share four sign patterns: their sums over the buttons are made once.
  std::array<double, 4> by_sign{};
  for (std::size_t i = 0; i < 4; ++i) {
    for (std::size_t k = 0; k < 4; ++k) by_sign[i] += along[k] * scale[k] * button_sign[i][k];
  }
  for (std::size_t i = 0; i < n_h; ++i) {
    rows[first_h + i][j] = keep * by_sign[harmonic_sign[i]] * f[i];
  }
}

// Rows of v. The intensity in them is that of the smooth course, not the measured one: a row that
// grew with its own residual would pull gains and pedestals whenever the current jitters.
inline void steady_rows(const orbit_block& block, const common_unknowns& unknowns,
                        std::size_t n_trend_used, const directions& d,
                        const std::array<double, 4>& m, const std::array<double, 4>& scale,
                        const polynomials& f, double& v_r, block_rows& rows, std::size_t j) {
  const auto& trend = unknowns.trend[block.set];
  double model = unknowns.value[first_l] * block.X[j] + unknowns.value[first_l + 1] * block.Y[j];
  for (std::size_t i = 0; i < n_trend_used; ++i) model += trend[i] * block.time[i][j];
  const double smooth =
      std::exp(std::clamp(model - block.L[j], -largest_course_step, largest_course_step));

  const double keep = block.keep_v[j];
  local_rows(d.v, m, scale, f, keep * smooth, rows.v.data(), j);
  for (std::size_t k = 0; k < n_p; ++k) rows.v[first_p + k][j] = keep * d.v[k];
  const double weight = keep * d.n3 * smooth;
  rows.v[first_l][j] = weight * block.X[j];
  rows.v[first_l + 1][j] = weight * block.Y[j];
  for (std::size_t i = 0; i < n_trend_used; ++i) {
    rows.v[n_common + i][j] = weight * block.time[i][j];
  }
  // n3 (L - L_model) to first order, written with the ratio that scales the row beside it: residual
  // and slopes then belong to the same point.
  v_r += d.n3 * (1 - smooth);
  rows.v[n_v_rows - 1][j] = keep * v_r;
}

}  // namespace

std::array<double, 4> log_gains(const double* z) {
  std::array<double, 4> log_t{};
  for (std::size_t i = 0; i < n_z; ++i) {
    for (std::size_t k = 0; k < 4; ++k) log_t[k] += z[i] * gain_direction[i][k];
  }
  return log_t;
}

void fill_rows(orbit_block& block, const model_setting& setting, const common_unknowns& unknowns,
               block_rows& rows) {
  block_cells cells;
  look_up(block, *setting.table, cells);
  const std::array<double, 4> t = gains_of(unknowns);
  const double* const p = unknowns.value.data() + first_p;
  const double* const h = unknowns.value.data() + first_h;
  for (std::size_t j = 0; j < block_size; ++j) block.intensity[j] = std::exp(block.L[j]);
  for (std::size_t j = 0; j < block_size; ++j) {
    const double X = block.x[j] / setting.R0;
    const double Y = block.y[j] / setting.R0;
    const polynomials f = harmonics(X, Y);
    const auto added = allowance(h, f);
    const auto added_dx = allowance(h, harmonics_by_x(X, Y));
    const auto added_dy = allowance(h, harmonics_by_y(X, Y));
    directions d;
    std::array<double, 4> r, m, scale;
    for (std::size_t k = 0; k < 4; ++k) {
      scale[k] = t[k] * block.intensity[j];
      m[k] = scale[k] * (cells.phi[k][j] + added[k]);
      d.e1[k] = scale[k] * (cells.dx[k][j] + added_dx[k] / setting.R0);
      d.e2[k] = scale[k] * (cells.dy[k][j] + added_dy[k] / setting.R0);
      d.v[k] = m[k];
      r[k] = block.b[k][j] - m[k] - p[k];
    }
    orthonormalise(d);
    for (std::size_t k = 0; k < 4; ++k) {
      block.e1[k][j] = d.e1[k];
      block.e2[k][j] = d.e2[k];
      block.v[k][j] = d.v[k];
      block.r[k][j] = r[k];
      block.m[k][j] = m[k];
    }
    block.n1[j] = d.n1;
    block.n2[j] = d.n2;
    block.n3[j] = d.n3;
    block.r12[j] = d.r12;
    block.r13[j] = d.r13;
    block.r23[j] = d.r23;
    block.X[j] = X;
    block.Y[j] = Y;
    block.ur[j] = dot(d.u, r);
    block.vr[j] = dot(d.v, r);
    block.pair_v[j] = block.keep_v[j];
    local_rows(d.u, m, scale, f, block.keep_u[j], rows.u.data(), j);
    rows.u[n_u_rows - 1][j] = block.keep_u[j] * block.ur[j];
    if (!setting.steady) continue;
    steady_rows(block, unknowns, setting.n_trend, d, m, scale, f, block.vr[j], rows, j);
  }
}

void take_differences(orbit_block& block, block_rows& rows, orbit_before& before) {
  // A difference of two independent values over sqrt(2) has the variance of one: the weights of the
  // v-rows need not know which of the two they weigh.
  const double half = std::sqrt(0.5);
  if (before.set != block.set) before = {};
  before.set = block.set;
  for (std::size_t j = 0; j < block.count; ++j) {
    const double keep = block.keep_v[j];
    // The rows of an orbit that is left out are zeros, but a difference with it would be its
    // neighbour.
    const double both = keep * before.keep * half;
    for (std::size_t i = 0; i < n_v_rows; ++i) {
      const double now = rows.v[i][j];
      rows.v[i][j] = both * (now - before.row[i]);
      before.row[i] = now;
    }
    const double now = block.vr[j];
    block.vr[j] = before.any ? half * (now - before.vr) : 0;
    before.vr = now;
    before.keep = keep;
    before.any = true;
    block.pair_v[j] = both > 0 ? 1 : 0;
  }
  // The padding would otherwise pair the last orbit with its own copies.
  for (std::size_t j = block.count; j < block_size; ++j) {
    block.pair_v[j] = 0;
    for (column& row : rows.v) row[j] = 0;
  }
}

void follow(orbit_block& block, const model_setting& setting, const common_unknowns& unknowns,
            const common_step& step) {
  const std::array<double, 4> t = gains_of(unknowns);
  const std::array<double, 4> d_log_t = log_gains(step.by.value.data());
  const auto& d = step.by.value;
  for (std::size_t j = 0; j < block_size; ++j) {
    // What is left of the residual after the common step, seen along the orbit's own directions.
    const auto bend = allowance(d.data() + first_h, harmonics(block.X[j], block.Y[j]));
    double along_1 = 0, along_2 = 0, along_v = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      const double left = block.r[k][j] - block.m[k][j] * d_log_t[k] - d[first_p + k] -
                          block.intensity[j] * t[k] * bend[k];
      along_1 += block.e1[k][j] * left;
      along_2 += block.e2[k][j] * left;
      along_v += block.v[k][j] * left;
    }
    double dL = along_v / block.n3[j];
    // An orbit whose intensity was left out is not on the course: held there, its place would be
    // wrong, and with it what its u says.
    if (setting.steady && !setting.differences && block.keep_v[j] != 0) {
      // With differences there is no course to hold on to: a walk may be anywhere, so what is
      // measured stands alone.
      // Mean of the measured intensity and of the smooth course, each as far as it is known.
      double model = (unknowns.value[first_l] + d[first_l]) * block.X[j] +
                     (unknowns.value[first_l + 1] + d[first_l + 1]) * block.Y[j];
      for (std::size_t i = 0; i < setting.n_trend; ++i) {
        model += (unknowns.trend[block.set][i] + step.by.trend[block.set][i]) * block.time[i][j];
      }
      const double measured_variance = step.sigma2 / (block.n3[j] * block.n3[j]);
      dL = (dL * step.prior_variance + (model - block.L[j]) * measured_variance) /
           (step.prior_variance + measured_variance);
    }
    dL = std::clamp(dL, -largest_log_step, largest_log_step);
    // Backwards through the triangle: dL is known, then y, then x. A dL that was drawn or clamped
    // above moves the place with it, which is why it comes first.
    const double dy = (along_2 - block.r23[j] * dL) / block.n2[j];
    const double dx = (along_1 - block.r12[j] * dy - block.r13[j] * dL) / block.n1[j];

    double part = std::min(1.0, step.place_limit / std::max(std::abs(dx), std::abs(dy)));
    block.at_edge[j] = 0;
    // The table ends somewhere, and nothing is known of phi beyond: a place that would leave it
    // goes as far as halving lets it, and the orbit is remembered.
    int halvings = 0;
    while (
        halvings <= max_halvings &&
        !nonlin_bpm_mod::has_data(*setting.table, block.x[j] + part * dx, block.y[j] + part * dy)) {
      block.at_edge[j] = 1;
      part /= 2;
      ++halvings;
    }
    if (halvings > max_halvings) part = 0;
    block.x[j] += part * dx;
    block.y[j] += part * dy;
    block.L[j] += dL;
  }
}

}  // namespace calibration
