// gains.csv: one line for every BPM that the data hold, for programs (RFC 4180, E exponents, 17
// digits, an empty field where a value is not known).
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "fault.hpp"
#include "run_results.hpp"

namespace report {

/// The words of gains.csv: "determined", "weak", "suspect", "not determined", "not fitted".
std::string_view text_of(verdict word);

/// The whole file as text, header line first.
std::string gains_csv_text(const std::vector<bpm_row>& rows);

/// Writes it whole or not at all.
/// errors   a file that cannot be written: the fault, with the system's reason
util::status write_gains_csv(const std::string& path, const std::vector<bpm_row>& rows);

/// Reads a file that write_gains_csv made; columns are found by name, unknown ones passed over.
/// errors   cannot be opened; a column missing; a line with a field that is no number or a word
///          that is no verdict: the fault with file and line
util::outcome<std::vector<bpm_row>> read_gains_csv(const std::string& path);

}  // namespace report
