#include "chamber.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace sim {
namespace {

using chamber_solver::point;
using std::numbers::pi;

// The beam as the wall sees it: q and theta of the formulas in the header.
struct seen_beam {
  double q;
  double theta;
};

double wall_integral(const seen_beam& beam, double t) {
  // The arctangent jumps by a whole turn behind the beam; u / 2 pi carries the branch on, so that
  // strips may lie across it.
  const double u = t - beam.theta;
  return (u / (2 * pi)) + (std::atan2(beam.q * std::sin(u), 1 - (beam.q * std::cos(u))) / pi);
}

double strip_signal(const seen_beam& beam, double middle, double half_width) {
  return wall_integral(beam, middle + half_width) - wall_integral(beam, middle - half_width);
}

// The charge that a line charge in a grounded round pipe draws to the wall: the field of its image
// at the mirrored radius. It needs no sum over modes, near the wall either.
double wall_density(const seen_beam& beam, double t) {
  const double q = beam.q;
  return (1 - (q * q)) / (1 - (2 * q * std::cos(t - beam.theta)) + (q * q)) / (2 * pi);
}

// Gauss quadrature whose weight function is the chord itself, sqrt(1 - v^2) on -1..1: nodes and
// weights are cosines. At 0.95 of the radius and a 9 mm disc in a 45 mm pipe 64 nodes reach 1e-12.
struct chord_rule {
  static constexpr int n = 64;
  std::array<double, n> node{};
  std::array<double, n> node_weight{};
};

chord_rule make_chord_rule() {
  chord_rule rule;
  for (int i = 0; i < chord_rule::n; ++i) {
    const double angle = (i + 1) * pi / (chord_rule::n + 1);
    const auto at = static_cast<std::size_t>(i);
    rule.node[at] = std::cos(angle);
    rule.node_weight[at] = pi / (chord_rule::n + 1) * std::sin(angle) * std::sin(angle);
  }
  return rule;
}

// A disc has no closed form: its chord weighs the density along the arc.
double disc_signal(const seen_beam& beam, double middle, double half_width) {
  // A disc's chord makes the ends of the integral steep; the rule has that square root in its
  // weights and sees only the smooth density.
  static const chord_rule rule = make_chord_rule();
  double sum = 0;
  for (std::size_t i = 0; i < rule.node.size(); ++i) {
    sum += rule.node_weight[i] * wall_density(beam, middle + (half_width * rule.node[i]));
  }
  return sum * half_width;
}

double round_signal(const chamber& c, std::size_t k, const seen_beam& beam) {
  return c.button[k].shape == button_shape::strip
             ? strip_signal(beam, c.round->middle[k], c.round->half[k])
             : disc_signal(beam, c.round->middle[k], c.round->half[k]);
}

bool is_none(const chamber_change& change) {
  // Exact comparisons are meant: what was not given holds its default to the last bit.
  return change.width == 1 && change.angle == 0 && change.azimuth.item == buttons{}.item &&
         !change.shape && change.ellipse == 0 && change.radius == 0;
}

// Buttons in the first and third quadrant turn counter-clockwise to get away from the x axis.
double turn_of(std::size_t k, double angle) { return k == 0 || k == 3 ? angle : -angle; }

void move_button(const chamber& from, chamber& to, std::size_t k, const chamber_change& change,
                 point scale) {
  using chamber_solver::find_nearest;
  // The button keeps its place on the stretched wall, then turns about the axis, then slides: each
  // step is what a drawing would change on its own.
  const point drawn = chamber_solver::place_at(from.contour, from.button[k].s).z;
  const point scaled{drawn.real() * scale.real(), drawn.imag() * scale.imag()};
  const double azimuth = change.azimuth(static_cast<int>(k) + 1);
  const point turned = scaled * std::polar(1.0, turn_of(k, change.angle));
  auto& button = to.button[k];
  button.s = find_nearest(to.contour, turned).s + azimuth;
  button.half *= change.width;
  button.shape = change.shape.value_or(button.shape);
  // The closed form has angles of its own, which are turned and not read back from arc lengths.
  if (!to.round) return;
  to.round->middle[k] += turn_of(k, change.angle) + (azimuth / to.round->radius);
  to.round->half[k] = button.half / to.round->radius;
}

}  // namespace

