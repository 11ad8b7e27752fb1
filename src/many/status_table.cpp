#include "status_table.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>

#include "csv_text.hpp"
#include "run_time.hpp"
#include "whole_file.hpp"

namespace many {
namespace {

using std::chrono::steady_clock;

// Of many thousand runs the file is a megabyte, and a run may last a tenth of a second.
constexpr std::chrono::milliseconds pause{1000};

void put(std::string& text, const char* format, double value) {
  text += ',';
  if (value >= 0) text += fmt::format(fmt::runtime(format), value);
}

std::string text_of(const status_table& table) {
  std::string text = "line,name,state,reason,seconds,cpu_seconds,memory_mb\n";
  for (std::size_t i = 0; i < table.status.size(); ++i) {
    const listed_run& run = (*table.runs)[i];
    const run_status& status = table.status[i];
    text += fmt::format("{},{},{},{}", run.line, report::field_text(run.name),
                        text_of(status.state), report::field_text(status.reason));
    put(text, "{:.3f}", status.seconds);
    put(text, "{:.3f}", status.cpu_seconds);
    put(text, "{:.1f}", status.memory_mb);
    text += '\n';
  }
  return text;
}

}  // namespace

void set_status(status_table& table, std::size_t run, run_status status) {
  table.status[run] = std::move(status);
  table.dirty = true;
}

void write_status(status_table& table, bool at_once) {
  const auto now = steady_clock::now();
  if (!table.kept || !table.dirty || (!at_once && now - table.written < pause)) return;
  table.written = now;
  table.dirty = false;
  auto fault = util::write_whole_file(table.place->folder + "/status.csv", text_of(table));
  if (fault && !table.fault) util::tell_line("cannot write " + util::line_of(*fault));
  if (fault) table.fault = std::move(fault);
}

std::chrono::milliseconds until_written(const status_table& table) {
  if (!table.kept || !table.dirty) return std::chrono::milliseconds{-1};
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(table.written + pause -
                                                                          steady_clock::now());
  return std::max(left, std::chrono::milliseconds{0}) + std::chrono::milliseconds{1};
}

std::size_t count_of(const status_table& table, run_state state) {
  return static_cast<std::size_t>(
      std::count_if(table.status.begin(), table.status.end(),
                    [state](const run_status& s) { return s.state == state; }));
}

}  // namespace many
