// command_file: which closed orbits to read, and which BPMs to offer.
//
// A command file is one of two things, told apart by its first line:
//   - a namelist file, group &bpm_gain_anal_params: orbit numbers and the BPMs offered for fitting;
//   - a list file, as response measurements leave them: pairs of orbit numbers with their results.
// Both are laid out in docs/orbit_data.md.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "bounded.hpp"
#include "fault.hpp"

namespace input {

inline constexpr int max_listed = 1000;  ///< places of the orbit list

using orbit_list = util::bounded<std::int32_t, 1, max_listed, "orbit">;  ///< numbers; 0 is no orbit
using bpm_list = util::bounded<std::int32_t, 0, 100, "fit_bpm_idx">;     ///< BPMs; -1 is no BPM

/// What a namelist file says.
struct command {
  bpm_list fit_bpm_idx{};
  bool read_current_from_butns_file = false;
  std::int32_t sigma_cutoff = 0;  ///< the cut levels are read and not used
  std::int32_t chisq_cutoff = 0;
  orbit_list orbit{};
};

/// What a list file says.
struct orbit_pairs {
  std::vector<std::int32_t> orbits;   ///< both numbers of every pair, in order
  std::vector<util::fault> left_out;  ///< lines that are no pair, key or comment
  util::status fault;                 ///< what ended the reading: trouble with it, a 501st pair
};

enum class command_kind { group, list };

/// Which of the two a file is. Only the first line tells: a file with a title above the group is
/// taken for a list.
util::outcome<command_kind> kind_of_command(const std::string& path);

/// Reads the group. Members that it does not name keep what `wanted` holds, except that all of
/// fit_bpm_idx begins at -1. A fault leaves what was read before it.
[[nodiscard]] util::status read_command_group(const std::string& path, command& wanted);

/// Reads a list file.
orbit_pairs read_orbit_pairs(const std::string& path);

}  // namespace input
