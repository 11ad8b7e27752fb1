#include "command_line.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "run_time.hpp"
#include "site.hpp"

namespace driver {
namespace {

constexpr const char* about =
    "Fits the four relative button gains of beam position monitors (BPMs) from recorded beam\n"
    "passages. Everything is asked in a dialog on the terminal; answers may also come from a "
    "pipe,\n"
    "one line each. Results go into a directory named after date and time, such as\n"
    "20240131_235959, below the current one.\n"
    "\n"
    "The environment variable KOVR_ONLINE names the root of the facility's data tree.\n";

constexpr int usage_error = 2;

}  // namespace

session_options read_command_line(int count, const char* const* arguments) {
  CLI::App app(about, "butngain");
  app.set_version_flag("--version", fmt::format("butngain {}", site::version));
  app.get_version_ptr()->description("Print the version and exit");
  app.set_help_flag("--help", "Print this help and exit");
  session_options options;
  app.add_option("--chamber", options.chamber,
                 "Chamber, or table of one, of BPMs without a table of their own")
      ->type_name("FILE");
  app.add_flag("--orbits", options.list_orbits, "Write every orbit of every BPM: orbits.csv");
  app.add_flag("--coefficients", options.list_coefficients,
               "Write the new factors of the position tables: button_coeff.dat");
  try {
    app.parse(count, arguments);
  } catch (const CLI::Success& asked) {  // the library's way to tell of --help and --version
    app.exit(asked);
    util::stop_program(0);
  } catch (const CLI::ParseError& fault) {
    fmt::print(stderr, "butngain: {}; try butngain --help\n", fault.what());
    util::stop_program(usage_error);
  }
  return options;
}

}  // namespace driver
