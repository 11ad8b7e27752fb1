#include "butngain/table.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "cell_kernel.hpp"
#include "interior.hpp"
#include "nonlin_bpm_mod.hpp"
#include "table_cells.hpp"
#include "table_file.hpp"
#include "table_maker.hpp"

namespace butngain {
namespace {

// A plain record with shared contents behind it: copies are cheap, and no caller can change a table
// that another thread looks at.
chamber handle_of(chamber_solver::chamber drawn) {
  auto contents = std::make_shared<chamber_contents>();
  contents->drawn = std::move(drawn);
  return {contents->drawn.name, contents->drawn.about, contents};
}

table handle_of(nonlin_bpm_mod::table_struct made, std::string name) {
  auto contents = std::make_shared<table_contents>();
  contents->table = std::move(made);
  const auto& x = contents->table.x.item;
  const auto& y = contents->table.y.item;
  const auto& grid = contents->table.grid;
  return {std::move(name), grid.nx, grid.ny, x.front(), x.back(), y.front(), y.back(), contents};
}

nonlin_bpm_mod::calib_struct properties_of(const bpm_properties& bpm) {
  if (bpm.bad_button < -1 || bpm.bad_button > 3) {
    throw_argument("bad_button", std::to_string(bpm.bad_button), "0..3, or -1 for none");
  }
  nonlin_bpm_mod::calib_struct calib;
  calib.coeff.item = bpm.multiplier;
  // Buttons count from 0 for callers; the rooms count from 1, and their 0 is none.
  calib.ix_bad_button = bpm.bad_button + 1;
  return calib;
}

position public_position(const nonlin_bpm_mod::position& x, double chi_square) {
  // A failure is told as the negative of its number.
  if (chi_square < 0) {
    // The faults of the face are numbered as the failures of the rooms.
    return {.fault = static_cast<position_fault>(std::lround(-chi_square))};
  }
  return {x(1), x(2), x(3), chi_square, position_fault::none};
}

}  // namespace

std::shared_ptr<const sim::solved_chamber> solved_of(const chamber& c) {
  const chamber_contents& contents = contents_of(c, "chamber");
  // Whichever thread asks first works it out, the others wait: twice the work would be thrown away.
  std::call_once(contents.once, [&contents] { contents.solved = sim::solve(contents.drawn); });
  return contents.solved;
}

chamber read_chamber(const std::string& path) {
  return handle_of(value_of(chamber_solver::read_chamber(path), error_kind::file));
}

chamber parse_chamber(std::string_view text, const std::string& name) {
  // A fault of its kind `file` all the same: it has a line of the text to point at.
  return handle_of(value_of(chamber_solver::parse_chamber(text, name), error_kind::file));
}

chamber default_chamber(std::string_view name) {
  // The simulator's pipe, of no facility: it stands in no list.
  if (name == "round") return handle_of(sim::usual_chamber());
  for (std::size_t i = 0; i < chamber_solver::default_chambers.size(); ++i) {
    if (chamber_solver::default_chambers.at(i).name == name) {
      return handle_of(chamber_solver::default_chamber_at(i));
    }
  }
  throw_argument("name", "no default chamber \"" + std::string{name} + "\"",
                 "bpm_48, bpm_arc, bpm_tirsku or round");
}

chamber round_chamber(const round_pipe& pipe) {
  const sim::round_drawing drawing{.radius = pipe.radius,
                                   .shape = pipe.shape == button_shape::strip
                                                ? sim::button_shape::strip
                                                : sim::button_shape::disc,
                                   .angle = pipe.angle,
                                   .half_width = pipe.half_width};
  // First: a drawing that cannot be has no wall to walk along.
  if (const std::string wrong = sim::drawing_fault(drawing); !wrong.empty()) {
    throw_argument("pipe", wrong);
  }
  return handle_of(sim::round_chamber(drawing));
}

table read_table(const std::string& path) {
  auto nodes = value_of(nonlin_bpm_mod::read_table_nodes(path, ""), error_kind::file);
  nonlin_bpm_mod::table_struct made;
  // Well read is not yet good: what the numbers say together shows when the cells are made of them.
  if (std::string wrong = nonlin_bpm_mod::build_table(nodes, made); !wrong.empty()) {
    throw_fault(error_kind::file, {wrong, path, ""});
  }
  return handle_of(std::move(made), nodes.name);
}

table table_of(const chamber& c, const progress& tell) {
  // Row by row instead of at once, so that a caller can show how far it is, and stop between two.
  const chamber_solver::chamber& drawn = contents_of(c, "chamber").drawn;
  const auto rows = static_cast<std::size_t>(drawn.y.n);
  tell_progress(tell, 0, rows);
  auto work = chamber_solver::begin_table(drawn);
  for (std::size_t iy = 1; iy <= rows; ++iy) {
    chamber_solver::fill_row(work, static_cast<int>(iy));
    tell_progress(tell, iy, rows);
  }
  nonlin_bpm_mod::table_struct made;
  // No file is involved that could be named: it is the drawing that does not do.
  if (std::string wrong = nonlin_bpm_mod::build_table(work.nodes, made); !wrong.empty()) {
    throw_argument("chamber", "table of " + c.name + ": " + wrong);
  }
  return handle_of(std::move(made), c.name);
}

position find_position(const table& t, const signals& reading, const bpm_properties& bpm) {
  return find_positions(t, {&reading, 1}, bpm).front();
}

std::vector<position> find_positions(const table& t, std::span<const signals> readings,
                                     const bpm_properties& bpm) {
  // Checked once, not again for each of perhaps 100000 readings.
  const auto& contents = contents_of(t, "table").table;
  const auto calib = properties_of(bpm);
  std::vector<position> found;
  found.reserve(readings.size());
  constexpr std::size_t most = 256;  // readings of a portion: what they need stays near
  std::array<nonlin_bpm_mod::button_signals, most> but{};
  std::array<nonlin_bpm_mod::position, most> x{};
  std::array<double, most> chi_square{};
  while (found.size() < readings.size()) {
    const std::size_t n = std::min(most, readings.size() - found.size());
    for (std::size_t i = 0; i < n; ++i) but[i].item = readings[found.size() + i];
    nonlin_bpm_mod::fit_positions(contents, calib, std::span(but).first(n), std::span(x).first(n),
                                  std::span(chi_square).first(n));
    for (std::size_t i = 0; i < n; ++i) found.push_back(public_position(x[i], chi_square[i]));
  }
  return found;
}

signals signals_at(const table& t, double x, double y) {
  const auto& contents = contents_of(t, "table").table;
  nonlin_bpm_mod::cell_values value{};
  // A cell without data can be evaluated too, but what comes out is no beam's signals. Without
  // second derivatives (false), which nobody looks at here.
  if (!nonlin_bpm_mod::has_data(contents, x, y) ||
      !nonlin_bpm_mod::evaluate_cell<false>(contents, x, y, value)) {
    throw_argument("x, y", "(" + std::to_string(x) + ", " + std::to_string(y) + ") m",
                   "a place inside the table of " + t.name);
  }
  return {value.phi[0], value.phi[1], value.phi[2], value.phi[3]};
}

}  // namespace butngain
