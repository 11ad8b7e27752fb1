// csv_text: the fields of our CSV files.
//
// RFC 4180, and narrower: a text never holds a comma, a quote, a hash or a line end, so that
// programs that know nothing of quotes or take # for a comment (awk -F, and numpy) read the same
// columns as those that do.
#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace report {

/// Appends a number: E exponent, 17 digits, so that reading gives the same bits; nothing for one
/// that is not finite.
void put_real(std::string& line, double value);

/// A text as it may stand in a field: commas become ";", double quotes "'",
/// hashes "_", control characters escapes; one that a spreadsheet would run as a formula gets "'"
/// in front.
std::string field_text(std::string_view text);

/// The fields of one line, quotes taken off.
/// returns  nothing when a quote is not closed, or has text behind it
bool split_fields(std::string_view line, std::vector<std::string>& fields);

}  // namespace report
