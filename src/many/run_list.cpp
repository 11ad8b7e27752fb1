#include "run_list.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <string_view>
#include <utility>

#include "csv_text.hpp"
#include "text.hpp"
#include "text_file.hpp"

namespace many {
namespace {

constexpr std::string_view name_column = "name";

// What a folder's name may hold: it stands in scripts and on command lines of other programs, where
// anything else would have to be quoted by people.
constexpr std::string_view plain =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._+-=@";
constexpr std::size_t longest_name = 200;  // a file name has 255 bytes, and ours add to it

// Files that stand beside the folders of the runs, and ends of names beside those in the making.
bool is_taken(std::string_view name) {
  return name == "status.csv" || name == "slurm.sh" || name.ends_with(".lock") ||
         name.ends_with(".before");
}

struct list_reader {
  util::text_file file;
  const session_words& session;
  std::vector<const column_word*> columns;  // null: the column `name`
  std::map<std::string, int> names;         // and the lines where they stand
  std::vector<listed_run> runs;
};

util::fault fault_here(const list_reader& list, std::string what, std::string expected) {
  return {std::move(what), util::place_of(list.file), std::move(expected)};
}

bool has_control(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; });
}

// The next line that is neither empty nor a comment, cut into fields; an empty list at the end.
util::outcome<std::vector<std::string>> next_fields(list_reader& list) {
  std::vector<std::string> fields;
  while (util::next_line(list.file)) {
    std::string_view line = list.file.line;
    // Spreadsheets put a byte-order mark in front of what they save.
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (list.file.number == 1 && line.starts_with(mark)) line.remove_prefix(mark.size());
    if (util::trim(line).empty() || util::trim(line).front() == '#') continue;
    if (!report::split_fields(line, fields)) {
      return fault_here(list, "a quoted field does not end, or has text behind it",
                        "fields such as 4566 or \"4566\"");
    }
    for (std::string& field : fields) field = std::string{util::trim(field)};
    return fields;
  }
  if (list.file.trouble) return *list.file.trouble;
  return fields;
}

util::status take_header(list_reader& list, const std::vector<std::string>& header) {
  for (const std::string& name : header) {
    const auto& known = list.session.columns;
    const auto found = std::find_if(known.begin(), known.end(),
                                    [&](const column_word& c) { return c.name == name; });
    if (found == known.end() && name != name_column) {
      std::string names{name_column};
      for (const column_word& c : known) names += ", " + c.name;
      return fault_here(list, fmt::format("unknown column \"{}\"", name), "columns among " + names);
    }
    const column_word* column = found == known.end() ? nullptr : &*found;
    const bool again =
        std::find(list.columns.begin(), list.columns.end(), column) != list.columns.end();
    if (again && (column == nullptr || !column->several)) {
      return fault_here(list, fmt::format("the column \"{}\" stands twice", name),
                        "one: only answers of a data set can be several");
    }
    list.columns.push_back(column);
  }
  return {};
}

// The words that one field adds.
util::status add_option(const list_reader& list, const column_word& column,
                        const std::string& field, std::vector<std::string>& options) {
  if (field.empty()) return {};
  if (has_control(field)) {
    return fault_here(list, fmt::format("a control character in \"{}\"", column.name), "text");
  }
  if (!column.flag) {
    options.push_back("--" + column.name + "=" + field);
    return {};
  }
  if (field == "yes" || field == "1") {
    options.push_back("--" + column.name);
  } else if (field != "no" && field != "0") {
    return fault_here(list, fmt::format("{}: found \"{}\"", column.name, field),
                      "yes, no, 1, 0 or nothing");
  }
  return {};
}

// What the run's answers call it: its runs, its first file, or its list of orbits.
std::string name_of_answers(const std::vector<std::string>& options) {
  std::string name;
  for (const std::string_view option : {"--run=", "--first=", "--command-file="}) {
    for (const std::string_view word : options) {
      if (!word.starts_with(option)) continue;
      const std::string_view answer = word.substr(option.size());
      const std::size_t folder = answer.find_last_of('/');
      if (!name.empty()) name += '+';
      name += answer.substr(folder == std::string_view::npos ? 0 : folder + 1);
    }
    if (!name.empty()) break;
  }
  for (char& c : name) {
    if (plain.find(c) == std::string_view::npos) c = '_';
  }
  // "-1" is the run before the newest; a name of such a beginning would be taken for an option.
  name = name.substr(0, longest_name);
  if (name.empty() || name.front() == '-' || name.front() == '.') name.insert(0, "run");
  return is_taken(name) ? name + "_" : name;
}

std::string no_second(const std::map<std::string, int>& names, const std::string& name) {
  std::string free = name;
  for (int i = 2; names.contains(free); ++i) free = fmt::format("{}-{}", name, i);
  return free;
}

util::status check_name(const list_reader& list, const std::string& name) {
  if (is_taken(name) || name.size() > longest_name || name.front() == '-' || name.front() == '.' ||
      name.find_first_not_of(plain) != std::string::npos) {
    return fault_here(list, fmt::format("\"{}\" cannot name the folder of a run", name),
                      "letters, digits and ._+-=@, the first no point or minus");
  }
  const auto before = list.names.find(name);
  if (before != list.names.end()) {
    return fault_here(
        list, fmt::format("the name \"{}\" stands in line {} already", name, before->second),
        "another one");
  }
  return {};
}

util::status take_run(list_reader& list, const std::vector<std::string>& fields) {
  if (fields.size() != list.columns.size()) {
    return fault_here(list, fmt::format("found {} fields", fields.size()),
                      fmt::format("{}, as in the header", list.columns.size()));
  }
  listed_run run{.name = {}, .line = list.file.number, .options = {}};
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (list.columns[i] == nullptr) {
      run.name = fields[i];
    } else if (auto fault = add_option(list, *list.columns[i], fields[i], run.options)) {
      return fault;
    }
  }
  std::vector<std::string> words = list.session.start;
  words.insert(words.end(), run.options.begin(), run.options.end());
  if (const auto fault = list.session.fault_of_run(words)) {
    return fault_here(list, util::line_of(*fault), {});
  }
  if (!run.name.empty()) {
    if (auto fault = check_name(list, run.name)) return fault;
    list.names.emplace(run.name, run.line);
  }
  list.runs.push_back(std::move(run));
  return {};
}

}  // namespace

util::outcome<std::vector<listed_run>> read_run_list(const std::string& path,
                                                     const session_words& session) {
  auto file = util::open_text_file(path);
  if (!file) return file.why;
  list_reader list{
      .file = std::move(*file), .session = session, .columns = {}, .names = {}, .runs = {}};
  for (;;) {
    const auto fields = next_fields(list);
    if (!fields) return fields.why;
    if (fields->empty()) break;
    auto fault = list.columns.empty() ? take_header(list, *fields) : take_run(list, *fields);
    if (fault) return *fault;
  }
  if (list.runs.empty()) {
    return util::fault{"holds no run", path, "a header of options and a line a run"};
  }
  // Behind the names that somebody chose: those must not make way.
  for (listed_run& run : list.runs) {
    if (!run.name.empty()) continue;
    run.name = no_second(list.names, name_of_answers(run.options));
    list.names.emplace(run.name, run.line);
  }
  return std::move(list.runs);
}

}  // namespace many
