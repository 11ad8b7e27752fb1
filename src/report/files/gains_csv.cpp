#include "gains_csv.hpp"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <utility>

#include "csv_text.hpp"
#include "list_io.hpp"
#include "text_file.hpp"
#include "whole_file.hpp"

namespace report {
namespace {

// The words are in files that programs keep: they are read back, and never change.
constexpr std::array<std::pair<verdict, std::string_view>, 5> words{
    {{verdict::determined, "determined"},
     {verdict::weak, "weak"},
     {verdict::suspect, "suspect"},
     {verdict::not_determined, "not determined"},
     {verdict::not_fitted, "not fitted"}}};

// One column of the file, and where it stands in the record: exactly one of the pointers is set.
struct column {
  std::string name;
  int bpm_row::*whole = nullptr;
  double bpm_row::*real = nullptr;
  four bpm_row::*buttons = nullptr;
  std::size_t button = 0;
  std::string bpm_row::*text = nullptr;
  verdict bpm_row::*word = nullptr;
};

column whole(std::string name, int bpm_row::*at) { return {.name = std::move(name), .whole = at}; }
column real(std::string name, double bpm_row::*at) { return {.name = std::move(name), .real = at}; }

// Every column, in the order of the file. Writer and reader both go by this list.
std::vector<column> make_columns() {
  std::vector<column> all;
  const auto add_four = [&all](const char* name, four bpm_row::*at) {
    for (std::size_t k = 0; k < 4; ++k) {
      all.push_back({.name = fmt::format("{}_{}", name, k + 1), .buttons = at, .button = k});
    }
  };
  all.push_back(whole("bpm", &bpm_row::bpm));
  all.push_back({.name = "name", .text = &bpm_row::name});
  all.push_back(whole("orbits", &bpm_row::orbits));
  all.push_back(whole("orbits_used", &bpm_row::orbits_used));
  all.push_back(whole("outliers", &bpm_row::outliers));
  all.push_back({.name = "verdict", .word = &bpm_row::verdict});
  all.push_back({.name = "reason", .text = &bpm_row::reason});
  add_four("gain", &bpm_row::gain);
  add_four("sigma", &bpm_row::sigma);
  all.push_back(real("error", &bpm_row::error));
  add_four("fit_gain", &bpm_row::fit_gain);
  all.push_back(real("fit_error", &bpm_row::fit_error));
  all.push_back(real("fit_distance", &bpm_row::fit_distance));
  add_four("pedestal", &bpm_row::pedestal);
  add_four("pedestal_sigma", &bpm_row::pedestal_sigma);
  all.push_back(real("mean_x_mm", &bpm_row::mean_x_mm));
  all.push_back(real("mean_y_mm", &bpm_row::mean_y_mm));
  all.push_back(real("sd_x_mm", &bpm_row::sd_x_mm));
  all.push_back(real("sd_y_mm", &bpm_row::sd_y_mm));
  all.push_back(real("noise", &bpm_row::noise));
  add_four("true_gain", &bpm_row::true_gain);
  return all;
}

// Made once: the list is asked for at every line, and its forty names are texts.
const std::vector<column>& columns() {
  static const std::vector<column> all = make_columns();
  return all;
}

void put_field(std::string& line, const bpm_row& row, const column& c) {
  if (c.whole != nullptr) line += std::to_string(row.*c.whole);
  if (c.real != nullptr) put_real(line, row.*c.real);
  if (c.buttons != nullptr) put_real(line, (row.*c.buttons)[c.button]);
  if (c.text != nullptr) line += field_text(row.*c.text);
  if (c.word != nullptr) line += text_of(row.*c.word);
}

// What the field should have been; nothing when it was taken.
std::string_view take_field(bpm_row& row, const column& c, const std::string& field) {
  if (c.text != nullptr) row.*c.text = field;
  if (c.word != nullptr) {
    for (const auto& [word, text] : words) {
      if (text != field) continue;
      row.*c.word = word;
      return {};
    }
    // Not taken for "not fitted": a wrong word is a damaged file, and gains would go missing in
    // silence.
    return "a verdict";
  }
  if (c.whole != nullptr) {
    const auto value = util::scan_integer(field);
    if (!value) return "a whole number";
    row.*c.whole = *value;
  }
  if (c.real != nullptr || c.buttons != nullptr) {
    // Empty is what the writer makes of a value that is not known, and comes back as that.
    const auto value = field.empty() ? std::optional<double>{unknown} : util::scan_real(field);
    if (!value) return "a number or nothing";
    (c.real != nullptr ? row.*c.real : (row.*c.buttons)[c.button]) = *value;
  }
  return {};
}

// Where each column stands in this file.
util::outcome<std::vector<std::size_t>> places_of_columns(const util::text_file& file,
                                                          std::vector<std::string> header) {
  std::map<std::string, std::size_t> place;
  // Spreadsheets put a byte-order mark in front of what they save.
  constexpr std::string_view mark = "\xEF\xBB\xBF";
  if (!header.empty() && header[0].starts_with(mark)) header[0].erase(0, mark.size());
  // By name, not by place: a later version may add columns, and a person may move them. Of two
  // columns of one name the first counts.
  for (std::size_t i = 0; i < header.size(); ++i) place.emplace(header[i], i);
  std::vector<std::size_t> places;
  for (const column& c : columns()) {
    const auto found = place.find(c.name);
    if (found == place.end()) {
      return util::fault{"no column " + c.name, util::place_of(file), "the header of gains.csv"};
    }
    places.push_back(found->second);
  }
  return places;
}

util::outcome<bpm_row> row_of(const util::text_file& file, const std::vector<std::string>& fields,
                              const std::vector<std::size_t>& places) {
  bpm_row row;
  for (std::size_t i = 0; i < places.size(); ++i) {
    const column& c = columns()[i];
    const std::string& field = fields[places[i]];
    // One fault ends the file: values of a line that is wrong somewhere are not to be believed.
    const std::string_view expected = take_field(row, c, field);
    if (!expected.empty()) {
      return util::fault{fmt::format("found \"{}\" in column {}", field, c.name),
                         util::place_of(file), std::string{expected}};
    }
  }
  return row;
}

}  // namespace

std::string_view text_of(verdict word) {
  for (const auto& [known, text] : words) {
    if (known == word) return text;
  }
  // Not reached: every verdict has its word above. It says the least.
  return "not fitted";
}

std::string gains_csv_text(const std::vector<bpm_row>& rows) {
  std::string text;
  for (const column& c : columns()) {
    if (!text.empty()) text += ',';
    text += c.name;
  }
  text += '\n';
  for (const bpm_row& row : rows) {
    bool first = true;
    for (const column& c : columns()) {
      if (!first) text += ',';
      first = false;
      put_field(text, row, c);
    }
    text += '\n';
  }
  return text;
}

util::status write_gains_csv(const std::string& path, const std::vector<bpm_row>& rows) {
  return util::write_whole_file(path, gains_csv_text(rows));
}

util::outcome<std::vector<bpm_row>> read_gains_csv(const std::string& path) {
  auto file = util::open_text_file(path);
  if (!file) return file.why;
  std::vector<std::string> fields;
  std::vector<std::size_t> places;
  std::size_t width = 0;
  std::vector<bpm_row> rows;
  while (util::next_line(*file)) {
    // A last line cut short is a fault below; one that is empty, as editors leave it, is none.
    if (file->number > 1 && file->line.empty()) continue;
    // Lines are taken one by one, so a quote that stays open is known at its own line.
    if (!split_fields(file->line, fields)) return util::line_fault(*file, "quotes in pairs");
    if (file->number == 1) {
      auto found = places_of_columns(*file, fields);
      if (!found) return found.why;
      places = std::move(*found);
      width = fields.size();
      continue;
    }
    // Fewer fields: cut short, perhaps in the middle of a number that reads well. More: a comma
    // that was not ours, behind which all columns are moved.
    if (fields.size() != width) {
      return util::fault{fmt::format("found {} fields", fields.size()), util::place_of(*file),
                         fmt::format("{} as in the header", width)};
    }
    auto row = row_of(*file, fields, places);
    if (!row) return row.why;
    rows.push_back(std::move(*row));
  }
  // Asked for at the end: a read that fails looks like the end of the file until then.
  if (file->trouble) return *file->trouble;
  // No header is no run; a header without lines is a run without BPMs, and fine.
  if (width == 0) return util::fault{"an empty file", path, "the header of gains.csv"};
  return rows;
}

}  // namespace report
