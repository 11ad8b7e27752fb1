#include "multipliers.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "bounded.hpp"
#include "fault.hpp"
#include "file_answer.hpp"
#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "list_io.hpp"
#include "run_time.hpp"
#include "terminal.hpp"
#include "text.hpp"

namespace expert {
namespace {

namespace fit = gain_fit_mod;

std::string def_arb_name = "manual_gain_set.dat";  // the last answer is the next default
util::bounded<int, 0, 5000, "arb_but"> arb_but{};  // BPM index of each line of the last file

// A mark in one of the first five columns; one further on stands behind the numbers of its line and
// is never reached by the reader of the list.
bool is_comment(const std::string& line) {
  constexpr std::size_t columns = 5;
  return line.substr(0, columns).find('!') != std::string::npos;
}

util::unit_handle open_multipliers(std::string& path) {
  for (;;) {
    util::print_line(" file_name = " + def_arb_name);
    const std::string answer = util::ask_or_end(
        " Manual gain set file ? (def = " + def_arb_name + ")", util::answer_kind::file);
    if (!util::trim(answer).empty()) def_arb_name = util::trim(answer);
    const auto named = input::path_of_answer(def_arb_name, std::string::npos);
    if (!named) {
      util::print_line(" " + util::shown(line_of(named.why)));
      continue;
    }
    util::unit_handle file{util::lunget()};
    path = *named;
    const int failed = util::open_old(file.number(), path);
    if (failed == 0) return file;
    util::print_line(fmt::format(" cannot open {}: {}", path, util::system_text(failed)));
  }
}

// One line into arb_gain; returns its BPM.
int take_multipliers(const std::string& text, const std::string& path, int line) {
  util::list_record record;
  util::start_record(record, text);
  const std::optional<std::int32_t> bpm = util::take_int(record);
  for (int j = 1; j <= 4; ++j) {
    // Put in as it is read: what a faulty line leaves half done is never used, for the run ends.
    const auto multiplier = util::take_real(record);
    if (!bpm || !multiplier) {
      util::run_time_error(
          fmt::format("{}:{}: expected a BPM index and four multipliers, found \"{}\"", path, line,
                      util::shown(text)));
    }
    fit::arb_gain(j, *bpm) = *multiplier;
  }
  return *bpm;
}

// Returns how many BPMs were listed.
int read_multipliers() {
  std::string path;
  const util::unit_handle file = open_multipliers(path);
  int listed = 0;
  std::string text;
  constexpr int most_lines = 5001;  // one for each BPM index 0..5000
  for (int line = 1; line <= most_lines && util::read_line(file.number(), text); ++line) {
    // Echoed before it is understood: the transcript shows the line that a fault is about.
    util::print_line(" " + text);
    if (is_comment(text) || util::trim(text).empty()) continue;
    arb_but(listed++) = take_multipliers(text, path, line);
  }
  return listed;
}

}  // namespace

void ask_multipliers() {
  const std::string answer = util::ask_or_end(" Read file of arbitrary multipliers ? ");
  // Only a plain yes: gains changed by a stray answer would look like gains that were measured.
  const auto word = util::trim(answer);
  if (word != "y" && word != "Y") return;
  const int listed = read_multipliers();
  for (int i = 0; i < listed; ++i) {
    const int bpm = arb_but(i);
    // A BPM listed twice is multiplied once, by what its last line says.
    if (std::find(arb_but.item.begin(), arb_but.item.begin() + i, bpm) !=
        arb_but.item.begin() + i) {
      continue;
    }
    // Asking a BPM without readings for its column would make one, full of zeros.
    if (!fit::orbit_data.holds(bpm)) continue;
    for (store::bpm_struct& orbit : fit::orbit_data.edit_column(bpm, fit::norbits)) {
      for (int j = 1; j <= 4; ++j) orbit.button(j) *= fit::arb_gain(j, bpm);
    }
  }
  util::print_line(" arbitrary multipliers applied");
}

}  // namespace expert
