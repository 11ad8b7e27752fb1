#include "turn_by_turn.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "gain_fit_mod.hpp"
#include "get_turn_by_turn.hpp"
#include "in4get.hpp"
#include "list_io.hpp"
#include "orbit_store.hpp"
#include "terminal.hpp"

namespace driver {
namespace {

namespace fit = gain_fit_mod;

constexpr int last_bpm_visited = 120;  // of the ring; text runs may hold more, and are told so
// Far above what the store holds, whose own bound stops the run first. Kept for compatibility.
constexpr int most_orbits_counted = 300000;

// The data sets so far, while the next one is read into orbit_data.
store::orbit_store orbit_data_save{"orbit_data_save"};
int n_so_far = 0;  // orbits in it

// The new orbits of one BPM behind those it has already.
void append_bpm(int bpm, int norbits) {
  const bool has_new = fit::orbit_data.holds(bpm);
  if (!has_new && !orbit_data_save.holds(bpm)) return;
  const auto end = orbit_data_save.edit_column(bpm, n_so_far + norbits);
  const auto behind = end.subspan(static_cast<std::size_t>(n_so_far));
  if (has_new) {
    const auto from = fit::orbit_data.column(bpm, norbits);
    std::copy(from.begin(), from.end(), behind.begin());
  } else {
    // What an earlier set had beyond its norbits does not belong here.
    std::fill(behind.begin(), behind.end(), store::bpm_struct{});
  }
}

// The data set just read goes behind those before it.
void append_data_set(int norbits) {
  if (n_so_far + norbits > store::max_orbits) {
    util::subscript_error(orbit_data_save.name, store::max_orbits + 1, 1, store::max_orbits);
  }
  for (int orbit = 1; orbit <= norbits; ++orbit) {
    orbit_data_save.edit_current(n_so_far + orbit) = fit::orbit_data(orbit).current();
  }
  // The first set is moved, not copied: most sessions have one, and its columns are the memory.
  if (n_so_far == 0) orbit_data_save.columns.clear();
  for (int bpm = 0; bpm <= store::max_bpm; ++bpm) {
    if (n_so_far == 0) {
      if (fit::orbit_data.holds(bpm)) orbit_data_save.take_column(fit::orbit_data, bpm);
    } else {
      append_bpm(bpm, norbits);
    }
  }
  n_so_far += norbits;
}

// From here on everything reads orbit_data.
void hand_over() {
  fit::orbit_data.clear();
  for (int bpm = 0; bpm <= store::max_bpm; ++bpm) {
    if (orbit_data_save.holds(bpm)) fit::orbit_data.take_column(orbit_data_save, bpm);
  }
  fit::orbit_data.current_of = orbit_data_save.current_of;
  orbit_data_save.clear();
}

// What the data set just read says about the electronics; nan where it says nothing.
std::vector<report::four> coefficients_told() {
  std::vector<report::four> told(last_bpm_visited + 1, report::unknown_four);
  for (int bpm = 0; bpm <= last_bpm_visited; ++bpm) {
    for (int k = 1; k <= 4; ++k) {
      const double coefficient = fit::gain_coefficient(k, bpm);
      if (coefficient != 0) {
        told[static_cast<std::size_t>(bpm)][static_cast<std::size_t>(k) - 1] = coefficient;
      }
    }
  }
  return told;
}

// Reads one data set and appends it; false when there is no room to count more.
bool add_data_set(session_state& s) {
  // The question promises 0 as its default, for every data set.
  s.max_nonlin_positions = 0;
  input::in4get(" Compute positions (x,y) using nonlin BPM for N orbits (def N=0) ",
                s.max_nonlin_positions);
  input::get_turn_by_turn(s.directory, s.max_nonlin_positions);
  s.rd_files(++s.files_so_far) = fit::in_file_0.trimmed();
  s.data_sets.push_back(fit::rd_number > 0 ? fmt::format("run {}", fit::rd_number)
                                           : std::string{fit::in_file_0.trimmed()});
  s.bpm_count = last_bpm_visited;
  util::print_line(util::list_line().text(" Norbits = ").integer(fit::norbits).str());
  util::print_line(
      util::list_line().text(" Number of orbits so far ").integer(n_so_far + fit::norbits).str());
  if (n_so_far + fit::norbits > most_orbits_counted) return false;
  s.sets.push_back({.first = n_so_far,
                    .pedestals_known = fit::pedestals_subtracted,
                    .divided = fit::gain_correct == 3,
                    .coefficient = coefficients_told()});
  append_data_set(fit::norbits);
  s.norbits_save = n_so_far;
  return true;
}

}  // namespace

void load_turn_by_turn(session_state& s) {
  // Only a lower-case n ends it: kept for compatibility.
  while (add_data_set(s) && util::ask_letter(" Another RD file ? (y/n) ") != 'n') {
  }
  hand_over();
}

}  // namespace driver
