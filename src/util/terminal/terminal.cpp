#include "terminal.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "file_units.hpp"
#include "line_editor.hpp"
#include "prepared_answers.hpp"
#include "run_time.hpp"
#include "text.hpp"

namespace util {
namespace {

// Prompts are set off by one blank, as every list-directed line is.
std::string set_off(std::string_view prompt) {
  std::string text{prompt};
  if (text.empty() || text[0] != ' ') text.insert(text.begin(), ' ');
  return text;
}

// One line of standard input; a last line without a line end counts.
std::optional<std::string> plain_answer() {
  std::string answer;
  int c = 0;
  while ((c = std::getchar()) != EOF && c != '\n') answer.push_back(static_cast<char>(c));
  // Half an answer is none: it would choose something.
  if (c == EOF && std::ferror(stdin) != 0) {
    run_time_error("reading standard input: " + system_text(errno));
  }
  if (c == EOF && answer.empty()) return {};
  // Files of answers made on another system end their lines in CR LF.
  if (!answer.empty() && answer.back() == '\r') answer.pop_back();
  return answer;
}

std::optional<std::string> typed_answer(const std::string& prompt, answer_kind kind) {
  if (editing_possible()) return edited_line(prompt, kind);
  // A pipe is not flushed by reading: whoever drives the dialog waits for the prompt.
  print_text(prompt);
  flush_standard_output();
  return plain_answer();
}

// The terminal itself puts a typed line behind its question; here the program does. What a pipe
// brought in stood nowhere, and does not when its run is repeated.
void show_prepared(const std::string& prompt, const given_answer& given) {
  print_text(prompt);
  if (given.by != given_by::pipe) print_line(given.answer);
  flush_standard_output();
}

// The one place where an answer comes in.
std::optional<std::string> answer_to(const std::string& prompt, answer_kind kind) {
  const std::string question{trim(prompt)};
  const auto found = prepared_answer(prepared, question);
  if (!found) run_time_error(line_of(found.why));
  if (*found) {
    show_prepared(prompt, **found);
    answers_given.push_back(**found);
    return (*found)->answer;
  }
  auto answer = typed_answer(prompt, kind);
  if (!answer) return answer;
  const given_by by = isatty(STDIN_FILENO) == 1 ? given_by::terminal : given_by::pipe;
  answers_given.push_back({question, *answer, by});
  return answer;
}

}  // namespace

std::optional<std::string> ask(std::string_view prompt, answer_kind kind) {
  flush_all_units();
  return answer_to(set_off(prompt), kind);
}

std::string ask_or_end(std::string_view prompt, answer_kind kind) {
  auto answer = ask(prompt, kind);
  if (!answer) end_of_input_error(prompt);
  return *answer;
}

list_record ask_record(std::string_view prompt) {
  list_record record;
  std::string answer = ask_or_end(prompt);
  // Kept for compatibility: an empty line is no record, and the question is not asked again for it.
  while (trim(answer).empty()) {
    std::optional<std::string> next = answer_to("", answer_kind::word);
    if (!next) end_of_input_error(prompt);
    answer = *next;
  }
  start_record(record, answer);
  return record;
}

void tell_bad_answer(std::string_view answer, std::string_view expected) {
  std::string line = " \"";
  line.append(trim(answer)).append("\" is not ").append(expected);
  print_line(line);
}

void ask_integer(std::string_view prompt, std::int32_t& value) {
  for (;;) {
    list_record record = ask_record(prompt);
    const taken got = take(record, value);
    // An empty place or a slash leaves the value as it was: that is how a default is taken.
    if (got != taken::bad) return;
    tell_bad_answer(record.item, "a whole number; type one, such as 12");
  }
}

char ask_letter(std::string_view prompt) {
  // Only the first letter counts: "T", "TBT" and "t/" are all answers to a question for a letter.
  list_record record = ask_record(prompt);
  std::string word;
  take(record, word);
  return word.empty() ? ' ' : word[0];
}

bool strget(std::string_view prompt, std::string& value, answer_kind kind) {
  std::string text{prompt};
  // The default is shown without its padding, so that the answer stands behind the colon.
  if (!text.empty() && text.back() == '@') {
    text.pop_back();
    text.append("<CR = ").append(trim_right(value)).append(">:");
  }
  const auto answer = ask(text, kind);
  if (!answer) {
    value = "EXIT";  // kept for compatibility: a caller may look at the word instead of the result
    return false;
  }
  // Blanks alone count as no answer; an answer with blanks around it is kept as typed.
  if (!trim(*answer).empty()) value = *answer;
  return true;
}

}  // namespace util
