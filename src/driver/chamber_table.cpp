#include "chamber_table.hpp"

#include <string_view>
#include <utility>

#include "chamber_file.hpp"
#include "nonlin_bpm_mod.hpp"
#include "table_file.hpp"
#include "table_maker.hpp"
#include "text.hpp"
#include "text_file.hpp"

namespace driver {
namespace {

// What the simulator's synthetic series are made with too: a pipe in between those of most rings.
// The table ends where beams of synthetic series do; widths are 12 degrees to either side.
constexpr std::string_view round_pipe = R"(nonlin_bpm_chamber 1
name round_45mm
units mm
contour circle 45
button 1 -31.8198051534 -31.8198051534 18.8495559215 strip
button 2 31.8198051534 -31.8198051534 18.8495559215 strip
button 3 -31.8198051534 31.8198051534 18.8495559215 strip
button 4 31.8198051534 31.8198051534 18.8495559215 strip
x_grid 61 -30 30
y_grid 61 -30 30
margin 4
end
)";

// The first word that is not in a comment; nothing where there is none, no file, or a read that
// fails: the reader of chambers, who comes next, tells why.
std::string first_word(const std::string& path) {
  auto file = util::open_text_file(path);
  while (file && util::next_line(*file)) {
    const std::string_view line{file->line};
    const std::string_view text = util::trim(line.substr(0, line.find('#')));
    if (!text.empty()) return std::string{text.substr(0, text.find_first_of(" \t\r"))};
  }
  return {};
}

}  // namespace

util::outcome<stand_in_table> read_chamber_or_table(const std::string& path) {
  stand_in_table made{{}, path, true};  // given: the operator vouches for it
  const std::string kind = first_word(path);
  if (kind == "nonlin_bpm_table") {
    auto table = nonlin_bpm_mod::read_table_file(path, "");
    if (!table) return table.why;
    made.table = std::move(*table);
    return made;
  }
  // Also what is no chamber at all: its reader says what is wrong with it.
  const auto chamber = chamber_solver::read_chamber(path);
  if (!chamber) return chamber.why;
  auto table = chamber_solver::table_of(*chamber);
  if (!table) return table.why;
  made.table = std::move(*table);
  return made;
}

stand_in_table round_pipe_table() {
  const auto pipe = chamber_solver::parse_chamber(round_pipe, "round pipe");
  return {std::move(*chamber_solver::table_of(*pipe)), "a round pipe of 45 mm radius", false};
}

bpm_table site_table_of(int bpm) {
  if (bpm < 1 || bpm > nonlin_bpm_mod::max_bpm) return {};
  // The choice of the position conversion, so that positions and calibration use one table.
  nonlin_bpm_mod::nonlin_bpm_set_pointers(bpm);
  return {nonlin_bpm_mod::func_bpm, true};
}

}  // namespace driver
