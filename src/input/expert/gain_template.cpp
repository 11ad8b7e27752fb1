#include "gain_template.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <string>

#include "file_units.hpp"
#include "list_io.hpp"
#include "run_time.hpp"
#include "terminal.hpp"

namespace gain_template {
namespace {

constexpr int blocks = 2;   // timing blocks of the front end
constexpr int buttons = 4;  // in the order of its cards, which is not that of the store
const util::bounded<std::string_view, 0, buttons - 1, "button"> button_name{
    {"TI", "BI", "BO", "TO"}};
constexpr std::string_view prompt = " Gain template file ? ";

// Where the reader stands in the file.
struct progress {
  enum { before_sections, in_names, in_bpm } place = before_sections;
  util::list_record record;  // the line in hand
  int comments = 0;          // comment lines kept so far
  int bpm = -1;              // BPM of the section in hand
  std::string header;        // the section's line, for messages
  util::bounded2<bool, 0, blocks - 1, 0, buttons - 1, "rows"> rows{};  // those that have come
};

[[noreturn]] void bad_line(const std::string& path, const progress& at, std::string_view expected) {
  util::run_time_error(fmt::format("{}:{}: expected {}, found \"{}\"", path, at.record.line,
                                   expected, util::shown(util::trim(at.record.text))));
}

// Opens the template under its name, asking for another until one opens. Returns the full path.
std::string open_template(int unit, file_name& fit_gain_file) {
  std::string name{util::trim(fit_gain_file.trimmed())};
  for (;;) {
    if (name.empty()) name = util::trim(util::ask_or_end(prompt, util::answer_kind::file));
    const std::size_t most = fit_gain_file.item.size();
    if (name.size() > most) {
      util::tell_bad_answer(name, fmt::format("a file name of at most {} characters", most));
    } else if (!name.empty()) {
      std::string path = util::fullfilename(name);
      fit_gain_file.assign(name);
      if (util::open_old(unit, path) == 0) return path;
      // Told and asked for, also when the name was given beforehand: it may be an old one.
      util::print_line(" ERROR: CANNOT OPEN FILE: " + path);
    }
    name.clear();
  }
}

// Without the mark and the one blank behind it; further blanks are the author's own indentation.
void keep_comment(std::string_view line, progress& at, comment_list& comments) {
  line.remove_prefix(1);
  if (!line.empty() && line[0] == ' ') line.remove_prefix(1);
  comments(++at.comments).assign(line);
}

// A section may end only when all its rows have come.
void end_section(const std::string& path, const progress& at) {
  if (at.place != progress::in_bpm) return;
  for (int block = 0; block < blocks; ++block) {
    for (int button = 0; button < buttons; ++button) {
      if (at.rows(block, button)) continue;
      util::run_time_error(
          fmt::format("{}: {} has no row \"{} {}\": expected both blocks of four buttons", path,
                      at.header, block, button_name(button)));
    }
  }
}

void begin_section(const std::string& path, progress& at, gain_table0& table0,
                   gain_table1& table1) {
  constexpr std::string_view opening = "[BPM_";
  end_section(path, at);
  const std::string_view line = util::trim(at.record.text);
  at.header = line;
  if (line == "[NAMES]") {
    at.place = progress::in_names;
    return;
  }
  if (!line.starts_with(opening) || line.back() != ']') bad_line(path, at, "[NAMES] or [BPM_name]");
  const std::string_view name = line.substr(opening.size(), line.size() - opening.size() - 1);
  // Sections go by name, so the names must stand above them.
  at.bpm = bpm_number(name);
  if (at.bpm < 0) bad_line(path, at, "a BPM of section [NAMES], which stands above");
  if (!table0(at.bpm).label.trimmed().empty()) bad_line(path, at, "each BPM once");
  table0(at.bpm).label = name;
  table1(at.bpm).label = name;
  at.rows.fill(false);
  at.place = progress::in_bpm;
}

// A line "number name".
void read_name(const std::string& path, progress& at) {
  const auto number = util::take_int(at.record);
  std::string name;
  const bool named = util::take(at.record, name) == util::taken::value;
  if (!number || !named || name.empty() || name.size() > bpm_label{}.item.size() || *number < 0 ||
      *number > store::max_bpm) {
    bad_line(path, at, "a BPM number in 0..5000 and a name of at most 9 characters");
  }
  if (bpm_number(name) >= 0 || !bpm_names(*number).trimmed().empty()) {
    bad_line(path, at, "each number and each name once");
  }
  bpm_names(*number).assign(name);
}

// A line "block button gain0 ... gain10".
void read_gains(const std::string& path, progress& at, gain_table0& table0, gain_table1& table1) {
  const auto block = util::take_int(at.record);
  std::string name;
  util::take(at.record, name);
  const auto& known = button_name.item;
  const auto button = static_cast<int>(std::find(known.begin(), known.end(), name) - known.begin());
  if (!block || *block < 0 || *block >= blocks || button == buttons) {
    bad_line(path, at, "block 0 or 1, button TI, BI, BO or TO, and eleven gains");
  }
  // A row given twice is a slip of an editor; which of the two was meant nobody can tell.
  bool& come = at.rows(*block, button);
  if (come) bad_line(path, at, "each block and button once");
  come = true;

  range_struct& gains = (*block == 0 ? table0(at.bpm) : table1(at.bpm)).button(button);
  for (int range = 0; range <= max_range; ++range) {
    const auto gain = util::take_real(at.record);
    if (!gain) bad_line(path, at, fmt::format("eleven gains, also for range {}", range));
    gains.range(range) = *gain;
  }
}

}  // namespace

int bpm_number(std::string_view name) {
  for (int bpm = 0; bpm <= store::max_bpm; ++bpm) {
    const std::string_view known = bpm_names(bpm).trimmed();
    if (!known.empty() && known == name) return bpm;
  }
  return -1;
}

void read_kbpmii_button_gain(file_name& fit_gain_file, comment_list& old_comments_list,
                             gain_table0& table0_bpm_data, gain_table1& table1_bpm_data) {
  // Everything is cleared first: rows that a file does not hold must not come from the one before.
  bpm_names.fill({});
  old_comments_list.fill({});
  table0_bpm_data.fill({});
  table1_bpm_data.fill({});

  const util::unit_handle file{util::lunget()};
  const std::string path = open_template(file.number(), fit_gain_file);
  progress at;
  while (util::read_record(file.number(), at.record)) {
    const std::string_view line = util::trim(at.record.text);
    if (line[0] == '#') {
      if (at.place == progress::before_sections) keep_comment(line, at, old_comments_list);
    } else if (line[0] == '[') {
      begin_section(path, at, table0_bpm_data, table1_bpm_data);
    } else if (at.place == progress::in_names) {
      read_name(path, at);
    } else if (at.place == progress::in_bpm) {
      read_gains(path, at, table0_bpm_data, table1_bpm_data);
    } else {
      bad_line(path, at, "a section, [NAMES] or [BPM_name]");
    }
  }
  end_section(path, at);
}

}  // namespace gain_template
