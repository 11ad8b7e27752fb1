// The subcommands that make and draw position tables: tables, table.
#include <fmt/core.h>

#include <memory>
#include <string>

#include "chamber_file.hpp"
#include "commands.hpp"
#include "options.hpp"
#include "standard_output.hpp"
#include "tables.hpp"
#include "word_file.hpp"

namespace commands {
namespace {

using namespace options;

struct table_files {
  std::string from, table, picture;
};

// By its first word, not by its name: people rename files. One that cannot be opened is no table,
// and the reader of chambers then says why.
bool is_table(const std::string& path) {
  nonlin_bpm_mod::word_file file;
  // By its first word, as the reader would: names of tables are anybody's choice.
  return !nonlin_bpm_mod::open_words(file, path) && nonlin_bpm_mod::next_words(file) &&
         file.words[0] == "nonlin_bpm_table";
}

// A second file beside a table could only be a mistake: what would be written there is what the
// first one holds already.
int draw_existing(const table_files& f) {
  if (f.picture.empty() || !f.table.empty()) {
    refuse_if(fmt::format(
        "{} is a table already: it can be drawn, with --picture and no other file", f.from));
  }
  if (const auto wrong = sim::draw_table(f.from, f.picture)) give_up(util::line_of(*wrong));
  return 0;
}

int run_table(const table_files& f) {
  if (is_table(f.from)) return draw_existing(f);
  // Required of a chamber only, so the parser cannot know.
  refuse_if(f.table.empty() ? "table_file is required: the table to write" : "");
  const auto c = chamber_solver::read_chamber(f.from);
  if (!c) give_up(util::line_of(c.why));
  const auto made = sim::make_table(*c, f.table, f.picture);
  if (!made) give_up(util::line_of(made.why));
  util::print_line(sim::line_of(*made));
  return 0;
}

// Told after the last table: what fails halfway has nothing to report but its fault.
int run_tables(const sim::tables_setup& s) {
  const auto made = sim::make_tables(s);
  if (!made) give_up(util::line_of(made.why));
  for (const sim::table_report& r : *made) util::print_line(sim::line_of(r));
  return 0;
}

}  // namespace

void add_tables(CLI::App& app, int& status) {
  // Shared with the callback, which the parser runs after this procedure has returned.
  auto s = std::make_shared<sim::tables_setup>();
  CLI::App& sub =
      *app.add_subcommand("tables", "compute the position tables of the default chambers");
  add_path({&sub}, "directory", s->directory,
           "where the files go: $KOVR_ONLINE/machine_data/meas/orbit/nonlin_bpm");
  add_flag({&sub}, "--replace", s->replace, "replace files that stand there");
  sub.callback([s, &status] { status = run_tables(*s); });
}

void add_table(CLI::App& app, int& status) {
  auto f = std::make_shared<table_files>();
  // One name for both: who has a file need not know which of the two kinds it is.
  CLI::App& sub = *app.add_subcommand("table", "compute the position table of one chamber");
  add_path({&sub}, "chamber_file", f->from,
           "cross-section, buttons and grid; or a table, which --picture then draws");
  add_path({&sub}, "table_file", f->table, "the table to write", false);
  options::add_text({&sub}, "--picture", f->picture,
                    "also draw lines of constant difference over sum (SVG)");
  sub.callback([f, &status] { status = run_table(*f); });
}

}  // namespace commands
