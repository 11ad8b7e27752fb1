// The entry of the position conversion, with what it keeps per BPM: offsets and table choice.
#include <algorithm>
#include <array>
#include <cmath>
#include <span>

#include "list_io.hpp"
#include "nonlin_bpm_mod.hpp"
#include "standard_output.hpp"

namespace nonlin_bpm_mod {
namespace {

// Single-precision constants, widened: kept for compatibility.
constexpr double smallest_signal{1e-10F};  // far below one count: no signal at all
constexpr double rough_pi{3.14159F};

// All four, a button marked as bad too: kept for compatibility. Also false of a NaN.
bool has_signals(const button_signals& but) {
  return std::all_of(but.item.begin(), but.item.end(),
                     [](double signal) { return signal >= smallest_signal; });
}

void move_to_real(int bpm_index, position& x) {
  if (nonlin_bpm_use_rotation) nonlin_bpm_real_coords(bpm_index, x);
  // Also from the zeros of a failed fit: kept for compatibility; chisq tells which it is.
  if (nonlin_bpm_use_offsets) {
    x(1) -= bpm_calib(bpm_index).offset(1);
    x(2) -= bpm_calib(bpm_index).offset(2);
  }
}

void convert(int bpm_index, const button_signals& but, position& x, double& chisq) {
  if (!has_signals(but)) {
    x.fill(0);
    return;
  }
  const button_signals copy = but;
  nonlin_bpm_minimize(bpm_index, copy, x, chisq);
  move_to_real(bpm_index, x);
}

}  // namespace

void nonlin_orbit(int bpm_index, const button_signals& but, position& x, double& chisq) {
  if (nonlin_bpm_first_call) nonlin_bpm_init();
  if (bpm_index > max_bpm) {
    util::print_line(util::list_line().text("Bad BPM location: ").integer(bpm_index).str());
    return;
  }
  switch (bpm_index) {
    case -1:
      nonlin_bpm_use_offsets = false;
      return;
    case -2:
      // Read again, so that new offsets serve without a new start.
      nonlin_bpm_init_offsets();
      nonlin_bpm_use_offsets = true;
      return;
    case -3:
    case -4:
      util::print_line(
          util::list_line().text("Toggling normalization is no longer supported").str());
      return;
    default:
      // 0 and numbers below -4 go on too: the bounds of bpm_calib stop them.
      convert(bpm_index, but, x, chisq);
  }
}

void nonlin_orbits(int bpm_index, std::span<const button_signals> but, std::span<position> x) {
  if (but.empty()) return;  // without the tables, which a facility may not have
  if (nonlin_bpm_first_call) nonlin_bpm_init();
  // What is no BPM is told, or done, once a reading.
  const bool is_bpm = bpm_index <= max_bpm && (bpm_index >= 0 || bpm_index < -4);
  constexpr std::size_t most = 256;  // readings of a portion: what they need stays near
  std::array<button_signals, most> good{};
  std::array<std::size_t, most> place{};
  std::array<position, most> found{};
  std::array<double, most> chisq{};
  for (std::size_t next = 0; next < but.size();) {
    std::size_t n = 0;
    for (; next < but.size() && n < most; ++next) {
      if (is_bpm && has_signals(but[next])) {
        good[n] = but[next];
        place[n++] = next;
      } else {
        nonlin_orbit(bpm_index, but[next], x[next], chisq[n]);
      }
    }
    if (n == 0) continue;
    nonlin_bpm_set_pointers(bpm_index);
    fit_positions(*func_bpm, bpm_calib(bpm_index), std::span(good).first(n),
                  std::span(found).first(n), std::span(chisq).first(n));
    for (std::size_t i = 0; i < n; ++i) {
      move_to_real(bpm_index, found[i]);
      x[place[i]] = found[i];
    }
  }
}

void nonlin_bpm_set_pointers(int bpm_index) {
  if (nonlin_bpm_first_call) nonlin_bpm_init();
  bpm_index_com = bpm_index;
  const auto within = [bpm_index](int first, int last) {
    return bpm_index >= first && bpm_index <= last;
  };
  // The chambers along the ring: round pipes at 48..51, narrow ones at two stretches, else arcs.
  if (within(48, 51)) {
    func_bpm = &bpm_48;
  } else if (within(1, 7) || within(93, 110)) {
    func_bpm = &bpm_tirsku;
  } else {
    func_bpm = &bpm_arc;
  }
}

void nonlin_bpm_rotate_coord(position& x, double angle) {
  const double th = angle * rough_pi / 180;
  const double x1 = x(1) * std::cos(th) + x(2) * std::sin(th);
  const double x2 = -x(1) * std::sin(th) + x(2) * std::cos(th);
  x(1) = x1;
  x(2) = x2;
}

void nonlin_bpm_real_coords(int /*bpm_index*/, position& /*x*/) {}

void reset() {
  nonlin_bpm_first_call = true;
  nonlin_bpm_use_offsets = true;
  nonlin_bpm_use_rotation = true;
  bpm_index_com = 0;
  func_bpm = nullptr;
  bpm_48 = {};
  bpm_arc = {};
  bpm_tirsku = {};
  bpm_calib = {};
}

}  // namespace nonlin_bpm_mod
