// word_file: text files of words, one statement a line.
//
// `#` starts a comment anywhere in a line; blank lines are skipped; words are separated by blanks
// and tabs; lines end with LF or CR LF. The first statement of every such file is its kind and the
// version of its format. Numbers go through util's scanner: no locale, no nan, no inf.
#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "file_units.hpp"

namespace nonlin_bpm_mod {

/// An open file, or a text that stands for one, and the statement reached in it.
struct word_file {
  util::unit_handle unit;  ///< number 0: a text
  std::string_view rest;   ///< of the text
  std::string name;
  int line = 0;                         ///< number of the line, from 1
  std::string text;                     ///< the line
  std::vector<std::string_view> words;  ///< its words; they point into text
};

/// Opens a file for reading. Returns 0, or the errno value of the failure.
int open_words(word_file& file, const std::string& name);

/// Starts on a text instead; it must outlive the word_file. `name` is what messages call it.
void open_text(word_file& file, std::string_view text, const std::string& name);

/// Goes on to the next line that has a word. Returns false at the end of the file.
bool next_words(word_file& file);

/// The word at this place as a number; nothing when it is absent or no such number.
std::optional<int> integer_at(const word_file& file, std::size_t place);
std::optional<double> real_at(const word_file& file, std::size_t place);

/// What is wrong with the first statement, which must be `kind` and version 1; empty when it is
/// right. Reads that statement.
std::string wrong_first_statement(word_file& file, std::string_view kind);

/// Opens one of the files of nonlin_bpm_init and reads its first statement; faults end the run.
void open_init_file(word_file& file, const std::string& name, std::string_view kind);

/// Ends the run over a fault in the current line (or in line `line`) of such a file:
/// " ERROR IN NONLIN_BPM_INIT. <fault> IN LINE <n> OF FILE: <name>", then err_exit.
[[noreturn]] void init_fault(const word_file& file, std::string_view fault, int line = 0);

}  // namespace nonlin_bpm_mod
