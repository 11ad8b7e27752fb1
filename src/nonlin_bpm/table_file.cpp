#include "table_file.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "table_cells.hpp"

namespace nonlin_bpm_mod {
namespace {

constexpr int n_columns = 12;  // three for each button
// Squared misfit of the slopes, relative: by half at one node (a slip of the pen), by a tenth over
// the table (wrong unit, exchanged columns). The tables of the default chambers stay below both.
constexpr double node_misfit = 0.25;
constexpr double table_misfit = 0.01;
// The nearest double, other than the widened single that offsets are converted with.
constexpr double metres_per_mm = 0.001;

// One list serves reading, the count of words, and the question what is missing.
/// Which keys the header has given, and what it said of units.
struct header_seen {
  struct key {
    std::string_view name;
    std::size_t words;  // in its statement
    bool needed;
    int line = 0;  // 0: not given
  };
  std::array<key, 6> keys{{{"name", 2, true},
                           {"origin", 2, false},
                           {"units", 2, true},
                           {"x_grid", 4, true},
                           {"y_grid", 4, true},
                           {"columns", 4, true}}};
  double unit = 1;  // metres
};

// The key that begins the statement must be known, new and with the right number of words.
util::status take_key(const word_file& file, header_seen& seen) {
  const std::string_view word = file.words[0];
  const auto key = std::find_if(seen.keys.begin(), seen.keys.end(),
                                [word](const header_seen::key& k) { return k.name == word; });
  // A key that nobody knows is more likely a misspelt one than one to be passed over.
  if (key == seen.keys.end()) return fault_here(file, fmt::format("UNKNOWN KEY {}", word));
  if (key->line != 0) {
    return fault_here(file, fmt::format("KEY {} WAS GIVEN BEFORE, IN LINE {},", word, key->line));
  }
  if (file.words.size() != key->words) {
    return fault_here(file, fmt::format("EXPECTED {} WORDS AFTER {}, FOUND {}", key->words - 1,
                                        word, file.words.size() - 1));
  }
  key->line = file.line;
  return {};
}

util::status read_axis(const word_file& file, grid_axis& axis) {
  const auto n = integer_at(file, 1);
  const auto first = real_at(file, 2);
  const auto last = real_at(file, 3);
  if (!n || *n < min_grid || *n > max_grid) {
    return fault_here(file, fmt::format("EXPECTED A GRID COUNT {}..{}, FOUND {}", min_grid,
                                        max_grid, file.words[1]));
  }
  if (!first || !last) return fault_here(file, "EXPECTED FIRST AND LAST GRID POSITION AS NUMBERS");
  if (!(*first < *last)) return fault_here(file, "EXPECTED AN ASCENDING GRID");
  axis = {*n, *first, *last};
  return {};
}

// Told with the key's own line, because only the whole header has the unit.
util::status check_extent(word_file& file, const header_seen::key& key, const grid_axis& axis) {
  const double extent = axis.last - axis.first;
  if (extent >= min_extent && extent <= max_extent) return {};
  file.line = key.line;
  return fault_here(file,
                    fmt::format("EXPECTED A GRID BETWEEN 1 MM AND 1 M WIDE, FOUND {} M", extent));
}

util::status read_statement(const word_file& file, std::string_view expected, header_seen& seen,
                            table_nodes& nodes) {
  if (auto wrong = take_key(file, seen)) return wrong;
  const std::string_view key = file.words[0];
  const std::string_view value = file.words[1];
  if (key == "name") {
    // A table copied to another's file name would give positions that are plausible and wrong.
    nodes.name = value;
    if (!expected.empty() && value != expected) {
      return fault_here(file, fmt::format("EXPECTED TABLE NAME {}, FOUND {}", expected, value));
    }
  } else if (key == "units") {
    if (value != "m" && value != "mm") {
      return fault_here(file, fmt::format("EXPECTED UNITS m OR mm, FOUND {}", value));
    }
    seen.unit = value == "m" ? 1 : metres_per_mm;
  } else if (key == "x_grid") {
    return read_axis(file, nodes.x);
  } else if (key == "y_grid") {
    return read_axis(file, nodes.y);
  } else if (key == "columns") {
    if (value != "phi" || file.words[2] != "dphi_dx" || file.words[3] != "dphi_dy") {
      return fault_here(file, "EXPECTED COLUMNS phi dphi_dx dphi_dy");
    }
  }
  return {};
}

// Everything up to `data`. Afterwards lengths are metres. Returns the unit of the slopes.
util::outcome<double> read_header(word_file& file, std::string_view expected, table_nodes& nodes) {
  header_seen seen;
  for (;;) {
    if (!next_words(file)) return fault_at_end(file, "FILE ENDS BEFORE THE WORD data");
    if (file.words[0] == "data" && file.words.size() == 1) break;
    if (auto wrong = read_statement(file, expected, seen, nodes)) return *wrong;
  }
  for (const auto& key : seen.keys) {
    if (key.needed && key.line == 0) {
      return fault_here(file, fmt::format("KEY {} IS MISSING", key.name));
    }
  }
  // Not while reading: the keys may come in any order, the unit last.
  for (grid_axis* axis : {&nodes.x, &nodes.y}) {
    axis->first *= seen.unit;
    axis->last *= seen.unit;
  }
  if (auto wrong = check_extent(file, seen.keys[3], nodes.x)) return *wrong;
  if (auto wrong = check_extent(file, seen.keys[4], nodes.y)) return *wrong;
  return seen.unit;
}

// Reads the numbers of the node in hand; `node` is what becomes of them.
util::status read_node(const word_file& file, double unit, table_node& node) {
  node.line = file.line;
  if (file.words.size() == 3 && file.words[2] == "out") return {};
  node.out = false;
  if (file.words.size() != 2 + n_columns) {
    return fault_here(file, fmt::format("EXPECTED {} VALUES OR THE WORD out, FOUND {}", n_columns,
                                        file.words.size() - 2));
  }
  std::size_t place = 2;
  for (std::size_t k = 0; k < 4; ++k) {
    // In the order of the words, so that a fault names the first bad one.
    for (double* const value : {&node.phi[k], &node.dphi_dx[k], &node.dphi_dy[k]}) {
      const auto number = real_at(file, place);
      if (!number) {
        return fault_here(file, fmt::format("EXPECTED A NUMBER, FOUND {}", file.words[place]));
      }
      *value = *number;
      ++place;
    }
    node.dphi_dx[k] /= unit;  // slopes are per length: the unit divides
    node.dphi_dy[k] /= unit;
    if (!(node.phi[k] > 0)) {
      return fault_here(file, fmt::format("EXPECTED A SIGNAL ABOVE 0 FOR BUTTON {}, FOUND {}",
                                          k + 1, file.words[place - 3]));
    }
  }
  return {};
}

util::status read_data(word_file& file, double unit, table_nodes& nodes) {
  for (int iy = 1; iy <= nodes.y.n; ++iy) {
    for (int ix = 1; ix <= nodes.x.n; ++ix) {
      if (!next_words(file)) {
        return fault_at_end(file, fmt::format("FILE ENDS BEFORE NODE {} {}", ix, iy));
      }
      // Every node says which it is: a line lost or doubled shows where it happens, not at the end.
      if (file.words.size() < 2 || integer_at(file, 0) != ix || integer_at(file, 1) != iy) {
        return fault_here(file, fmt::format("EXPECTED NODE {} {}", ix, iy));
      }
      if (auto wrong = read_node(file, unit, nodes.node.emplace_back())) return wrong;
    }
  }
  if (!next_words(file)) return fault_at_end(file, "FILE ENDS WITHOUT THE WORD end");
  if (file.words.size() != 1 || file.words[0] != "end") {
    return fault_here(file, "EXPECTED THE WORD end");
  }
  // Two tables in one file: one of them would go unread.
  if (next_words(file)) return fault_here(file, "TEXT AFTER THE WORD end");
  return file.file.trouble;
}

/// Squared differences between slopes and central differences of the values, and squared slopes.
struct slope_misfit {
  double misfit = 0, size = 0;
};

// Central differences are off by the square of the pitch: hence limits far above rounding.
slope_misfit misfit_at(const table_nodes& nodes, int ix, int iy) {
  slope_misfit m;
  const table_node& node = nodes.at(ix, iy);
  for (std::size_t k = 0; k < 4; ++k) {
    const double by_x =
        (nodes.at(ix + 1, iy).phi[k] - nodes.at(ix - 1, iy).phi[k]) / (2 * nodes.x.step());
    const double by_y =
        (nodes.at(ix, iy + 1).phi[k] - nodes.at(ix, iy - 1).phi[k]) / (2 * nodes.y.step());
    m.misfit += std::pow(by_x - node.dphi_dx[k], 2) + std::pow(by_y - node.dphi_dy[k], 2);
    m.size += std::pow(node.dphi_dx[k], 2) + std::pow(node.dphi_dy[k], 2);
  }
  return m;
}

util::outcome<table_nodes> read_nodes(word_file& file, std::string_view expected) {
  if (std::string wrong = wrong_first_statement(file, "nonlin_bpm_table"); !wrong.empty()) {
    return fault_at_end(file, wrong);
  }
  table_nodes nodes;
  const auto unit = read_header(file, expected, nodes);
  if (!unit) return unit.why;
  if (auto wrong = read_data(file, *unit, nodes)) return *wrong;
  int line = 0;
  if (std::string wrong = wrong_slopes(nodes, line); !wrong.empty()) {
    if (line != 0) file.line = line;
    return fault_here(file, wrong);
  }
  return nodes;
}

}  // namespace

// Wrong units of slopes, swapped columns and single wrong numbers show in the differences. The node
// with the largest misfit is named.
std::string wrong_slopes(const table_nodes& nodes, int& line) {
  slope_misfit total;
  double worst = 0;
  line = 0;
  for (int iy = 2; iy < nodes.y.n; ++iy) {
    for (int ix = 2; ix < nodes.x.n; ++ix) {
      if (!nodes.usable(ix, iy) || !nodes.usable(ix - 1, iy) || !nodes.usable(ix + 1, iy) ||
          !nodes.usable(ix, iy - 1) || !nodes.usable(ix, iy + 1)) {
        continue;
      }
      const slope_misfit m = misfit_at(nodes, ix, iy);
      total.misfit += m.misfit;
      total.size += m.size;
      // A product instead of a quotient: slopes of zero are legal to write and make the worst misfit.
      if (m.misfit > worst * m.size) {
        worst = m.size > 0 ? m.misfit / m.size : HUGE_VAL;
        line = nodes.at(ix, iy).line;
      }
    }
  }
  const bool wrong = worst > node_misfit || total.misfit > table_misfit * total.size;
  return wrong ? "SLOPES DO NOT GO WITH THE VALUES" : "";
}

util::outcome<table_nodes> read_table_nodes(const std::string& name, std::string_view expected) {
  word_file file;
  if (auto wrong = open_words(file, name)) return *wrong;
  return read_nodes(file, expected);
}

util::outcome<table_struct> read_table(word_file& file, std::string_view expected) {
  const auto nodes = read_nodes(file, expected);
  if (!nodes) return nodes.why;
  table_struct table;
  // With the last line, the end of the table: what is wrong with it as a whole stands in no other.
  if (std::string wrong = build_table(*nodes, table); !wrong.empty()) {
    return fault_here(file, wrong);
  }
  return table;
}

util::outcome<table_struct> read_table_file(const std::string& name, std::string_view expected) {
  word_file file;
  if (auto wrong = open_words(file, name)) return *wrong;
  return read_table(file, expected);
}

}  // namespace nonlin_bpm_mod
