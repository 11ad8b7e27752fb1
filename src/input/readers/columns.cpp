#include "columns.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "list_io.hpp"
#include "text.hpp"

namespace input {
namespace {

constexpr std::size_t none = static_cast<std::size_t>(-1);
// The CR because files of other systems end their lines in CR LF: it would be part of the last
// field.
constexpr std::string_view blanks = " \t\r";

/// Which columns are what.
struct layout {
  std::array<std::size_t, 4> signal{none, none, none, none};
  std::size_t bpm = none;
  std::size_t fields = 0;  // of every row
};

std::string_view stripped(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Up to the separator, which is not one within quotes; a doubled quote stands for one.
std::string take_field(std::string_view& rest, char separator) {
  std::string field;
  bool quoted = false;
  std::size_t i = 0;
  for (; i < rest.size() && (quoted || rest[i] != separator); ++i) {
    if (rest[i] != '"') {
      field += rest[i];
    } else if (quoted && i + 1 < rest.size() && rest[i + 1] == '"') {
      field += rest[++i];
    } else {
      quoted = !quoted;
    }
  }
  rest.remove_prefix(std::min(i, rest.size()));
  // Blanks beside a separator are padding, as of columns set right.
  return std::string{stripped(field)};
}

// Blanks in a row are one separator, commas in a row have empty fields between them.
std::vector<std::string> fields_of(std::string_view line, char separator) {
  std::vector<std::string> fields;
  std::string_view rest = stripped(line);
  if (separator != ' ') {
    // Nothing behind the last separator is a field too: the number of fields is what tells a broken
    // row.
    for (;;) {
      fields.push_back(take_field(rest, separator));
      if (rest.empty()) return fields;
      rest.remove_prefix(1);
    }
  }
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find_first_of(blanks), rest.size());
    fields.emplace_back(rest.substr(0, end));
    rest.remove_prefix(end);
    rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
  }
  return fields;
}

// A comma counts first: semicolons and blanks may stand within the names of a file with commas.
char separator_of(std::string_view line) {
  if (line.find(',') != std::string_view::npos) return ',';
  return line.find(';') != std::string_view::npos ? ';' : ' ';
}

// What an archive writes for a reading that is missing: the number scanner refuses these words.
bool is_missing(const std::string& field) {
  std::string word = util::upcase(field);
  // Of either sign: which way a reading overflowed makes it no more of a reading.
  if (!word.empty() && (word[0] == '+' || word[0] == '-')) word.erase(0, 1);
  return word.empty() || word == "NAN" || word == "INF" || word == "INFINITY";
}

bool is_number(const std::string& field) { return is_missing(field) || util::scan_real(field); }

// The signal that a name stands for, 0..3.
std::optional<std::size_t> signal_named(const std::string& name) {
  const std::string word = util::upcase(name);
  // The order of the buttons in all our files, which b1 .. b4 count along.
  constexpr std::array<std::string_view, 4> places{"BI", "BO", "TI", "TO"};
  for (std::size_t k = 0; k < places.size(); ++k) {
    if (word == places[k]) return k;
  }
  for (const std::string_view begin : {"BUTTON", "SIGNAL", "BUT", "B"}) {
    if (!word.starts_with(begin)) continue;
    // One digit and nothing else: "B5" or "BUTTONS" is some other column, and is passed over.
    std::string_view rest = std::string_view{word}.substr(begin.size());
    if (rest.starts_with('_')) rest.remove_prefix(1);
    if (rest.size() == 1 && rest[0] >= '1' && rest[0] <= '4') {
      return static_cast<std::size_t>(rest[0] - '1');
    }
  }
  return std::nullopt;
}

bool names_bpm(const std::string& name) {
  const std::string word = util::upcase(name);
  return word == "BPM" || word == "NAME" || word == "LOCATION" || word == "DEVICE";
}

util::outcome<layout> layout_of_header(const util::text_file& file,
                                       const std::vector<std::string>& names) {
  layout found;
  found.fields = names.size();
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (const auto k = signal_named(names[i])) {
      // Which of two was meant nobody can say.
      if (found.signal.at(*k) != none) {
        return util::fault{fmt::format("column {} is signal {} once more", names[i], *k + 1),
                           util::place_of(file), "each signal once"};
      }
      found.signal.at(*k) = i;
    } else if (names_bpm(names[i]) && found.bpm == none) {
      // Of two such columns, as number and name, the first: either tells BPMs apart.
      found.bpm = i;
    }
  }
  for (std::size_t k = 0; k < 4; ++k) {
    if (found.signal.at(k) == none) {
      return util::fault{fmt::format("no column of signal {}", k + 1), util::place_of(file),
                         "a header with BI, BO, TI, TO or b1 .. b4"};
    }
  }
  return found;
}

