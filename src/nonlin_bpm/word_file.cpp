#include "word_file.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "list_io.hpp"

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
  if (file.file.stream) return util::next_line(file.file);
  if (file.rest.empty()) return false;
  const std::size_t end = std::min(file.rest.find('\n'), file.rest.size());
  file.file.line = file.rest.substr(0, end);
  file.rest.remove_prefix(std::min(end + 1, file.rest.size()));
  return true;
}

}  // namespace

util::status open_words(word_file& file, const std::string& name) {
  file.name = name;
  file.line = 0;  // the record may have served another file before
  auto opened = util::open_text_file(name);
  if (!opened) return opened.why;
  file.file = std::move(*opened);
  return {};
}

void open_text(word_file& file, std::string_view text, const std::string& name) {
  file.file = {};
  file.rest = text;
  file.name = name;
  file.line = 0;
}

bool next_words(word_file& file) {
  while (next_line(file)) {
    ++file.line;
    split_words(file.file.line, file.words);
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

util::fault fault_here(const word_file& file, std::string what) {
  // An empty file has no current line; its fault is told at line 1.
  return {std::move(what), fmt::format("{}:{}", file.name, std::max(file.line, 1)), {}};
}

util::fault fault_at_end(const word_file& file, std::string what) {
  // A disk that fails must not pass for a file that was cut short.
  if (file.file.trouble) return *file.file.trouble;
  return fault_here(file, std::move(what));
}

}  // namespace nonlin_bpm_mod
