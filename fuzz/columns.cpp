// A file of columns, as a file and through a pipe; what was read is written with commas, and read
// back the same. With a first byte of c the columns are chosen by the words of the first line.
#include "columns.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "list_io.hpp"
#include "target.hpp"

namespace {

using bpms = std::vector<input::column_bpm>;

input::column_choice choice_of(std::string_view line) {
  input::column_choice choice;
  util::list_record record;
  util::start_record(record, line);
  std::string word;
  while (choice.signals.size() < 4 && util::take(record, word) == util::taken::value) {
    choice.signals.push_back(word);
  }
  if (choice.signals.size() < 4) choice.signals.clear();
  if (util::take(record, word) == util::taken::value) choice.bpm = word;
  return choice;
}

bool same_bpms(const bpms& a, const bpms& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i].name != b[i].name || a[i].signals != b[i].signals) return false;
    if (a[i].left_out != b[i].left_out) return false;
  }
  return true;
}

std::string quoted(std::string_view name) {
  std::string text = "\"";
  for (const char c : name) text += c == '"' ? std::string{"\"\""} : std::string{c};
  return text + "\"";
}

std::string written(const bpms& all) {
  std::string text = "bpm,bi,bo,ti,to\n";
  for (const input::column_bpm& bpm : all) {
    const std::string name = quoted(bpm.name);
    for (const auto& s : bpm.signals) {
      text += fmt::format("{},{:.17g},{:.17g},{:.17g},{:.17g}\n", name, s[0], s[1], s[2], s[3]);
    }
    for (int i = 0; i < bpm.left_out; ++i) text += name + ",nan,1,,1\n";
  }
  return text;
}

}  // namespace

void fuzz::read(std::string_view text) {
  input::column_choice choice;
  if (!text.empty() && text[0] == 'c') {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1);
    choice = choice_of(text.substr(1, end - 1));
    text.remove_prefix(end + 1);
  }
  const auto reader = [&choice](const std::string& path) {
    auto file = util::open_text_file(path);
    check(static_cast<bool>(file));
    return input::read_columns(*file, choice);
  };
  const auto [file, pipe] = both_ways(text, reader);
  check(file.value.has_value() == pipe.value.has_value());
  if (!file) return check(same(file.why, pipe.why));
  check(same_bpms(*file, *pipe));
  choice = {};
  const auto again = reader(held(written(*file), way::file));
  check(again && same_bpms(*file, *again));
}
