#include "wall_field.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "wall_solver.hpp"

namespace chamber_solver {
namespace {

// Nodes across half the smaller size of the wall. Finer grids cost time to make, coarser ones leave
// more of the chamber to the slow integral: at 12.5 it is the outer fifth.
constexpr double nodes_per_half = 12.5;

// Adds what one wall node gives to all coefficients: mu dz / (zeta - z0)^(n + 1), without 1/2 pi i.
void add_source(const wall_nodes& nodes, std::size_t j, point z0, double step, wall_expansion& e) {
  const point d = nodes.z[j] - z0;
  // Squared distance instead of a complex division, as in the solver.
  const point inverse = std::conj(d) / std::norm(d);
  const point per_step = step * inverse;
  double re = (nodes.dz[j] * inverse).real(), im = (nodes.dz[j] * inverse).imag();
  const four& mu = nodes.density[j].v;
  for (std::size_t n = 0; n <= expansion_order; ++n) {
    e.re[n].v += re * mu;
    e.im[n].v += im * mu;
    const double next = re * per_step.real() - im * per_step.imag();
    im = re * per_step.imag() + im * per_step.real();
    re = next;
  }
}

void expand(const wall_field& f, point z0, wall_expansion& e) {
  for (std::size_t j = 0; j < f.wall.nodes.z.size(); ++j) {
    add_source(f.wall.nodes, j, z0, f.step, e);
  }
  // Divided by 2 pi i: (re + i im) / i = im - i re.
  for (std::size_t n = 0; n <= expansion_order; ++n) {
    const four re = e.im[n].v / (2 * std::numbers::pi);
    e.im[n].v = -e.re[n].v / (2 * std::numbers::pi);
    e.re[n].v = re;
  }
}

}  // namespace

wall_field make_wall_field(const chamber& c, double usable) {
  wall_field f;
  f.wall = solve_wall(c, cut_wall(c));
  double left = 0, right = 0, bottom = 0, top = 0;
  for (const wall_sample& s : c.contour.sample) {
    left = std::min(left, s.z.real());
    right = std::max(right, s.z.real());
    bottom = std::min(bottom, s.z.imag());
    top = std::max(top, s.z.imag());
  }
  f.step = std::min(right - left, top - bottom) / (2 * nodes_per_half);
  f.first = {left, bottom};
  // One more on either side, so that rounding to the nearest node never leaves the grid inside the
  // wall.
  f.nx = static_cast<std::size_t>((right - left) / f.step) + 2;
  f.ny = static_cast<std::size_t>((top - bottom) / f.step) + 2;
  f.node.resize(f.nx * f.ny);
  // Four half diagonals: the ratio of 1/4 on which the number of terms rests.
  const double needed = 4 * std::numbers::sqrt2 / 2 * f.step;
  for (std::size_t iy = 0; iy < f.ny; ++iy) {
    for (std::size_t ix = 0; ix < f.nx; ++ix) {
      wall_expansion& e = f.node[iy * f.nx + ix];
      const point z0 = f.first + f.step * point{static_cast<double>(ix), static_cast<double>(iy)};
      // The usable part is the wall drawn smaller, so distances to it shrink alike.
      e.clear = usable * find_nearest(c.contour, z0 / usable).distance;
      e.converges = find_nearest(c.contour, z0).distance >= needed;
      if (e.converges) expand(f, z0, e);
    }
  }
  return f;
}

const wall_expansion* expansion_at(const wall_field& f, point z, point& from_node) {
  // To the nearest node: the series converges in the node's own square.
  const double ix = std::round((z.real() - f.first.real()) / f.step);
  const double iy = std::round((z.imag() - f.first.imag()) / f.step);
  if (!(ix >= 0 && iy >= 0 && ix < static_cast<double>(f.nx) && iy < static_cast<double>(f.ny))) {
    return nullptr;
  }
  from_node = z - (f.first + f.step * point{ix, iy});
  return &f.node[static_cast<std::size_t>(iy) * f.nx + static_cast<std::size_t>(ix)];
}

lanes signals_from(const wall_field& f, point z) {
  point d;
  const wall_expansion* const e = expansion_at(f, z, d);
  if (e == nullptr || !e->converges) return {signals_at(f.wall, z).phi};
  const double u = d.real() / f.step, v = d.imag() / f.step;
  four re = e->re[expansion_order].v, im = e->im[expansion_order].v;
  // From the highest power down: each step takes one multiplication by z and no power is formed.
  for (std::size_t n = expansion_order; n-- > 0;) {
    const four next = re * u - im * v + e->re[n].v;
    im = re * v + im * u + e->im[n].v;
    re = next;
  }
  return {re};
}

}  // namespace chamber_solver
