// word_file: text files of words, one statement a line.
//
// `#` starts a comment anywhere in a line; blank lines are skipped; words are separated by blanks
// and tabs; lines end with LF or CR LF. The first statement of every such file is its kind and the
// version of its format. Numbers go through util's scanner: no locale, no nan, no inf.
// Nothing here prints or ends the run: a fault is a value, and its reader's caller tells it.
#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fault.hpp"
#include "text_file.hpp"

namespace nonlin_bpm_mod {

/// An open file, or a text that stands for one, and the statement reached in it.
struct word_file {
  util::text_file file;   ///< its line is the one in hand; without a stream: a text
  std::string_view rest;  ///< of the text
  std::string name;
  int line = 0;                         ///< number of the line, from 1
  std::vector<std::string_view> words;  ///< its words; they point into the line in hand
};

/// Opens a file for reading. The fault names it and the system's reason.
util::status open_words(word_file& file, const std::string& name);

/// Starts on a text instead; it must outlive the word_file. `name` is what messages call it.
void open_text(word_file& file, std::string_view text, const std::string& name);

/// Goes on to the next line that has a word. Returns false at the end of the file, and when reading
/// fails: `file.trouble` then tells why.
bool next_words(word_file& file);

/// The word at this place as a number; nothing when it is absent or no such number.
std::optional<int> integer_at(const word_file& file, std::size_t place);
std::optional<double> real_at(const word_file& file, std::size_t place);

/// What is wrong with the first statement, which must be `kind` and version 1; empty when it is
/// right. Reads that statement.
std::string wrong_first_statement(word_file& file, std::string_view kind);

/// The fault of the line in hand (of line 1 in an empty file): where is "<name>:<line>".
util::fault fault_here(const word_file& file, std::string what);

/// The fault of a file that should have gone on: why reading failed, or else `what`.
util::fault fault_at_end(const word_file& file, std::string what);

}  // namespace nonlin_bpm_mod
