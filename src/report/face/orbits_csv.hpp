// orbits.csv: one line for every kept orbit of every fitted BPM, for programs. Fields as in
// gains.csv.
#pragma once
#include <string>
#include <vector>

#include "fault.hpp"
#include "run_results.hpp"

namespace report {

/// Writes it whole or not at all, BPM by BPM: a large run has a hundred megabytes.
/// errors   a file that cannot be written: the fault, with the system's reason
util::status write_orbits_csv(const std::string& path, const std::vector<bpm_row>& rows);

}  // namespace report
