// The kernels of gain_batch, written once for any number of lanes: orbits in blocks that stay in
// the first-level cache, in short loops whose operations do not wait for each other.
#pragma once
#include <cstddef>
#include <cstdint>

#include "gain_model.hpp"
#include "lanes.hpp"
#include "sine_pair.hpp"

// Plain arrays and pointers on purpose: a library function that is not inlined would be compiled
// for the file's instruction set, and the linker might take that copy for the whole program.
// NOLINTBEGIN(modernize-avoid-c-arrays)
namespace gain_fit_mod {

/// Signals of all orbits, button by button. Each column goes on beyond the last orbit to a whole
/// number of max_lanes, repeating it there.
struct signal_columns {
  const double* b1;
  const double* b2;
  const double* b3;
  const double* b4;
  std::size_t n;
};

/// What the last trial found, orbit by orbit: columns as long as those of the signals. The
/// derivatives of a trial that was accepted begin with it.
struct trial_columns {
  double* inverse_total;
  double* X;
  double* Y;
  double* Q;
  double* s;  // sine and cosine of what remains of the angle after quarter turns
  double* c;
  double* turns;       // their number, as bits
  unsigned char* far;  // 1 for a block that holds an angle too large for the sines' short way
};

inline constexpr std::size_t max_lanes = 4;
inline constexpr std::size_t block_size = 128;
inline constexpr int residual_column = 7;  ///< where a row of derivatives holds minus the residual

/// Sums over the orbits of products of two derivatives: those of the free parameters in their order
/// from 0 on, and residual_column. Symmetric.
struct product_sums {
  double of[8][8];
};

/// Which derivatives are wanted: parameter numbers from 0, n of them.
struct free_list {
  int parameter[8];
  int n;
};

/// The kernels of one instruction set.
struct batch_kernels {
  const char* name;
  double (*chi_square)(const double* a, const signal_columns& d, const trial_columns& found);
  // given    found  by chi_square at this a
  void (*products)(const double* a, const signal_columns& d, const trial_columns& found,
                   const free_list& free, product_sums& sums);
};
extern const batch_kernels generic_kernels;  ///< what every processor of the family has
extern const batch_kernels avx2_kernels;     ///< x86-64 with AVX2

/// Residual and its derivatives of one orbit at any parameters: the residual's own formula with our
/// sines, stepped forth and back. The kernels come here where their short forms do not hold.
double stepped_residual(const double* a, const signal_columns& d, std::size_t orbit);
double stepped_derivative(const double* a, const signal_columns& d, std::size_t orbit,
                          int parameter);

// Largest squares of e and of the small angle for which the closed form is taken: what it leaves
// out is then below 1e-12 of a derivative, less than rounding leaves of the literal form.
inline constexpr double small_step = 1e-7;
inline constexpr double small_angle = 2.5e-6;

/// Intermediate results of one block of orbits.
struct block_work {
  const double* inverse_total;                // of the block's orbits, as the trial found it
  const double* Q;                            // likewise
  alignas(32) double sum[block_size];         // X + Y
  alignas(32) double difference[block_size];  // X - Y
  alignas(32) double u[block_size];
  alignas(32) double sin1[block_size];
  alignas(32) double sin2[block_size];
  // With c = cos a, c2 = cos 2a and so on, and h the sum of both weights, these times Am k:
  alignas(32) double slope[block_size];      // c + 2 h c2, the curve's derivative
  alignas(32) double bend[block_size];       // k (s + 4 h s2)
  alignas(32) double third[block_size];      // k^2 (c + 8 h c2) / 6
  alignas(32) double column[8][block_size];  // derivatives by parameter
  alignas(32) double minus_residual[block_size];
};

template <int width>
struct gain_kernels {
  using l = lanes<width>;
  using real = typename l::real;
  using bits = typename l::bits;

  struct combined {
    real inverse_total, X, Y, Q;
  };
  static combined combine(const double* a, const signal_columns& d, std::size_t orbit) {
    const real p1 = a[0] * l::load(d.b1 + orbit);
    const real p2 = a[1] * l::load(d.b2 + orbit);
    const real p3 = a[2] * l::load(d.b3 + orbit);
    const real p4 = a[3] * l::load(d.b4 + orbit);
    const real inverse_total = 1.0 / (((p1 + p2) + p3) + p4);
    const real minus = p1 - p2;
    return {inverse_total, ((minus + p3) - p4) * inverse_total,
            (((p1 + p2) - p3) - p4) * inverse_total, ((minus - p3) + p4) * inverse_total};
  }