std::string drawing_fault(const round_drawing& d) {
  if (!(d.radius > 0))
    return fmt::format("pipe radius must be above 0 mm, not {:g}", d.radius / mm);
  if (!(d.angle > 0 && d.angle < pi / 2)) {
    return fmt::format("button angle must lie between 0 and 90 degrees, not {:g}",
                       d.angle / degree);
  }
  // Wider than this a button would reach its mirror image across an axis.
  const double room = std::min(d.angle, (pi / 2) - d.angle);
  if (!(d.half_width > 0 && d.half_width < room)) {
    return fmt::format("half width of the buttons must lie between 0 and {:g} degrees, not {:g}",
                       room / degree, d.half_width / degree);
  }
  return {};
}

chamber round_chamber(const round_drawing& d) {
  chamber c;
  c.name = "round";
  c.about = fmt::format("round pipe of radius {:g} mm, {} at {:g} degrees, half width {:g} degrees",
                        d.radius / mm, d.shape == button_shape::strip ? "strips" : "discs",
                        d.angle / degree, d.half_width / degree);
  c.contour = chamber_solver::circle_wall(d.radius);
  c.round.emplace();
  c.round->radius = d.radius;
  // In the order BI BO TI TO: a mirror image of TO in each quadrant, angles counted from the x
  // axis.
  c.round->middle = {d.angle - pi, -d.angle, pi - d.angle, d.angle};
  c.round->half.fill(d.half_width);
  for (std::size_t k = 0; k < 4; ++k) {
    c.button[k] = {d.radius * c.round->middle[k], d.radius * d.half_width, d.shape};
  }
  // Spacing, extent and rim of the table that the 45 mm chamber of the default tables has.
  const double extent = 32.0 / 45.0 * d.radius;
  c.x = c.y = {81, -extent, extent};
  c.margin = 6.0 / 45.0 * d.radius;
  return c;
}

const chamber& usual_chamber() {
  static const chamber usual = round_chamber({});
  return usual;
}

double half_height(const chamber& c) {
  // The samples of a circle reach its top only to rounding; the drawing knows it.
  if (c.round) return c.round->radius;
  double highest = 0;
  for (const auto& sample : c.contour.sample) highest = std::max(highest, sample.z.imag());
  return highest;
}

util::outcome<chamber> changed(const chamber& c, const chamber_change& change) {
  // Scaling by 1 would still walk along the wall anew and move last bits.
  if (is_none(change)) return c;
  const util::fault here{"", "chamber " + c.name, ""};
  const point scale{(1 + change.ellipse) * (1 + change.radius),
                    (1 - change.ellipse) * (1 + change.radius)};
  // Before anything is scaled: a mirrored wall would run clockwise and be outside of itself.
  if (!(scale.real() > 0 && scale.imag() > 0)) {
    return util::fault{"ellipse or radius turns it inside out", here.where, ""};
  }
  if (!(change.width > 0)) return util::fault{"buttons without width", here.where, ""};
  chamber made = c;
  made.contour = chamber_solver::scaled_wall(c.contour, scale.real(), scale.imag());
  // A stretched circle is none: from here on the wall is solved like any other.
  if (made.round && change.ellipse != 0) made.round.reset();
  if (made.round) made.round->radius *= scale.real();
  for (std::size_t k = 0; k < 4; ++k) move_button(c, made, k, change, scale);
  if (const std::string overlap = chamber_solver::overlap_of(made); !overlap.empty()) {
    return util::fault{overlap, here.where, ""};
  }
  return made;
}

