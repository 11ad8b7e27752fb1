// kbpm_dump: prints a raw data file for people, or one bunch's turns as columns.
#include <CLI/CLI.hpp>
#include <string>

#include "dump.hpp"
#include "program_start.hpp"
#include "raw_file.hpp"
#include "run_time.hpp"
#include "site.hpp"

namespace {

struct options {
  std::string file;
  std::string instrument;
  std::int32_t bunch = 1;
};

int told(const std::string& what, int status) {
  util::tell_line(what);
  return status;
}

int dump_file(const options& o) {
  const auto file = rawfile::read_raw_file(o.file);
  if (!file) return told(util::line_of(file.why), 1);
  if (file->ends_early) told(util::line_of(*file->ends_early), 0);
  const util::status fault = o.instrument.empty() ? dump::print_file(*file)
                                                  : dump::print_turns(*file, o.instrument, o.bunch);
  return fault ? told(util::line_of(*fault), 1) : 0;
}

// The status to end with.
int run(int argc, char** argv) {
  options o;
  CLI::App app{
      "Prints a raw data file of the BPM electronics: headers, bunches and statistics, or "
      "one bunch's turns as columns"};
  app.set_version_flag("--version", std::string{site::version});
  app.add_option("FILE", o.file, "raw data file")->required();
  auto* inst = app.add_option("--inst", o.instrument, "the turns of this instrument, as columns");
  // Only with an instrument: one bunch of all of them is a file's worth of columns.
  app.add_option("--bunch", o.bunch, "of this bunch, from 1 by its place in the file")->needs(inst);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // Help and version come as errors of code 0. What was mistyped ends with 2, the work with 1.
    return e.get_exit_code() == 0 ? app.exit(e) : told(e.what(), 2);
  }
  return dump_file(o);
}

}  // namespace

int main(int argc, char** argv) {
  util::start_program("kbpm_dump");
  // Also after all went well: standard output is flushed, and a full disk told.
  util::stop_program(run(argc, argv));
}
