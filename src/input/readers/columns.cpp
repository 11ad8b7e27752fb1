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

/// The first line that is no comment, and the comment above it where it could be its header.
struct beginning {
  std::vector<std::string> fields;
  std::vector<std::string> above;  // as many, or none
};

// The column of this name, or of this number. A reading that happens to be the number of a column is
// no name of one.
std::optional<std::size_t> chosen_column(const beginning& first, const std::string& choice) {
  const std::string word = util::upcase(choice);
  for (const auto& names : {first.fields, first.above}) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (util::upcase(names[i]) == word && !is_number(names[i])) return i;
    }
  }
  const auto number = util::scan_integer(choice);
  if (!number || *number < 1 || std::cmp_greater(*number, first.fields.size())) return std::nullopt;
  return static_cast<std::size_t>(*number - 1);
}

// What was chosen, wherever the file has it: as names of a header or as numbers.
util::status take_choice(const util::text_file& file, const beginning& first,
                         const column_choice& choice, layout& found) {
  const auto missing = [&](const std::string& name) {
    return util::fault{
        fmt::format("no column {}", name), util::place_of(file),
        fmt::format("a name of the header, or a number up to {}", first.fields.size())};
  };
  for (std::size_t k = 0; k < choice.signals.size(); ++k) {
    const auto at = chosen_column(first, choice.signals[k]);
    if (!at) return missing(choice.signals[k]);
    // One reading for two buttons would be fitted as well as any, and mean nothing.
    if (std::find(found.signal.begin(), found.signal.end(), *at) != found.signal.end()) {
      return util::fault{fmt::format("column {} is chosen twice", choice.signals[k]),
                         util::place_of(file), "four different columns"};
    }
    found.signal.at(k) = *at;
  }
  if (choice.bpm.empty()) return {};
  const auto at = chosen_column(first, choice.bpm);
  if (!at) return missing(choice.bpm);
  found.bpm = *at;
  return {};
}

// The signals, and what tells the BPM, by the names that a header has for them.
util::status take_names(const util::text_file& file, const std::vector<std::string>& names,
                        layout& found) {
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto k = signal_named(names[i]);
    if (!k) continue;
    // Which of two was meant nobody can say.
    if (found.signal.at(*k) != none) {
      return util::fault{fmt::format("column {} is signal {} once more", names[i], *k + 1),
                         util::place_of(file), "each signal once"};
    }
    found.signal.at(*k) = i;
  }
  for (std::size_t k = 0; k < 4; ++k) {
    if (found.signal.at(k) == none) {
      return util::fault{fmt::format("no column of signal {}", k + 1), util::place_of(file),
                         "a header with BI, BO, TI, TO or b1 .. b4, or four columns chosen"};
    }
  }
  return {};
}

void take_name_of_bpm(const std::vector<std::string>& names, layout& found) {
  // Of two such columns, as number and name, the first: either tells BPMs apart.
  const auto at = std::find_if(names.begin(), names.end(), names_bpm);
  if (found.bpm == none && at != names.end()) {
    found.bpm = static_cast<std::size_t>(at - names.begin());
  }
}

// A header has a name where rows have a signal. Without a choice all columns are looked at: of five
// the first may be a BPM's name.
bool is_header(const std::vector<std::string>& fields, const layout& chosen) {
  if (chosen.signal[0] != none) {
    return !std::all_of(chosen.signal.begin(), chosen.signal.end(),
                        [&](std::size_t at) { return is_number(fields[at]); });
  }
  const std::size_t bpm = chosen.bpm == none && fields.size() == 5 ? 0 : chosen.bpm;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i != bpm && !is_number(fields[i])) return true;
  }
  return false;
}

bool names_four_signals(const std::vector<std::string>& names) {
  std::array<int, 4> times{};
  for (const std::string& name : names) {
    if (const auto k = signal_named(name)) ++times.at(*k);
  }
  return times == std::array{1, 1, 1, 1};
}

util::status take_rows_without_names(const util::text_file& file, layout& found) {
  if (found.fields == 5 && found.bpm == none) found.bpm = 0;
  // More columns without names could be anything, and a wrong guess would fit the wrong numbers.
  if (found.fields != (found.bpm == none ? 4U : 5U)) {
    return util::fault{fmt::format("found {} columns without a header", found.fields),
                       util::place_of(file),
                       "four signals, or a BPM and four signals, or four columns chosen"};
  }
  std::size_t at = 0;
  for (std::size_t& signal : found.signal) {
    if (at == found.bpm) ++at;
    signal = at++;
  }
  return {};
}

/// What the beginning says of all rows.
struct first_look {
  layout columns;
  bool header = false;  // the first line is no row
};

util::outcome<first_look> look_at(const util::text_file& file, const beginning& first,
                                  const column_choice& choice) {
  first_look found;
  layout& columns = found.columns;
  columns.fields = first.fields.size();
  if (auto wrong = take_choice(file, first, choice, columns)) return *wrong;
  const bool chosen = columns.signal[0] != none;
  found.header = is_header(first.fields, columns);
  // Numpy and others write their header as a comment. Names in another order than ours must count
  // there too: passed over they would be four signals in the wrong places.
  const bool named = found.header || chosen || names_four_signals(first.above);
  const auto& names = found.header ? first.fields : first.above;
  if (named) take_name_of_bpm(names, columns);
  if (chosen) return found;
  auto wrong = named ? take_names(file, names, columns) : take_rows_without_names(file, columns);
  if (wrong) return *wrong;
  return found;
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

util::outcome<std::vector<column_bpm>> read_columns(util::text_file& file,
                                                    const column_choice& choice) {
  std::optional<layout> columns;
  std::string comment;  // the last one before the first row
  char separator = ' ';
  collected all;
  while (util::next_line(file)) {
    std::string_view line = file.line;
    // Spreadsheets put a byte-order mark in front of what they save.
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (file.number == 1 && line.starts_with(mark)) line.remove_prefix(mark.size());
    line = stripped(line);
    if (line.empty()) continue;
    if (line[0] == '#') {
      if (!columns) comment = line.substr(1);
      continue;
    }
    if (!columns) separator = separator_of(line);
    const auto fields = fields_of(line, separator);
    if (!columns) {
      beginning first{fields, fields_of(comment, separator_of(comment))};
      if (first.above.size() != fields.size()) first.above.clear();
      const auto found = look_at(file, first, choice);
      if (!found) return found.why;
      columns = found->columns;
      if (found->header) continue;
    }
    if (auto wrong = take_row(file, *columns, fields, all)) return *wrong;
  }
  if (file.trouble) return *file.trouble;
  if (all.bpms.empty()) return util::fault{"no rows", file.path, "columns of four signals"};
  return std::move(all.bpms);
}

}  // namespace input