std::string change_text(const chamber_change& change) {
  std::string text;
  const auto add = [&text](const std::string& part) { text += text.empty() ? part : ", " + part; };
  if (change.width != 1) add(fmt::format("buttons {:g} times as wide", change.width));
  if (change.angle != 0) {
    add(fmt::format("buttons {:g} degrees further from the x axis", change.angle / degree));
  }
  for (int k = 1; k <= 4; ++k) {
    if (change.azimuth(k) != 0) {
      add(fmt::format("button {} {:g} mm further along the wall", k, change.azimuth(k) / mm));
    }
  }
  if (change.shape) add(*change.shape == button_shape::disc ? "discs" : "strips");
  if (change.ellipse != 0) {
    add(fmt::format("wider and lower by the fraction {:g}", change.ellipse));
  }
  if (change.radius != 0) add(fmt::format("larger by the fraction {:g}", change.radius));
  return text;
}

std::shared_ptr<const solved_chamber> solve(const chamber& c) {
  auto made = std::make_shared<solved_chamber>();
  made->of = c;
  // First the field: the centred signal below is taken through it.
  if (!c.round) made->field = chamber_solver::make_wall_field(c, usable_part);
  const buttons centred = phi(*made, 0, 0);
  // The four of a round pipe are equal but for their last bits; one of them is what readings have
  // always been counted in.
  made->centred = c.round ? centred(1) : (centred(1) + centred(2) + centred(3) + centred(4)) / 4;
  return made;
}

bool is_inside(const chamber& c, double x, double y) {
  if (c.round) return std::hypot(x, y) <= usable_part * c.round->radius;
  // Usable is the wall drawn smaller about the origin, so the place is drawn larger instead.
  return chamber_solver::find_nearest(c.contour, point{x, y} / usable_part).distance >= 0;
}

bool is_inside(const solved_chamber& c, double x, double y) {
  if (!c.field) return is_inside(c.of, x, y);
  point from_node;
  const auto* const near = chamber_solver::expansion_at(*c.field, {x, y}, from_node);
  // Beyond the grid is beyond the wall's box.
  if (near == nullptr) return false;
  // Where the node is further from the boundary than the place is from the node, both lie on the
  // same side: no search along the wall, which would cost more than the signal.
  if (std::abs(from_node) < std::abs(near->clear)) return near->clear > 0;
  return is_inside(c.of, x, y);
}

std::string reach_fault(const chamber& c, const beam& b) {
  if (c.round) {
    const double reach = steady_reach(b);
    const double room = usable_part * c.round->radius;
    if (reach <= room) return {};
    return fmt::format(
        "closed orbit and oscillation reach {:g} mm from the axis; beams must stay within {:g} mm",
        reach / mm, room / mm);
  }
  // An oscillation fills a box about the orbit: its corners are the furthest.
  const double coupling = std::abs(b.coupling);
  const double half_x = b.x.amplitude + (coupling * b.y.amplitude);
  const double half_y = b.y.amplitude + (coupling * b.x.amplitude);
  for (const double x : {b.x.orbit - half_x, b.x.orbit + half_x}) {
    for (const double y : {b.y.orbit - half_y, b.y.orbit + half_y}) {
      if (is_inside(c, x, y)) continue;
      return fmt::format(
          "closed orbit and oscillation reach ({:g}, {:g}) mm; beams must stay within {:g} of the "
          "way to the wall",
          x / mm, y / mm, usable_part);
    }
  }
  return {};
}

buttons phi(const solved_chamber& c, double x, double y) {
  buttons signal{};
  if (!c.of.round) {
    const chamber_solver::lanes all = chamber_solver::signals_from(*c.field, {x, y});
    // The solver's four come side by side, as its vector instructions want them.
    for (int k = 1; k <= 4; ++k) signal(k) = all.v[k - 1];
    return signal;
  }
  // At the axis the angle is of no meaning and of no effect, as q is 0.
  const seen_beam beam{std::hypot(x, y) / c.of.round->radius, std::atan2(y, x)};
  for (int k = 1; k <= 4; ++k) {
    signal(k) = round_signal(c.of, static_cast<std::size_t>(k) - 1, beam);
  }
  return signal;
}

}  // namespace sim
