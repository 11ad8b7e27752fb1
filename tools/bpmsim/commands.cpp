#include "commands.hpp"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <vector>

#include "run_time.hpp"
#include "site.hpp"

namespace commands {
namespace {

// Apart from 1, which says that the work failed: scripts tell a slip of the pen from a full disk.
constexpr int usage_error = 2;

using texts = std::vector<std::string>;

// The parser takes "-.5" for an option, but knows "-0.5" for a number.
std::string parser_word(std::string word) {
  if (word.rfind("-.", 0) == 0) word.insert(1, "0");
  return word;
}

// The parser breaks some messages into lines; ours are one line each.
int refuse(std::string fault) {
  std::replace(fault.begin(), fault.end(), '\n', ' ');
  util::tell_line(fault + " (bpmsim --help tells what can be typed)");
  return usage_error;
}

bool is_subcommand(CLI::App& app, const std::string& word) {
  return !app.get_subcommands([&word](const CLI::App* sub) { return sub->get_name() == word; })
              .empty();
}

int parse(CLI::App& app, texts typed, const int& status) {
  // Left to itself the parser asks for a subcommand where one was typed that it does not know.
  if (!typed.empty() && typed.front().front() != '-' && !is_subcommand(app, typed.front())) {
    return refuse(fmt::format("no subcommand \"{}\"", typed.front()));
  }
  std::reverse(typed.begin(), typed.end());  // it takes the words from the back
  try {
    app.parse(typed);
  } catch (const CLI::Success& asked) {  // --help, --version
    return app.exit(asked);
  } catch (const CLI::ParseError& fault) {
    return refuse(fault.what());
  }
  return status;
}

}  // namespace

int run(int argc, const char* const* argv) {
  CLI::App app{
      "Simulated beam position monitors: input for butngain from one physical model, with the "
      "truth written beside it",
      "bpmsim"};
  app.set_version_flag("--version", fmt::format("bpmsim {}", site::version));
  app.require_subcommand(1);
  app.get_formatter()->column_width(36);
  int status = 0;
  for (const auto add : {add_series, add_raw, add_text, add_orbits, add_template, add_tables,
                         add_table, add_tree, add_compare, add_accuracy, add_battery}) {
    add(app, status);
  }
  texts typed;
  for (int i = 1; i < argc; ++i) typed.push_back(parser_word(argv[i]));
  return parse(app, std::move(typed), status);
}

}  // namespace commands