util::outcome<layout> layout_of_rows(const util::text_file& file, std::size_t fields) {
  // More columns without names could be anything, and a wrong guess would fit the wrong numbers.
  if (fields != 4 && fields != 5) {
    return util::fault{fmt::format("found {} columns without a header", fields),
                       util::place_of(file), "four signals, or a BPM and four signals"};
  }
  layout found;
  found.fields = fields;
  const std::size_t first = fields - 4;
  if (first == 1) found.bpm = 0;
  for (std::size_t k = 0; k < 4; ++k) found.signal.at(k) = first + k;
  return found;
}

// A header has a name where rows have a signal; of five columns the first may be a BPM's name.
bool is_header(const std::vector<std::string>& fields) {
  const auto first = fields.begin() + (fields.size() == 5 ? 1 : 0);
  return !std::all_of(first, fields.end(), is_number);
}

/// The BPMs so far, and where each stands.
struct collected {
  std::vector<column_bpm> bpms;
  std::map<std::string, std::size_t> place;
};

util::status take_row(const util::text_file& file, const layout& columns,
                      const std::vector<std::string>& fields, collected& all) {
  // A row that was cut short is refused, not filled up: its numbers may stand in other columns.
  if (fields.size() != columns.fields) {
    return util::fault{fmt::format("found {} fields", fields.size()), util::place_of(file),
                       fmt::format("{} as in the first line", columns.fields)};
  }
  std::array<double, 4> signals{};
  bool complete = true;
  for (std::size_t k = 0; k < 4; ++k) {
    const std::string& field = fields[columns.signal.at(k)];
    const auto value = util::scan_real(field);
    if (!value && !is_missing(field)) {
      return util::fault{fmt::format("found \"{}\"", field), util::place_of(file),
                         fmt::format("signal {} as a number", k + 1)};
    }
    complete = complete && value.has_value();
    // The 0 is never looked at: such a row is left out below.
    signals.at(k) = value.value_or(0);
  }
  const std::string name = columns.bpm == none ? std::string{} : fields[columns.bpm];
  // By name: a file that is written orbit by orbit has its BPMs in turn, not one behind the other.
  const auto [found, is_new] = all.place.try_emplace(name, all.bpms.size());
  if (is_new) all.bpms.push_back({name, {}, 0});
  // Also one without a complete row: how many were left out is all that there is to tell of it.
  column_bpm& bpm = all.bpms[found->second];
  if (complete) {
    bpm.signals.push_back(signals);
  } else {
    ++bpm.left_out;
  }
  return {};
}

}  // namespace

util::outcome<std::vector<column_bpm>> read_columns(util::text_file& file) {
  std::optional<layout> columns;
  char separator = ' ';
  collected all;
  while (util::next_line(file)) {
    std::string_view line = file.line;
    // Spreadsheets put a byte-order mark in front of what they save.
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (file.number == 1 && line.starts_with(mark)) line.remove_prefix(mark.size());
    line = stripped(line);
    if (line.empty() || line[0] == '#') continue;
    if (!columns) separator = separator_of(line);
    const auto fields = fields_of(line, separator);
    if (!columns) {
      const bool header = is_header(fields);
      auto made = header ? layout_of_header(file, fields) : layout_of_rows(file, fields.size());
      if (!made) return made.why;
      columns = *made;
      if (header) continue;
    }
    if (auto wrong = take_row(file, *columns, fields, all)) return *wrong;
  }
  if (file.trouble) return *file.trouble;
  if (all.bpms.empty()) return util::fault{"no rows", file.path, "columns of four signals"};
  return std::move(all.bpms);
}

}  // namespace input
