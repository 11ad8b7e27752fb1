#include "line_editor.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdio>  // readline's headers need it before them
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
// clang-format off
#include <readline/readline.h>
#include <readline/history.h>
// clang-format on

#include "text.hpp"

namespace util {
namespace {

namespace fs = std::filesystem;

constexpr int kept_answers = 500;  // some dozens of sessions; reading them takes no time

struct free_memory {
  void operator()(char* p) const { std::free(p); }  // NOLINT(*-no-malloc,*-owning-memory)
};

answer_kind asked_for = answer_kind::word;  // of the question on the screen
std::string history_file;                   // empty when there is no place for one

std::string environment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): there is one thread
  return value == nullptr ? "" : value;
}

// Replaces a leading $NAME by the variable's value, in a text that the library allocated; the
// answer itself keeps what was typed. An unset variable is left alone. Returns 1 when replaced.
int expand_variable(char** text) {
  const std::string typed = *text;
  if (!typed.starts_with('$')) return 0;
  const std::size_t end = std::min(typed.find('/'), typed.size());
  const std::string value = environment(typed.substr(1, end - 1).c_str());
  if (value.empty()) return 0;
  std::free(*text);  // NOLINT(*-no-malloc,*-owning-memory)
  *text = strdup((value + typed.substr(end)).c_str());
  return 1;
}

char** complete(const char* /*text*/, int /*start*/, int /*end*/) {
  // Both are reset before every completion. Without the first an answer would end in a blank.
  rl_completion_append_character = '\0';
  rl_attempted_completion_over = asked_for == answer_kind::file ? 0 : 1;
  return nullptr;  // file names, or nothing
}

void open_history() {
  const std::string state = environment("XDG_STATE_HOME");
  const std::string home = environment("HOME");
  if (state.empty() && home.empty()) return;
  const fs::path folder = fs::path(state.empty() ? home + "/.local/state" : state) / "butngain";
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) return;
  history_file = folder / "history";
  // Appending later needs a file that is there.
  if (std::FILE* file = std::fopen(history_file.c_str(), "a"); file != nullptr) std::fclose(file);
  history_truncate_file(history_file.c_str(), kept_answers);
  read_history(history_file.c_str());
}

void remember(const std::string& answer) {
  if (trim(answer).empty()) return;
  // The same answer twice in a row is kept once: a repeated question would fill the history.
  const HIST_ENTRY* last = history_get(history_base + history_length - 1);
  if (last != nullptr && answer == last->line) return;
  add_history(answer.c_str());
  if (!history_file.empty()) append_history(1, history_file.c_str());
}

// Once, before the first question.
void start() {
  rl_readline_name = "butngain";
  rl_initialize();
  rl_variable_bind("enable-bracketed-paste", "off");  // else four pasted lines are one answer
  rl_completer_word_break_characters = "";            // else $ and blanks would split names
  rl_attempted_completion_function = complete;
  rl_directory_rewrite_hook = expand_variable;
  rl_filename_stat_hook = expand_variable;
  using_history();
  stifle_history(kept_answers);
  open_history();
}

}  // namespace

bool editing_possible() {
  if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1) return false;
  const std::string terminal = environment("TERM");
  return !terminal.empty() && terminal != "dumb";
}

std::optional<std::string> edited_line(const std::string& prompt, answer_kind kind) {
  static bool started = false;
  if (!started) start();
  started = true;
  asked_for = kind;
  // The editor redraws its prompt as one line: only the last one is its own.
  const std::size_t last = prompt.rfind('\n') + 1;  // 0 when there is no line end
  print_text(prompt.substr(0, last));
  std::fflush(stdout);
  const std::unique_ptr<char, free_memory> line{readline(shown(prompt.substr(last)).c_str())};
  if (!line) return {};
  const std::string answer = line.get();
  remember(answer);
  return answer;
}

}  // namespace util
