#include "tables.hpp"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

#include "chamber_solver/chamber_file.hpp"
#include "chamber_solver/table_maker.hpp"
#include "chamber_solver/table_picture.hpp"
#include "file_units.hpp"
#include "progress.hpp"
#include "run_time.hpp"

namespace sim {
namespace {

struct {
  std::string directory, chamber_file, table_file, picture;
} setup;

chamber_solver::table_work work_out(const chamber_solver::chamber& c) {
  // The wall costs about as much as the rows together.
  util::progress line("table " + c.name, 2LL * c.y.n, util::output_during::silence);
  auto work = chamber_solver::begin_table(c);
  for (int iy = 1; iy <= c.y.n; ++iy) {
    line.at(c.y.n + iy - 1);
    chamber_solver::fill_row(work, iy);
  }
  return work;
}

// The format of a button file, with nothing in it yet.
void write_empty(const std::string& path, const std::string& first, const std::string& comment) {
  const util::unit_handle unit{util::lunget()};
  util::open_output(unit.number(), path);
  util::write_line(unit.number(), first);
  util::write_line(unit.number(), "# " + comment);
}

std::string no_fault() { return {}; }

int run_tables() {
  make_tables(setup.directory);
  return 0;
}

int run_table() {
  make_table(setup.chamber_file, setup.table_file, setup.picture);
  return 0;
}

}  // namespace

void make_tables(const std::string& directory) {
  std::error_code fault;
  std::filesystem::create_directories(directory, fault);
  if (fault) {
    util::run_time_error(
        fmt::format("cannot make directory {}: {}", directory, util::system_text(fault.value())));
  }
  for (const auto& [name, text] : chamber_solver::default_chambers) {
    const auto c = chamber_solver::parse_chamber(text, fmt::format("default chamber {}", name));
    chamber_solver::write_table(work_out(c).nodes, fmt::format("{}/{}.table", directory, name));
  }
  write_empty(directory + "/button_coeff.dat", "nonlin_bpm_coeff 1",
              "bpm c1 c2 c3 c4: each signal is multiplied by its coefficient");
  write_empty(directory + "/bad_button.dat", "nonlin_bpm_bad_buttons 1", "bpm button");
}

void make_table(const std::string& chamber_file, const std::string& table_file,
                const std::string& picture) {
  const auto work = work_out(chamber_solver::read_chamber(chamber_file));
  chamber_solver::write_table(work.nodes, table_file);
  if (!picture.empty()) chamber_solver::write_picture(work, picture);
}

cli::command tables_command() {
  return {"tables",
          "compute the position tables of the default chambers",
          {{"directory", &setup.directory,
            "where the files go: $KOVR_ONLINE/machine_data/meas/orbit/nonlin_bpm"}},
          no_fault,
          run_tables};
}

cli::command table_command() {
  return {"table",
          "compute the position table of one chamber",
          {{"chamber_file", &setup.chamber_file, "cross-section, buttons and grid"},
           {"table_file", &setup.table_file, "the table to write"},
           {"--picture", &setup.picture, "also draw lines of constant difference over sum (SVG)"}},
          no_fault,
          run_table};
}

}  // namespace sim