  static real residual(const double* a, real sin1, real sin2, real Q) {
    return a[4] * ((sin1 + a[6] * sin2) + a[7] * sin2) - Q;
  }

  // --- sines ------------------------------------------------------------------------------------

  // Reduced angles k u of one block, and sine and cosine of what remains. Each loop is short enough
  // for several rounds of it to be under way at once. Returns the lanes whose angle is far.
  static bits sine_block(double k, const double* u, std::size_t count, double* turns, double* s,
                         double* c) {
    alignas(32) double r[block_size];
    bits far{};
    for (std::size_t i = 0; i < count; i += width) {
      const real angle = k * l::load(u + i);
      far |= ~(l::magnitude(angle) < near_limit);
      const auto near = near_reduction<width>(angle);
      l::store(r + i, near.r);
      __builtin_memcpy(turns + i, &near.n, sizeof near.n);
    }
    for (std::size_t i = 0; i < count; i += width) {
      const auto at = sine_cosine_near_0<width>(l::load(r + i));
      l::store(s + i, at.s);
      l::store(c + i, at.c);
    }
    return far;
  }

  static angle_functions<width> functions_at(const double* turns, const double* s, const double* c,
                                             std::size_t i) {
    bits n;
    __builtin_memcpy(&n, turns + i, sizeof n);
    return functions_of<width>({l::load(s + i), l::load(c + i)}, n);
  }

  // --- chi-square -------------------------------------------------------------------------------

  // The combinations of one block's orbits; adds the squares of the block before to `sum`.
  static void combine_block(const double* p, const signal_columns& here, const trial_columns& found,
                            std::size_t first, double* u, const double* before, double& sum) {
    double* const inverse_total = found.inverse_total + first;
    double* const X = found.X + first;
    double* const Y = found.Y + first;
    double* const Q = found.Q + first;
    double added = sum;
    for (std::size_t i = 0; i < here.n; i += width) {
      const combined at = combine(p, here, i);
      l::store(u + i, at.X * at.Y);
      l::store(inverse_total + i, at.inverse_total);
      l::store(X + i, at.X);
      l::store(Y + i, at.Y);
      l::store(Q + i, at.Q);
      for (std::size_t j = 0; j < width; ++j) added += before[i + j];
    }
    sum = added;
  }

  // Squared residuals of one block; returns `sum` and the squares of the block before: additions in
  // order wait for each other, and here there is something to do meanwhile.
  static double squares(const double* a, const signal_columns& d, const trial_columns& found,
                        std::size_t first, std::size_t count, double* square, const double* before,
                        double sum) {
    alignas(32) double u[block_size];
    // Copies of the block's own, whose places nobody else knows: what is stored cannot change them.
    const double p[8] = {a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]};
    const signal_columns here{d.b1 + first, d.b2 + first, d.b3 + first, d.b4 + first, count};
    double* const Q = found.Q + first;
    double* const turns = found.turns + first;
    double* const s = found.s + first;
    double* const c = found.c + first;
    combine_block(p, here, found, first, u, before, sum);
    const bits far = sine_block(p[5], u, count, turns, s, c);
    for (std::size_t i = 0; i < count; i += width) {
      const auto f = functions_at(turns, s, c, i);
      const real r = residual(p, f.sin1, f.sin2, l::load(Q + i));
      l::store(square + i, r * r);
    }
    const bool any_far = any_lane<width>(far);
    found.far[first / block_size] = any_far ? 1 : 0;
    if (any_far) {
      for (std::size_t i = 0; i < count; ++i) {
        const double r = stepped_residual(a, d, first + i);
        square[i] = r * r;
      }
    }
    return sum;
  }

  static double chi_square(const double* a, const signal_columns& d, const trial_columns& found) {
    alignas(32) double square[2][block_size] = {};
    double sum = 0;
    std::size_t before = 0;  // orbits of the block before
    int now = 0;
    for (std::size_t first = 0; first < d.n; first += block_size, now = 1 - now) {
      const std::size_t count = d.n - first < block_size ? d.n - first : block_size;
      sum = squares(a, d, found, first, count, square[now], square[1 - now], sum);
      // A short last block has taken only the beginning of the one before.
      for (std::size_t i = (count + width - 1) / width * width; i < before; ++i)
        sum += square[1 - now][i];
      before = count;
    }
    for (std::size_t i = 0; i < before; ++i) sum += square[1 - now][i];
    return sum;
  }

  // --- derivatives ------------------------------------------------------------------------------

