// Loading a raw data file: the library against the plainest reader (one fgets, one trimmed copy,
// one sscanf a line), in one run. 100 instruments of 4096 turns: 21 MB of text, 23 MB of arrays, in
// the page cache. The last lines give the ratios, from the least processor time of the repetitions.
//
//   fresh    the arrays' memory is given back before each load
//   reused   the next load of a running program
//   unusual  the same numbers, the columns two blanks apart and left-justified
#include <benchmark/benchmark.h>
#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>

#include "kbpm_read_rawfile.hpp"
#include "literal_rawfile.hpp"
#include "sample_text.hpp"

namespace {

const sample::shape shape{100, 1, 4096};

// Runs of blanks made two, in the data lines.
std::string squeezed(const std::string& text) {
  std::string all;
  for (const std::string& line : sample::lines_of(text)) {
    const bool is_data = line.find(':') == std::string::npos && line[0] >= '0' && line[0] <= '9';
    for (const char c : line) {
      const bool third = all.size() >= 2 && all.back() == ' ' && all[all.size() - 2] == ' ';
      if (!(is_data && c == ' ' && third)) all += c;
    }
  }
  return all;
}

const std::string& usual_file() {
  static const std::string path = sample::written("bench_usual.dat", sample::text(shape));
  return path;
}

const std::string& unusual_file() {
  static const std::string path =
      sample::written("bench_unusual.dat", squeezed(sample::text(shape)));
  return path;
}

std::int64_t bytes_of(const std::string& path) {
  return static_cast<std::int64_t>(std::filesystem::file_size(path));
}

void plain_reader(benchmark::State& state, const std::string& (*path)()) {
  for (auto _ : state) {
    const literal::file file = literal::read(path());
    benchmark::DoNotOptimize(file.instruments.back().Ypos.back());
  }
  state.SetBytesProcessed(state.iterations() * bytes_of(path()));
}

void library(benchmark::State& state, const std::string& (*path)(), bool fresh) {
  rawfile::kbpm_read_rawfile_at(path());
  for (auto _ : state) {
    if (fresh) rawfile::forget_rawfile();
    benchmark::DoNotOptimize(rawfile::kbpm_read_rawfile_at(path()));
  }
  state.SetBytesProcessed(state.iterations() * bytes_of(path()));
  rawfile::forget_rawfile();
}

// Keeps the fastest time of each bench, beside the usual table.
class fastest_times : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      const double time = run.GetAdjustedCPUTime();
      const auto [at, is_new] = times.emplace(run.run_name.function_name, time);
      if (!is_new) at->second = std::min(at->second, time);
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  const auto add = [](const char* name, auto work) {
    benchmark::RegisterBenchmark(name, work)->Unit(benchmark::kMillisecond)->Repetitions(5);
  };
  add("plain_usual", [](benchmark::State& s) { plain_reader(s, usual_file); });
  add("fresh_usual", [](benchmark::State& s) { library(s, usual_file, true); });
  add("reused_usual", [](benchmark::State& s) { library(s, usual_file, false); });
  add("plain_unusual", [](benchmark::State& s) { plain_reader(s, unusual_file); });
  add("reused_unusual", [](benchmark::State& s) { library(s, unusual_file, false); });
  benchmark::Initialize(&argc, argv);
  fastest_times reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  const auto ratio = [&times = reporter.times](const char* what, const char* plain,
                                               const char* ours) {
    if (times.count(plain) == 0 || times.count(ours) == 0) return;
    fmt::print("{:<40} {:6.1f} times the plain reader\n", what, times[plain] / times[ours]);
  };
  ratio("usual columns, fresh memory", "plain_usual", "fresh_usual");
  ratio("usual columns, memory used again", "plain_usual", "reused_usual");
  ratio("unusual spacing, memory used again", "plain_unusual", "reused_unusual");
  std::filesystem::remove(usual_file());
  std::filesystem::remove(unusual_file());
}
