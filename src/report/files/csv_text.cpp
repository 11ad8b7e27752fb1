#include "csv_text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include "text.hpp"

namespace report {

void put_real(std::string& line, double value) {
  // 17 digits bring every double back bit for bit. nan and inf have as many spellings as there are
  // readers; an empty field is understood by all.
  if (std::isfinite(value)) fmt::format_to(std::back_inserter(line), "{:.16E}", value);
}

std::string field_text(std::string_view text) {
  // Names come from files that anyone may have written, and a spreadsheet runs what begins so.
  constexpr std::string_view runs = "=+-@";
  std::string field = util::shown(text);
  for (char& c : field) {
    if (c == ',') c = ';';
    if (c == '"') c = '\'';
    if (c == '#') c = '_';
  }
  // Behind blanks too: some spreadsheets drop them before they look.
  const auto first = field.find_first_not_of(' ');
  if (first != std::string::npos && runs.find(field[first]) != std::string_view::npos) {
    field.insert(0, 1, '\'');
  }
  return field;
}

bool split_fields(std::string_view line, std::vector<std::string>& fields) {
  fields.clear();
  for (std::size_t at = 0;; ++at) {
    std::string field;
    if (at < line.size() && line[at] == '"') {
      for (++at;; ++at) {
        // A line end inside quotes is not ours: text fields never hold one, so the quote was not
        // closed.
        if (at >= line.size()) return false;
        if (line[at] == '"' && (++at >= line.size() || line[at] != '"')) break;
        field += line[at];
      }
      // Text behind a closed quote has no one meaning, and readers differ in it.
      if (at < line.size() && line[at] != ',') return false;
    } else {
      const std::size_t end = std::min(line.find(',', at), line.size());
      field = line.substr(at, end - at);
      at = end;
    }
    fields.push_back(std::move(field));
    if (at >= line.size()) return true;
  }
}

}  // namespace report
