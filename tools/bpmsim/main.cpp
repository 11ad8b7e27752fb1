// bpmsim: makes everything that butngain reads, from one physical model, with the truth beside it.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <vector>

#include "commands.hpp"
#include "run_time.hpp"
#include "site.hpp"

namespace {

constexpr int usage_error = 2;

using texts = std::vector<std::string>;

// The parser takes "-.5" for an option, but knows "-0.5" for a number.
std::string parser_word(std::string word) {
  if (word.rfind("-.", 0) == 0) word.insert(1, "0");
  return word;
}

int refuse(std::string fault) {
  std::replace(fault.begin(), fault.end(), '\n', ' ');
  fmt::print(stderr, "bpmsim: {} (bpmsim --help tells what can be typed)\n", fault);
  return usage_error;
}

bool is_subcommand(CLI::App& app, const std::string& word) {
  return !app.get_subcommands([&word](const CLI::App* sub) { return sub->get_name() == word; })
              .empty();
}

int run(CLI::App& app, texts typed, const int& status) {
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

int main(int argc, char** argv) {
  util::program_name = "bpmsim";
  CLI::App app{
      "Simulated beam position monitors: input for butngain from one physical model, with the "
      "truth "
      "written beside it",
      "bpmsim"};
  app.set_version_flag("--version", fmt::format("bpmsim {}", site::version));
  app.require_subcommand(1);
  app.get_formatter()->column_width(36);
  int status = 0;
  for (const auto add :
       {commands::add_series, commands::add_raw, commands::add_text, commands::add_orbits,
        commands::add_template, commands::add_tables, commands::add_table, commands::add_tree,
        commands::add_compare, commands::add_accuracy, commands::add_battery}) {
    add(app, status);
  }
  texts typed;
  for (int i = 1; i < argc; ++i) typed.push_back(parser_word(argv[i]));
  util::stop_program(run(app, std::move(typed), status));
}
