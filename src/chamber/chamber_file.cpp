#include "chamber_file.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

#include "run_time.hpp"
#include "word_file.hpp"

namespace chamber_solver {
namespace {

using nonlin_bpm_mod::grid_axis;
using nonlin_bpm_mod::integer_at;
using nonlin_bpm_mod::next_words;
using nonlin_bpm_mod::real_at;
using nonlin_bpm_mod::word_file;

// More would make the spline's dense system, n by n, the longest step of all.
constexpr int max_corners = 1000;

// Leaves the reading of a file, wherever in it: thrown here, caught at this module's face, where it
// becomes the outcome. Statuses through six layers of small readers would hide what they read.
[[noreturn]] void chamber_fault(const word_file& file, std::string_view what) {
  throw fault_here(file, std::string{what});
}

// The next statement; a file that cannot be read on is told as such.
bool next_statement(word_file& file) {
  if (next_words(file)) return true;
  if (file.file.trouble) throw util::fault{*file.file.trouble};
  return false;
}

/// A button as the file gives it.
struct asked_button {
  // Buttons are checked after the last statement, so a message needs the line they stood in.
  int line = 0;  // 0: not given
  point place;
  double width = 0;
  button_shape shape = button_shape::disc;
};

/// What the file has said so far.
struct description {
  chamber c;
  double unit = 0;    // of lengths [m]; 0 before `units`
  double radius = 0;  // of a circle [m]; 0: the contour is none
  std::array<asked_button, 4> button{};
  bool has_margin = false;
  bool has_solver = false;
};

void expect_words(const word_file& file, std::size_t n) {
  if (file.words.size() != n) {
    chamber_fault(file, fmt::format("expected {} words after {}, found {}", n - 1, file.words[0],
                                    file.words.size() - 1));
  }
}

// A second statement is a slip: which of the two was meant, only the writer knows.
void expect_new(const word_file& file, bool given_before) {
  if (given_before) chamber_fault(file, fmt::format("second {}", file.words[0]));
}

double number(const word_file& file, std::size_t place) {
  const auto value = real_at(file, place);
  if (!value) {
    chamber_fault(file, place < file.words.size()
                            ? fmt::format("expected a number, found {}", file.words[place])
                            : std::string{"a number is missing"});
  }
  return *value;
}

int integer(const word_file& file, std::size_t place, int low, int high) {
  const auto value = integer_at(file, place);
  if (!value || *value < low || *value > high) {
    chamber_fault(file, fmt::format("expected a whole number {}..{}", low, high));
  }
  return *value;
}

// A length in metres. Units come first: a chamber in metres read as millimetres solves just as
// well.
double length(const word_file& file, const description& d, std::size_t place) {
  if (d.unit == 0) chamber_fault(file, "expected units before any length");
  return number(file, place) * d.unit;
}

double positive_length(const word_file& file, const description& d, std::size_t place) {
  const double value = length(file, d, place);
  if (!(value > 0)) {
    chamber_fault(file, fmt::format("expected a length above 0, found {}", file.words[place]));
  }
  return value;
}

// The lines behind `polygon n` and `points n`, each of so many words.
std::vector<polygon_corner> read_corners(word_file& file, const description& d, int n,
                                         std::size_t words) {
  std::vector<polygon_corner> corners;
  for (int i = 0; i < n; ++i) {
    if (!next_statement(file)) chamber_fault(file, "file ends within the contour");
    if (file.words.size() != words) {
      chamber_fault(file,
                    fmt::format("expected {} numbers, found {} words", words, file.words.size()));
    }
    polygon_corner corner{{length(file, d, 0), length(file, d, 1)}, 0};
    if (words == 3) corner.radius = length(file, d, 2);
    // Neighbours first, the closing pair below: two equal corners leave an edge without direction.
    if (corner.radius < 0) chamber_fault(file, "expected a corner radius of 0 or more");
    if (!corners.empty() && corner.z == corners.back().z) {
      chamber_fault(file, "two neighbouring corners are the same");
    }
    corners.push_back(corner);
  }
  // Drawings often repeat the first point to close the curve; here the curve closes itself.
  if (corners.front().z == corners.back().z)
    chamber_fault(file, "the last corner is the first one");
  return corners;
}

wall read_contour(word_file& file, description& d) {
  const std::string shape{file.words.size() > 1 ? file.words[1] : ""};
  // Walls know nothing of files: they say what is wrong, and the line is added here.
  std::string fault;
  wall w;
  if (shape == "circle") {
    expect_words(file, 3);
    // Kept beside the wall: only the file says that this ellipse was meant as a circle.
    d.radius = positive_length(file, d, 2);
    return circle_wall(d.radius);
  }
  if (shape == "ellipse") {
    expect_words(file, 4);
    // In a statement of its own: of two arguments either may be read first, and the message is to
    // name the first bad word.
    const double a = positive_length(file, d, 2);
    return ellipse_wall(a, positive_length(file, d, 3));
  }
  if (shape == "box") {
    expect_words(file, 5);
    const double half_width = positive_length(file, d, 2);
    const double half_height = positive_length(file, d, 3);
    const double radius = length(file, d, 4);
    // Rounder than this the arcs of neighbouring corners would overlap.
    if (radius < 0 || radius > std::min(half_width, half_height)) {
      chamber_fault(file, "expected a corner radius between 0 and the smaller half size");
    }
    return box_wall(half_width, half_height, radius);
  }
  if (shape == "polygon") {
    expect_words(file, 3);
    w = polygon_wall(read_corners(file, d, integer(file, 2, 3, max_corners), 3), fault);
  } else if (shape == "points") {
    expect_words(file, 3);
    // Four at least: three make no smooth curve worth the name.
    std::vector<point> points;
    for (const auto& corner : read_corners(file, d, integer(file, 2, 4, max_corners), 2)) {
      points.push_back(corner.z);
    }
    w = spline_wall(points, fault);
  } else {
    chamber_fault(file, "expected circle, ellipse, box, polygon or points after contour");
  }
  if (!fault.empty()) chamber_fault(file, fault);
  return w;
}

void read_button(const word_file& file, description& d) {
  expect_words(file, 6);
  const int k = integer(file, 1, 1, 4);
  asked_button& b = d.button[static_cast<std::size_t>(k - 1)];
  // The line tells a button that was given from one that was not; no size or place could.
  if (b.line != 0) chamber_fault(file, fmt::format("second button {}", k));
  b.line = file.line;
  b.place = {length(file, d, 2), length(file, d, 3)};
  b.width = positive_length(file, d, 4);
  if (file.words[5] != "disc" && file.words[5] != "strip") {
    chamber_fault(file, fmt::format("expected disc or strip, found {}", file.words[5]));
  }
  b.shape = file.words[5] == "disc" ? button_shape::disc : button_shape::strip;
}

grid_axis read_axis(const word_file& file, const description& d) {
  expect_words(file, 4);
  // The reader of tables has the same bounds: a grid that it refuses is not worth solving for.
  using namespace nonlin_bpm_mod;
  const grid_axis axis{integer(file, 1, min_grid, max_grid), length(file, d, 2),
                       length(file, d, 3)};
  // The bounds of a table file: what the conversion would refuse need not be computed.
  const double extent = axis.last - axis.first;
  if (!(extent >= min_extent && extent <= max_extent)) {
    chamber_fault(file, "expected an ascending grid between 1 mm and 1 m wide");
  }
  return axis;
}

void read_solver(const word_file& file, solver_setting& solver) {
  expect_words(file, 4);
  // Beyond these a wall is cut too coarsely to mean anything, or so finely that the system outgrows
  // memory; 30 halvings already reach a billionth of a panel.
  solver.nodes = integer(file, 1, 4, 32);
  solver.panels = integer(file, 2, 4, 400);
  solver.levels = integer(file, 3, 0, 30);
}

void read_statement(word_file& file, description& d) {
  const std::string_view key = file.words[0];
  // Order is free but for `units`, which any length needs.
  if (key == "name") {
    expect_new(file, !d.c.name.empty());
    expect_words(file, 2);
    d.c.name = file.words[1];
  } else if (key == "units") {
    // Given twice, the second unit would silently rescale only what follows it.
    expect_new(file, d.unit != 0);
    expect_words(file, 2);
    if (file.words[1] != "m" && file.words[1] != "mm") {
      chamber_fault(file, fmt::format("expected units m or mm, found {}", file.words[1]));
    }
    d.unit = file.words[1] == "m" ? 1 : 1e-3;
  } else if (key == "contour") {
    expect_new(file, d.c.contour.length != 0);
    d.c.contour = read_contour(file, d);
  } else if (key == "button") {
    read_button(file, d);
  } else if (key == "x_grid" || key == "y_grid") {
    grid_axis& axis = key == "x_grid" ? d.c.x : d.c.y;
    expect_new(file, axis.n != 0);
    axis = read_axis(file, d);
  } else if (key == "margin") {
    expect_new(file, d.has_margin);
    expect_words(file, 2);
    d.c.margin = positive_length(file, d, 1);
    d.has_margin = true;
  } else if (key == "solver") {
    expect_new(file, d.has_solver);
    read_solver(file, d.c.solver);
    d.has_solver = true;
  } else {
    chamber_fault(file, fmt::format("unknown key {}", key));
  }
}

// The first that is missing, in the order of the example files; the next run tells the next one.
std::string missing_key(const description& d) {
  if (d.c.name.empty()) return "name";
  if (d.unit == 0) return "units";
  if (d.c.contour.length == 0) return "contour";
  if (d.c.x.n == 0) return "x_grid";
  if (d.c.y.n == 0) return "y_grid";
  if (!d.has_margin) return "margin";
  for (std::size_t k = 0; k < 4; ++k) {
    if (d.button[k].line == 0) return fmt::format("button {}", k + 1);
  }
  return {};
}

// Which button overlaps one of a lower number, 1..4; 0 for none.
struct overlap {
  int first = 0, second = 0;
};

overlap find_overlap(const chamber& c) {
  for (std::size_t k = 0; k < 4; ++k) {
    for (std::size_t l = 0; l < k; ++l) {
      const double apart =
          // The short way around: the wall's beginning may lie between two buttons.
          std::abs(std::remainder(c.button[k].s - c.button[l].s, c.contour.length));
      // Buttons may touch: strips without a gap between them are a fair model.
      if (apart < c.button[k].half + c.button[l].half) {
        return {static_cast<int>(l) + 1, static_cast<int>(k) + 1};
      }
    }
  }
  return {};
}

// Moves the buttons onto the wall. They must have room there.
void place_buttons(word_file& file, description& d) {
  for (std::size_t k = 0; k < 4; ++k) {
    const asked_button& asked = d.button[k];
    const nearest_wall near = find_nearest(d.c.contour, asked.place);
    d.c.button[k] = {near.s, asked.width / 2, asked.shape, std::abs(near.distance)};
    // Either side of the wall counts: drawings round inward and outward.
    if (std::abs(near.distance) > most_moved) {
      file.line = asked.line;
      chamber_fault(
          file, fmt::format("button {} lies {:.3g} mm off the wall, expected at most {:g}", k + 1,
                            1e3 * std::abs(near.distance), 1e3 * most_moved));
    }
  }
  if (const overlap found = find_overlap(d.c); found.second != 0) {
    file.line = d.button[static_cast<std::size_t>(found.second) - 1].line;
    chamber_fault(file, overlap_of(d.c));
  }
}

// Half the size of the wall's box [m].
point half_size(const wall& w) {
  double x = 0, y = 0;
  for (const wall_sample& sample : w.sample) {
    x = std::max(x, std::abs(sample.z.real()));
    y = std::max(y, std::abs(sample.z.imag()));
  }
  return {x, y};
}

void describe(description& d) {
  chamber& c = d.c;
  // A circle begins on the x axis, so that arc length over radius is the angle from there.
  if (d.radius > 0) {
    c.round.emplace();
    c.round->radius = d.radius;
    for (std::size_t k = 0; k < 4; ++k) {
      // Between -pi and pi, as the closed form's own angles.
      c.round->middle[k] = std::remainder(c.button[k].s / d.radius, 2 * std::numbers::pi);
      c.round->half[k] = c.button[k].half / d.radius;
    }
  }
  // For people: a spline's size stands nowhere in its file.
  const point half = half_size(c.contour);
  c.about = fmt::format("{}, {:.4g} by {:.4g} mm", c.name, 2e3 * half.real(), 2e3 * half.imag());
}

chamber read_description(word_file& file) {
  if (std::string wrong = wrong_first_statement(file, "nonlin_bpm_chamber"); !wrong.empty()) {
    throw fault_at_end(file, wrong);
  }
  description d;
  for (;;) {
    if (!next_statement(file)) chamber_fault(file, "file ends without the word end");
    if (file.words[0] == "end" && file.words.size() == 1) break;
    read_statement(file, d);
  }
  // Asked in the order in which the documents list the keys; the first is enough.
  if (const std::string key = missing_key(d); !key.empty()) {
    chamber_fault(file, key + " is missing");
  }
  // Now, not when they are read: the contour may come after its buttons.
  place_buttons(file, d);
  if (next_statement(file)) chamber_fault(file, "text after the word end");
  describe(d);
  return d.c;
}

}  // namespace

std::string overlap_of(const chamber& c) {
  const overlap found = find_overlap(c);
  if (found.second == 0) return {};
  return fmt::format("buttons {} and {} overlap", found.first, found.second);
}

util::outcome<chamber> read_chamber(const std::string& name) {
  word_file file;
  if (auto wrong = open_words(file, name)) {
    return util::fault{wrong->what, "cannot open " + name, ""};
  }
  try {
    return read_description(file);
  } catch (const util::fault& wrong) {
    return wrong;
  }
}

util::outcome<chamber> parse_chamber(std::string_view text, const std::string& name) {
  word_file file;
  // Chambers that come with the program take the same way as files, with the same checks.
  open_text(file, text, name);
  try {
    return read_description(file);
  } catch (const util::fault& wrong) {
    return wrong;
  }
}

chamber default_chamber_at(std::size_t ix) {
  const auto& [name, text] = default_chambers.at(ix);
  auto made = parse_chamber(text, fmt::format("default chamber {}", name));
  if (!made) util::run_time_error(util::line_of(made.why));
  return *made;
}

std::size_t default_chamber_of(int ring_bpm) {
  // The ranges of nonlin_bpm_set_pointers; a test holds the two together.
  const auto within = [ring_bpm](int first, int last) {
    return ring_bpm >= first && ring_bpm <= last;
  };
  // The same stretches as the conversion has: beam and table must be of one chamber.
  if (within(48, 51)) return 0;                   // bpm_48
  if (within(1, 7) || within(93, 110)) return 2;  // bpm_tirsku
  return 1;                                       // bpm_arc
}

}  // namespace chamber_solver
