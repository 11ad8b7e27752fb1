// kbpm_dump: prints a raw data file for people, or one bunch's turns as columns.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "dump.hpp"
#include "kbpm_rawfile.hpp"
#include "kbpm_read_rawfile.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "text.hpp"

namespace {

struct options {
  std::string file;
  std::string instrument;
  std::int32_t bunch = 1;
};

int told(const std::string& what, int status) {
  std::fflush(stdout);
  std::fprintf(stderr, "kbpm_dump: %s\n", what.c_str());
  return status;
}

int dump_file(const options& o) {
  std::error_code unreadable;
  const std::string name = util::shown(o.file);
  if (!std::filesystem::exists(o.file, unreadable)) return told(name + ": no such file", 1);
  // What is wrong has been told; a file that cannot be opened answers 0.
  if (rawfile::kbpm_read_rawfile_at(o.file) != 0 || !rawfile::kbpm_rawfile_is_current()) return 1;
  if (o.instrument.empty()) {
    dump::print_file();
    return 0;
  }
  const std::string fault = dump::print_turns(o.instrument, o.bunch);
  return fault.empty() ? 0 : told(name + ": " + fault, 1);
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
  app.add_option("--bunch", o.bunch, "of this bunch, from 1 by its place in the file")->needs(inst);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return e.get_exit_code() == 0 ? app.exit(e) : told(e.what(), 2);
  }
  return dump_file(o);
}

}  // namespace

int main(int argc, char** argv) {
  util::program_name = "kbpm_dump";
  int status = 1;
  try {
    status = run(argc, argv);
  } catch (const std::exception& e) {
    told(e.what(), 1);
  }
  util::stop_program(status);
}
