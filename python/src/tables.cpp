#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <filesystem>
#include <optional>

#include "arrays.hpp"

namespace binding {
namespace {

using butngain::chamber;
using butngain::table;

/// Positions in columns, as they are looked at and plotted.
struct found_positions {
  py::array x, y, scale, chi_square, fault;
};

// The fields of many records, as columns: one pass for each, over records that are in the cache.
template <class T, class value>
py::array column(const std::vector<butngain::position>& all, value of) {
  py::array_t<T> made(static_cast<py::ssize_t>(all.size()));
  T* to = made.mutable_data();
  for (const butngain::position& p : all) *to++ = static_cast<T>(of(p));
  return made;
}

found_positions positions_of(const table& t, const py::object& readings,
                             const py::object& multipliers, std::optional<int> bad_button) {
  const taken_readings taken = take_readings(readings, "signals");
  const butngain::bpm_properties bpm{take_four(multipliers, "multipliers", {1, 1, 1, 1}),
                                     bad_button.value_or(-1)};
  // Plain records meanwhile: numpy's arrays may not be made without the lock.
  std::vector<butngain::position> all;
  {
    const py::gil_scoped_release released;
    all = butngain::find_positions(t, taken.view(), bpm);
  }
  using butngain::position;
  return {column<double>(all, [](const position& p) { return p.x; }),
          column<double>(all, [](const position& p) { return p.y; }),
          column<double>(all, [](const position& p) { return p.scale; }),
          column<double>(all, [](const position& p) { return p.chi_square; }),
          column<std::int8_t>(all, [](const position& p) { return p.fault; })};
}

py::array signals_at(const table& t, const py::object& x, const py::object& y) {
  const real_array at_x = take_column(x, "x");
  const real_array at_y = take_column(y, "y");
  if (at_x.size() != at_y.size()) {
    throw py::value_error("y: expected " + std::to_string(at_x.size()) + " places as in x, found " +
                          std::to_string(at_y.size()));
  }
  // With the lock held: a place costs less than taking and giving it.
  std::vector<signals> made;
  for (py::ssize_t i = 0; i < at_x.size(); ++i) {
    made.push_back(butngain::signals_at(t, at_x.at(i), at_y.at(i)));
  }
  return array_of(std::move(made));
}

table table_from(const py::object& from, const py::object& callback) {
  // A path is read here, so that one call leads from a drawing to a table.
  const chamber c = py::isinstance<chamber>(from)
                        ? from.cast<chamber>()
                        : butngain::read_chamber(from.cast<std::filesystem::path>().string());
  const auto tell = progress_of(callback);
  const py::gil_scoped_release released;
  return butngain::table_of(c, tell);
}

chamber round_of(double radius, double half_width, double angle, const std::string& shape) {
  // Words as in chamber files; the library has an enumerator, which here would be one more import.
  if (shape != "strip" && shape != "disc") {
    throw py::value_error("shape: expected 'strip' or 'disc', found '" + shape + "'");
  }
  return butngain::round_chamber(
      {radius, shape == "strip" ? butngain::button_shape::strip : butngain::button_shape::disc,
       angle, half_width});
}

// Ways to a chamber are static procedures, not one constructor: "read" and "default" both take a
// text.
void add_chamber(py::module_& m) {
  py::class_<chamber> c(m, "Chamber", "A cross-section of a vacuum chamber with four buttons.");
  c.def_static(
      "read",
      [](const std::filesystem::path& path) { return butngain::read_chamber(path.string()); },
      py::arg("path"), "Reads a chamber file. Raises Error with file and line.");
  c.def_static("parse", &butngain::parse_chamber, py::arg("text"), py::arg("name") = "text",
               "The same from a text; messages call it by its name.");
  c.def_static("default", &butngain::default_chamber, py::arg("name"),
               "One of the chambers that come with the module: 'bpm_48', 'bpm_arc', 'bpm_tirsku', "
               "'round'.");
  // The defaults that help() shows are the library's own.
  const butngain::round_pipe usual;
  c.def_static("round", &round_of, py::arg("radius") = usual.radius,
               py::arg("half_width") = usual.half_width, py::arg("angle") = usual.angle,
               py::arg("shape") = "strip",
               "A round pipe with buttons on its diagonals.\n\nradius [m]; half_width and angle of "
               "a button, seen from the axis [rad]; shape 'strip' or 'disc'.");
  c.def_readonly("name", &chamber::name, "As its file names it.");
  c.def_readonly("about", &chamber::about, "One line for people.");
  c.def("__repr__",
        [](const chamber& self) { return "<Chamber " + self.name + ": " + self.about + ">"; });
}

}  // namespace

void add_tables(py::module_& m) {
  add_chamber(m);
  py::class_<found_positions> p(m, "Positions",
                                "Positions of many orbits; zeros where one failed.");
  p.def_readonly("x", &found_positions::x, "float64 (n,), outward [m]");
  p.def_readonly("y", &found_positions::y, "float64 (n,), up [m]");
  p.def_readonly("scale", &found_positions::scale,
                 "float64 (n,): sum of the signals of the same beam on axis [unit of the signals]");
  p.def_readonly("chi_square", &found_positions::chi_square,
                 "float64 (n,): squared differences, readings scaled to sum 1 [-]");
  // A number for each orbit, which a mask is made of: (positions.fault == 0).
  p.def_readonly("fault", &found_positions::fault,
                 "int8 (n,): 0 none, 1 beyond the table, 2 no convergence, 3 singular, "
                 "4 unusable signals");

  py::class_<table> t(m, "Table", "A lookup table from the four signals to the beam's place.");
  t.def_static(
      "read", [](const std::filesystem::path& path) { return butngain::read_table(path.string()); },
      py::arg("path"), "Reads a table file. Raises Error with file and line.");
  t.def_static("from_chamber", &table_from, py::arg("chamber"), py::kw_only(),
               py::arg("progress") = py::none(),
               "Makes the table of a Chamber, or of the chamber file of this path.\n\n"
               "progress(done, of), if given, is called row by row; False stops the work.");
  t.def_readonly("name", &table::name, "Of the chamber that it is of.");
  // In the order that a picture's axes take.
  t.def_property_readonly(
      "extent",
      [](const table& s) { return py::make_tuple(s.x_first, s.x_last, s.y_first, s.y_last); },
      "First and last x, first and last y [m].");
  t.def_property_readonly(
      "shape", [](const table& s) { return py::make_tuple(s.nx, s.ny); }, "Nodes in x and y.");
  t.def("positions", &positions_of, py::arg("signals"), py::kw_only(),
        py::arg("multipliers") = py::none(), py::arg("bad_button") = py::none(),
        "The places whose signals come nearest to the readings.\n\n"
        "signals: (n, 4), buttons BI, BO, TI, TO [any unit]; multipliers: (4,), by which they are "
        "multiplied;\nbad_button: 0..3, left out.\nReturns Positions.");
  t.def("signals", &signals_at, py::arg("x"), py::arg("y"),
        "The signals of beams at these places; those of a centred beam add up to 1.\n\n"
        "x, y: (n,) [m].\nReturns float64 (n, 4). Raises ValueError outside the table.");
  t.def("__repr__", [](const table& self) { return "<Table " + self.name + ">"; });
}

}  // namespace binding