  // What the trial found of the block, and what the closed forms make of it alone.
  static void take_block(const trial_columns& found, std::size_t first, std::size_t count,
                         block_work& w) {
    w.inverse_total = found.inverse_total + first;
    w.Q = found.Q + first;
    const double* const x = found.X + first;
    const double* const y = found.Y + first;
    for (std::size_t i = 0; i < count; i += width) {
      const real X = l::load(x + i);
      const real Y = l::load(y + i);
      l::store(w.sum + i, X + Y);
      l::store(w.difference + i, X - Y);
      l::store(w.u + i, X * Y);
    }
  }

  // Sines, the residual, and what the closed forms share.
  static void curve_block(const double* a, const trial_columns& found, std::size_t first,
                          std::size_t count, block_work& w) {
    const double k = a[5];
    const double h = a[6] + a[7];
    const double slope = a[4] * k;
    const double bend = slope * k;
    const double third = bend * k / 6;
    const double p[8] = {a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]};
    const double* const turns = found.turns + first;
    const double* const s = found.s + first;
    const double* const c = found.c + first;
    const double* const Q = w.Q;
    for (std::size_t i = 0; i < count; i += width) {
      const auto f = functions_at(turns, s, c, i);
      l::store(w.sin1 + i, f.sin1);
      l::store(w.sin2 + i, f.sin2);
      l::store(w.minus_residual + i, -residual(p, f.sin1, f.sin2, l::load(Q + i)));
      l::store(w.slope + i, slope * f.cos1 + (2 * h * slope) * f.cos2);
      l::store(w.bend + i, bend * f.sin1 + (4 * h * bend) * f.sin2);
      l::store(w.third + i, third * f.cos1 + (8 * h * third) * f.cos2);
    }
  }

  // Derivative by one gain, whose button has sQ as sign of Q; `along` is sX Y + sY X but for the
  // sign that minus tells. Returns the lanes where the closed form does not hold.
  template <int sQ, bool minus>
  static bits gain_block(const double* a, const double* signal, std::size_t count,
                         const block_work& w, const double* along, double* column) {
    const double largest = small_angle / (a[5] * a[5]);
    const double* const inverse_total = w.inverse_total;
    const double* const Q = w.Q;
    real largest_e = real{};
    real largest_t = real{};
    for (std::size_t i = 0; i < count; i += width) {
      const real u = l::load(w.u + i);
      const real L = minus ? -l::load(along + i) : l::load(along + i);
      const real share = l::load(signal + i) * l::load(inverse_total + i);
      const real e = derivative_step * share;
      const real ee = e * e;
      // Half the difference of u over e, and (u+ + u-)/2 - u over e^2.
      const real to_first = (L - u) - u;
      const real twice = to_first + to_first;
      const real half = to_first + ee * (twice + (L - 2.0 * sQ));
      const real shift = (double{sQ} - u) - twice;
      const real t = e * half;  // times k
      const real tt = t * t;
      largest_e = ee > largest_e ? ee : largest_e;
      largest_t = tt > largest_t ? tt : largest_t;
      const real rise =
          (l::load(w.slope + i) - (ee * shift) * l::load(w.bend + i)) - tt * l::load(w.third + i);
      const real of_Q = (double{sQ} - l::load(Q + i)) * (1.0 + ee);
      l::store(column + i, share * (half * rise - of_Q));
    }
    return ~((largest_e < small_step) & (largest_t < largest));
  }

  static bits scale_block(const double* a, std::size_t count, const block_work& w, double* column) {
    // slope and third come with the factors of a gain's step.
    const double per_k = 1 / a[5];
    const double per_kk = per_k * per_k;
    bits not_small{};
    for (std::size_t i = 0; i < count; i += width) {
      const real u = l::load(w.u + i);
      const real t = derivative_step * u;
      const real tt = t * t;
      not_small |= ~(tt < small_angle);
      l::store(column + i,
               (per_k * u) * (l::load(w.slope + i) - (per_kk * tt) * l::load(w.third + i)));
    }
    return not_small;
  }

  // Amplitude and both weights, stepped as they stand: their rounding is the literal form's.
  static void stepped_block(const double* a, std::size_t count, block_work& w) {
    constexpr double d = derivative_step;
    constexpr double per_step = 0.5 / derivative_step;
    const double p[8] = {a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]};
    const double* const of_Q = w.Q;
    for (std::size_t i = 0; i < count; i += width) {
      const real sin1 = l::load(w.sin1 + i);
      const real sin2 = l::load(w.sin2 + i);
      const real Q = l::load(of_Q + i);
      const real two = sin1 + p[6] * sin2;
      const real third = p[7] * sin2;
      const real curve = two + third;
      const real curve_2p = (sin1 + (p[6] + d) * sin2) + third;
      const real curve_2m = (sin1 + (p[6] - d) * sin2) + third;
      const real curve_3p = two + (p[7] + d) * sin2;
      const real curve_3m = two + (p[7] - d) * sin2;
      l::store(w.column[4] + i, (((p[4] + d) * curve - Q) - ((p[4] - d) * curve - Q)) * per_step);
      l::store(w.column[6] + i, ((p[4] * curve_2p - Q) - (p[4] * curve_2m - Q)) * per_step);
      l::store(w.column[7] + i, ((p[4] * curve_3p - Q) - (p[4] * curve_3m - Q)) * per_step);
    }
  }

  // Columns of the wanted parameters; returns the lanes where one does not hold.
  static bits derivative_blocks(const double* a, const signal_columns& d, const free_list& free,
                                std::size_t first, std::size_t count, block_work& w) {
    bits not_small{};
    bool stepped = false;
    for (int j = 0; j < free.n; ++j) {
      const int p = free.parameter[j];
      double* column = w.column[p];
      if (p == 0) not_small |= gain_block<1, false>(a, d.b1 + first, count, w, w.sum, column);
      if (p == 1)
        not_small |= gain_block<-1, false>(a, d.b2 + first, count, w, w.difference, column);
      if (p == 2)
        not_small |= gain_block<-1, true>(a, d.b3 + first, count, w, w.difference, column);
      if (p == 3) not_small |= gain_block<1, true>(a, d.b4 + first, count, w, w.sum, column);
      if (p == 5) not_small |= scale_block(a, count, w, column);
      stepped = stepped || p == 4 || p > 5;
    }
    if (stepped) stepped_block(a, count, w);
    return not_small;
  }

  // Orbits whose short forms do not hold, one by one.
  static void redo_not_small(const double* a, const signal_columns& d, const free_list& free,
                             std::size_t first, std::size_t count, block_work& w) {
    for (std::size_t i = 0; i < count; ++i) {
      w.minus_residual[i] = -stepped_residual(a, d, first + i);
      for (int j = 0; j < free.n; ++j)
        w.column[free.parameter[j]][i] = stepped_derivative(a, d, first + i, free.parameter[j]);
    }
  }

  // --- sums -------------------------------------------------------------------------------------

  // The wanted columns in their order; what is not used of a row is 0. Where they are, not what is in
  // them: `w` need not be filled yet.
  static void choose_columns(const free_list& free, block_work& w, const double** from) {
    alignas(32) static constexpr double zeros[block_size] = {};
    for (int j = 0; j < 8; ++j) from[j] = j < free.n ? w.column[free.parameter[j]] : zeros;
    from[residual_column] = w.minus_residual;
  }

  // Four columns of two orbits, turned into a row of each.
  static void turn_four(const double* const* column, std::size_t i, real& one, real& other) {
    using two = lanes<2>;
    const auto v0 = two::load(column[0] + i);
    const auto v1 = two::load(column[1] + i);
    const auto v2 = two::load(column[2] + i);
    const auto v3 = two::load(column[3] + i);
    const real even = __builtin_shufflevector(v0, v2, 0, 1, 2, 3);
    const real odd = __builtin_shufflevector(v1, v3, 0, 1, 2, 3);
    one = __builtin_shufflevector(even, odd, 0, 4, 2, 6);
    other = __builtin_shufflevector(even, odd, 1, 5, 3, 7);
  }

  // All 36 products of one orbit's row with four lanes, each once, in nine vectors. The lanes are
  // places of the matrix, so that each sum runs over the orbits in their order.
  static void add_row(const real& low, const real& high, const double* const* from, std::size_t i,
                      real* sum) {
    const real first_halves = __builtin_shufflevector(low, high, 0, 1, 4, 5);
    const real second_halves = __builtin_shufflevector(low, high, 2, 3, 6, 7);
    sum[0] += low * low;
    sum[1] += low * __builtin_shufflevector(low, low, 1, 2, 3, 0);
    sum[2] += high * high;
    sum[3] += high * __builtin_shufflevector(high, high, 1, 2, 3, 0);
    sum[4] += first_halves * second_halves;
    for (int j = 0; j < 4; ++j) sum[5 + j] += from[4 + j][i] * low;
  }

  // Rows are made where they are used: kept in memory for a loop of its own they cost a sixth more.
  static void add_four_lanes(const double* const* from, std::size_t count, product_sums& sums) {
    real sum[9] = {};
    load_nine(sums, sum);
    for (std::size_t i = 0; i < count; i += 2) {
      real low, low_next, high, high_next;
      turn_four(from, i, low, low_next);
      turn_four(from + 4, i, high, high_next);
      add_row(low, high, from, i, sum);
      if (i + 1 < count) add_row(low_next, high_next, from, i + 1, sum);
    }
    store_nine(sum, sums);
  }

  // Columns `top`..top+3 times columns `left`, left+1, added to the sums, with two lanes.
  static void add_tile(const double (*rows)[8], std::size_t count, std::size_t top,
                       std::size_t left, product_sums& sums) {
    real sum[4][2];
    for (std::size_t j = 0; j < 4; ++j)
      for (std::size_t p = 0; p < 2; ++p) sum[j][p] = l::load(&sums.of[top + j][left + p * width]);
    for (std::size_t i = 0; i < count; ++i) {
      const double* row = rows[i];
      for (std::size_t p = 0; p < 2; ++p) {
        const real factor = l::load(row + left + p * width);
        for (std::size_t j = 0; j < 4; ++j) sum[j][p] += row[top + j] * factor;
      }
    }
    for (std::size_t j = 0; j < 4; ++j)
      for (std::size_t p = 0; p < 2; ++p) l::store(&sums.of[top + j][left + p * width], sum[j][p]);
  }

  static void add_two_lanes(const double* const* from, std::size_t count, product_sums& sums) {
    alignas(32) double row[block_size][8];
    for (std::size_t i = 0; i < count; i += 2)
      for (std::size_t j = 0; j < 8; j += 2) {
        const real v0 = l::load(from[j] + i);
        const real v1 = l::load(from[j + 1] + i);
        l::store(row[i] + j, __builtin_shufflevector(v0, v1, 0, 2));
        l::store(row[i + 1] + j, __builtin_shufflevector(v0, v1, 1, 3));
      }
    add_tile(row, count, 0, 0, sums);
    add_tile(row, count, 4, 0, sums);
    add_tile(row, count, 4, 4, sums);
  }

  // Where the lanes of the first five vectors of add_row belong; the other four are rows 4..7.
  struct place {
    int row, column;
  };
  static constexpr place places[5][4] = {{{0, 0}, {1, 1}, {2, 2}, {3, 3}},
                                         {{1, 0}, {2, 1}, {3, 2}, {3, 0}},
                                         {{4, 4}, {5, 5}, {6, 6}, {7, 7}},
                                         {{5, 4}, {6, 5}, {7, 6}, {7, 4}},
                                         {{2, 0}, {3, 1}, {6, 4}, {7, 5}}};
  static void load_nine(const product_sums& sums, real* sum) {
    for (int v = 0; v < 5; ++v)
      for (int i = 0; i < 4; ++i) sum[v][i] = sums.of[places[v][i].row][places[v][i].column];
    for (int j = 0; j < 4; ++j) sum[5 + j] = l::load(sums.of[4 + j]);
  }
  static void store_nine(const real* sum, product_sums& sums) {
    for (int v = 0; v < 5; ++v)
      for (int i = 0; i < 4; ++i) sums.of[places[v][i].row][places[v][i].column] = sum[v][i];
    for (int j = 0; j < 4; ++j) l::store(sums.of[4 + j], sum[5 + j]);
  }

  static void products(const double* a, const signal_columns& d, const trial_columns& found,
                       const free_list& free, product_sums& sums) {
    block_work w;  // 17 KB of the caller's stack: fits on several threads share nothing
    const double* from[8];
    choose_columns(free, w, from);
    sums = {};
    for (std::size_t first = 0; first < d.n; first += block_size) {
      const std::size_t count = d.n - first < block_size ? d.n - first : block_size;
      take_block(found, first, count, w);
      curve_block(a, found, first, count, w);
      const bits not_small = derivative_blocks(a, d, free, first, count, w);
      if (found.far[first / block_size] != 0 || any_lane<width>(not_small))
        redo_not_small(a, d, free, first, count, w);
      if constexpr (width == 4) {
        add_four_lanes(from, count, sums);
      } else {
        add_two_lanes(from, count, sums);
      }
    }
  }
};

}  // namespace gain_fit_mod
// NOLINTEND(modernize-avoid-c-arrays)
