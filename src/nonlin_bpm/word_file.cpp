#include "word_file.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "list_io.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"

namespace nonlin_bpm_mod {
namespace {

// Written out by hand: tables are a quarter of a million words. A # ends the line wherever it
// stands, also within a word.
void split_words(std::string_view text, std::vector<std::string_view>& words) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
  words.clear();
  std::size_t i = 0;
  while (i < text.size() && text[i] != '#') {
    const std::size_t first = i;
    while (i < text.size() && text[i] != '#' && !blank(text[i])) ++i;
    if (i > first) words.push_back(text.substr(first, i - first));
    while (i < text.size() && blank(text[i])) ++i;
  }
}

// Texts are handed out line by line as files are, so that both end up at the same messages.
bool next_line(word_file& file) {
  if (file.unit.number() != 0) return util::read_line(file.unit.number(), file.text);
  if (file.rest.empty()) return false;
  const std::size_t end = std::min(file.rest.find('\n'), file.rest.size());
  file.text = file.rest.substr(0, end);
  file.rest.remove_prefix(std::min(end + 1, file.rest.size()));
  return true;
}

}  // namespace

int open_words(word_file& file, const std::string& name) {
  file.unit = util::unit_handle{util::lunget()};
  file.name = name;
  file.line = 0;  // the record may have served another file before
  return util::open_old(file.unit.number(), name);
}

void open_text(word_file& file, std::string_view text, const std::string& name) {
  file.unit = util::unit_handle{};
  file.rest = text;
  file.name = name;
  file.line = 0;
}

bool next_words(word_file& file) {
  while (next_line(file)) {
    ++file.line;
    split_words(file.text, file.words);
    if (!file.words.empty()) return true;
  }
  file.words.clear();
  return false;
}

// A place behind the last word holds no number: the caller's message then names what it expected.
std::optional<int> integer_at(const word_file& file, std::size_t place) {
  return place < file.words.size() ? util::scan_integer(file.words[place]) : std::nullopt;
}

std::optional<double> real_at(const word_file& file, std::size_t place) {
  return place < file.words.size() ? util::scan_real(file.words[place]) : std::nullopt;
}

std::string wrong_first_statement(word_file& file, std::string_view kind) {
  if (!next_words(file)) return "FILE IS EMPTY";
  if (file.words[0] != kind) {
    return fmt::format("EXPECTED {} AS FIRST WORD, FOUND {}", kind, file.words[0]);
  }
  // Another version has other statements: guessing at them would read numbers into wrong places.
  if (file.words.size() != 2 || integer_at(file, 1) != 1) {
    return fmt::format("EXPECTED FORMAT VERSION 1 AFTER {}", kind);
  }
  return {};
}

void open_init_file(word_file& file, const std::string& name, std::string_view kind) {
  if (const int reason = open_words(file, name); reason != 0) {
    util::print_line(
        util::list_line().text("ERROR IN NONLIN_BPM_INIT. CANNOT OPEN FILE: ").text(name).str());
    if (reason == ENOENT) {
      fmt::print(stderr, "{}: \"bpmsim tables {}\" makes this file for default chambers\n",
                 util::program_name, std::filesystem::path{name}.parent_path().string());
    }
    util::err_exit();
  }
  const std::string fault = wrong_first_statement(file, kind);
  if (!fault.empty()) init_fault(file, fault);
}

void init_fault(const word_file& file, std::string_view fault, int line) {
  // An empty file has no current line; its fault is told at line 1.
  const int number = std::max(line == 0 ? file.line : line, 1);
  util::print_line(fmt::format(" ERROR IN NONLIN_BPM_INIT. {} IN LINE {} OF FILE: {}", fault,
                               number, file.name));
  util::err_exit();
}

}  // namespace nonlin_bpm_mod
