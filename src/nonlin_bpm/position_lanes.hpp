// Readings as lanes: what the position fit works out for several readings at once, one a lane.
//
// The cells are still read with the four buttons as lanes, as they lie in memory; what comes out is
// turned, and sums over the buttons then are sums of whole vectors. Plain operators on these types
// act on every lane for itself, in the order that is written: each reading gets the bits that it
// would get alone, on every processor.
//
// Everything is drawn into its caller: a vector in hand must not go from code for one instruction
// set to code for another.
#pragma once
#include <cstddef>
#include <cstdint>

#include "cell_kernel.hpp"
#include "lookup_table.hpp"

#if defined(__GNUC__) && !defined(__clang__)
// Where a vector takes two registers, gcc 12 loses sight of its halves' first values.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
// Plain arrays on purpose: a library function that is not inlined would be compiled for whatever
// processor its caller is for, and the linker might take that copy for the whole program.
// NOLINTBEGIN(modernize-avoid-c-arrays)
namespace nonlin_bpm_mod {

// What the fit asks of a table, without the way there.
struct table_view {
  explicit table_view(const table_struct& table)
      : x(table.x.item.data()),
        y(table.y.item.data()),
        nx(table.grid.nx),
        ny(table.grid.ny),
        x_per_step(table.x_per_step),
        y_per_step(table.y_per_step),
        node(table.grid.item.data()) {}
  const double* x;
  const double* y;
  int nx, ny;
  double x_per_step, y_per_step;
  const grid_struct* node;
};

// Four readings: with eight, where the processor has registers for them, a position took as long.
struct position_lanes {
  static constexpr int width = 4;
  using real = four;
  using bits [[gnu::vector_size(32), gnu::aligned(32)]] = std::int64_t;
  using counts [[gnu::vector_size(16), gnu::aligned(16)]] = std::int32_t;

  [[gnu::always_inline]] static inline void load(const double* from, real& to) {
    __builtin_memcpy(&to, from, sizeof to);
  }
  [[gnu::always_inline]] static inline void store(double* to, const real& value) {
    __builtin_memcpy(to, &value, sizeof value);
  }
  // Lane by lane, written out: through memory each would wait for the one before.
  template <class of_lane>
  [[gnu::always_inline]] static inline void fill(const of_lane& of, real& to) {
    to = real{of(0), of(1), of(2), of(3)};
  }
  [[gnu::always_inline]] static inline bool all(const bits& mask) {
    std::int64_t found = -1;
    for (int i = 0; i < width; ++i) found &= mask[i];
    return found != 0;
  }
  [[gnu::always_inline]] static inline void below(const real& value, double limit, bits& mask) {
    mask = (value < limit) & (value > -limit);
  }

  // Sum over the buttons of the products of a and b, in the order of the buttons.
  [[gnu::always_inline]] static inline void sum(const real* a, const real* b, real& to) {
    to = a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
  }

  // Four readings with their buttons side by side, into four buttons with all readings.
  [[gnu::always_inline]] static inline void turn(const real* from, real* to) {
    const real low01 = __builtin_shufflevector(from[0], from[1], 0, 4, 2, 6);
    const real high01 = __builtin_shufflevector(from[0], from[1], 1, 5, 3, 7);
    const real low23 = __builtin_shufflevector(from[2], from[3], 0, 4, 2, 6);
    const real high23 = __builtin_shufflevector(from[2], from[3], 1, 5, 3, 7);
    to[0] = __builtin_shufflevector(low01, low23, 0, 1, 4, 5);
    to[1] = __builtin_shufflevector(high01, high23, 0, 1, 4, 5);
    to[2] = __builtin_shufflevector(low01, low23, 2, 3, 6, 7);
    to[3] = __builtin_shufflevector(high01, high23, 2, 3, 6, 7);
  }

  // One `four` a reading, of the readings that there are, into four buttons with all readings.
  // Lanes beyond hold numbers that nobody looks at.
  template <class of_lane>
  [[gnu::always_inline]] static inline void turn_each(const of_lane& of, real* to) {
    real from[4];
    for (int i = 0; i < width; ++i) of(i, from[i]);
    turn(from, to);
  }

  // --- places -----------------------------------------------------------------------------------

  // The steps of one axis that the values lie in.
  struct steps {
    real low, high;
    alignas(32) std::int32_t index[width];  // of the lower end, from 0
  };
  [[gnu::always_inline]] static inline void take_ends(const double* axis, steps& at) {
    fill([&](int i) { return axis[at.index[i]]; }, at.low);
    fill([&](int i) { return axis[at.index[i] + 1]; }, at.high);
  }
  // given    value  from the first of the axis up to its last, without that
  [[gnu::always_inline]] static inline void locate_lanes(const double* axis, int n, double per_step,
                                                         const real& value, steps& at) {
    counts guess = __builtin_convertvector((value - axis[0]) * per_step, counts);
    guess = guess > n - 2 ? counts{} + (n - 2) : guess;
    __builtin_memcpy(at.index, &guess, sizeof guess);
    take_ends(axis, at);
    if (all((value >= at.low) & (value < at.high))) return;
    // A guess beside a node, rounded to the wrong side of it.
    for (int i = 0; i < width; ++i) {
      while (value[i] < axis[at.index[i]]) --at.index[i];
      while (value[i] >= axis[at.index[i] + 1]) ++at.index[i];
    }
    take_ends(axis, at);
  }

  // What the table says of the readings' places, by button.
  struct values {
    real phi[4], dx[4], dy[4];
    bits good;  // the place lies in the table
  };
  // given    n  lanes in use; the others hold numbers too
  template <bool with_slopes>
  [[gnu::always_inline]] static inline void evaluate(const table_view& table, const real& x,
                                                     const real& y, int n, values& v) {
    const double* const axis_x = table.x;
    const double* const axis_y = table.y;
    v.good = (x >= axis_x[0]) & (x < axis_x[table.nx - 1]) & (y >= axis_y[0]) &
             (y < axis_y[table.ny - 1]);
    // Outside any cell serves: nobody looks at what it gives.
    const real inside_x = v.good ? x : real{} + axis_x[0];
    const real inside_y = v.good ? y : real{} + axis_y[0];
    steps in_x, in_y;
    locate_lanes(axis_x, table.nx, table.x_per_step, inside_x, in_x);
    locate_lanes(axis_y, table.ny, table.y_per_step, inside_y, in_y);
    const real hx = in_x.high - in_x.low;
    const real hy = in_y.high - in_y.low;
    alignas(32) double t[width];
    alignas(32) double u[width];
    store(t, (inside_x - in_x.low) / hx);
    store(u, (inside_y - in_y.low) / hy);
    real p[width] = {};
    real p_t[width] = {};
    real p_u[width] = {};
    for (int i = 0; i < n; ++i) {
      const lanes* const c =
          table
              .node[static_cast<std::size_t>(in_y.index[i]) * static_cast<std::size_t>(table.nx) +
                    static_cast<std::size_t>(in_x.index[i])]
              .b.c.data();
      cell_polynomials<with_slopes>([c](std::size_t k, real& to) { to = c[k].v; }, t[i], u[i], p[i],
                                    p_t[i], p_u[i]);
    }
    turn(p, v.phi);
    if constexpr (with_slopes) {
      turn(p_t, v.dx);
      turn(p_u, v.dy);
      for (real& slope : v.dx) slope /= hx;
      for (real& slope : v.dy) slope /= hy;
    }
  }
};

}  // namespace nonlin_bpm_mod
// NOLINTEND(modernize-avoid-c-arrays)
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
