// The dialog: one function prints every question and reads every answer of the program.
//
// On a pipe prompts and answers are plain bytes, one line an answer; on a terminal answers can be
// edited, recalled and completed (line_editor.hpp). Before each question everything written so far
// is handed to the system, so an interrupt at a prompt loses nothing. A question may have its answer
// before it is asked (prepared_answers.hpp); every answer is remembered there.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "list_io.hpp"
#include "standard_output.hpp"

namespace util {

/// What an answer is, for line editing on a terminal: a word, or the name of a file (completed).
enum class answer_kind { word, file };

/// Prints the prompt and reads one line without its line end. Nothing at end of input.
/// A prompt without a leading blank gets one.
std::optional<std::string> ask(std::string_view prompt, answer_kind kind = answer_kind::word);

/// The same; end of input ends the run (end_of_input_error).
std::string ask_or_end(std::string_view prompt, answer_kind kind = answer_kind::word);

/// Asks and reads list-directed: empty lines are passed over without asking again. End of input
/// ends the run.
list_record ask_record(std::string_view prompt);

/// Asks for a whole number, list-directed. Anything else is told in one line and asked again; an
/// empty place or a slash keeps `value`.
void ask_integer(std::string_view prompt, std::int32_t& value);

/// Asks for one character, list-directed: the first of the answer. An empty place gives a blank.
char ask_letter(std::string_view prompt);

/// Tells in one line that an answer cannot be used and what would do.
void tell_bad_answer(std::string_view answer, std::string_view expected);

/// Prompt with default: a prompt ending in "@" is shown with "<CR = " + default + ">:" in place of
/// the "@". An empty answer keeps the value. At end of input the value becomes "EXIT" and the
/// result is false; the caller then ends the run (end_of_input_error).
bool strget(std::string_view prompt, std::string& value, answer_kind kind = answer_kind::word);

}  // namespace util
