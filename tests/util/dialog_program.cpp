// Asks the questions given as arguments and prints each answer: what terminal_pty.py talks to.
//     dialog_program word " TBT data ? " file " Input command file : " record " which bpm ? "
#include <cstddef>
#include <span>
#include <string_view>

#include "terminal.hpp"

int main(int count, char** arguments) {
  const std::span<char*> given(arguments, static_cast<std::size_t>(count));
  for (std::size_t i = 1; i + 1 < given.size(); i += 2) {
    const std::string_view kind = given[i];
    const std::string_view prompt = given[i + 1];
    std::string answer;
    if (kind == "record") {
      answer = util::ask_record(prompt).text;
    } else {
      answer = util::ask_or_end(prompt,
                                kind == "file" ? util::answer_kind::file : util::answer_kind::word);
    }
    util::print_line(" got [" + answer + "]");
  }
}
