// Loading a raw data file: the library against the plainest reader (one fgets, one trimmed copy,
// one sscanf a line), in one run. 100 instruments of 4096 turns: 21 MB of text, 23 MB of arrays, in
// the page cache. All take turns, in seven rounds; the last lines give the ratios of the medians of
// processor time.
//
//   fresh    the arrays need new memory: what was given back last is in another file's hands
//   reused   the next load of a running program
//   close    the same numbers, the columns two blanks apart and left-justified
//   wide     the same numbers, the columns one blank further apart, lines with CR
#include <benchmark/benchmark.h>
#include <fmt/core.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kbpm_read_rawfile.hpp"
#include "literal_rawfile.hpp"
#include "raw_file.hpp"
#include "sample_text.hpp"

namespace {

const sample::shape shape{100, 1, 4096};

bool is_data(const std::string& line) {
  return line.find(':') == std::string::npos && line[0] >= '0' && line[0] <= '9';
}

// Runs of blanks made two, in the data lines.
std::string close_columns(const std::string& text) {
  std::string all;
  for (const std::string& line : sample::lines_of(text)) {
    const bool squeezed = is_data(line);
    for (const char c : line) {
      const bool third = all.size() >= 2 && all.back() == ' ' && all[all.size() - 2] == ' ';
      if (!(squeezed && c == ' ' && third)) all += c;
    }
  }
  return all;
}

std::string wide_columns(const std::string& text) {
  std::string all;
  for (const std::string& line : sample::lines_of(text)) {
    const bool widened = is_data(line);
    for (const char c : line) {
      if (widened && c == '\n') all += '\r';
      if (widened && c == ' ' && all.back() != ' ') all += ' ';
      all += c;
    }
  }
  return all;
}

const std::string& usual_file() {
  static const std::string path = sample::written("bench_usual.dat", sample::text(shape));
  return path;
}

const std::string& close_file() {
  static const std::string path =
      sample::written("bench_close.dat", close_columns(sample::text(shape)));
  return path;
}

const std::string& wide_file() {
  static const std::string path =
      sample::written("bench_wide.dat", wide_columns(sample::text(shape)));
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
  // The first load makes the memory that the others use again.
  if (rawfile::kbpm_read_rawfile_at(path()) != 0) {
    state.SkipWithError("the file does not load");
    return;
  }
  std::optional<rawfile::raw_file> other;
  for (auto _ : state) {
    if (fresh) {
      state.PauseTiming();
      other.reset();
      rawfile::forget_rawfile();
      other.emplace(std::move(*rawfile::read_raw_file(path())));
      state.ResumeTiming();
    }
    benchmark::DoNotOptimize(rawfile::kbpm_read_rawfile_at(path()));
  }
  state.SetBytesProcessed(state.iterations() * bytes_of(path()));
  rawfile::forget_rawfile();
}

// Keeps the median time of each bench, beside the usual table.
class median_times : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
        times[run.run_name.function_name] = run.GetAdjustedCPUTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  const auto add = [](const char* name, auto work) {
    benchmark::RegisterBenchmark(name, work)->Unit(benchmark::kMillisecond)->Repetitions(7);
  };
  add("plain_usual", [](benchmark::State& s) { plain_reader(s, usual_file); });
  add("fresh_usual", [](benchmark::State& s) { library(s, usual_file, true); });
  add("reused_usual", [](benchmark::State& s) { library(s, usual_file, false); });
  add("plain_close", [](benchmark::State& s) { plain_reader(s, close_file); });
  add("reused_close", [](benchmark::State& s) { library(s, close_file, false); });
  add("plain_wide", [](benchmark::State& s) { plain_reader(s, wide_file); });
  add("reused_wide", [](benchmark::State& s) { library(s, wide_file, false); });
  // In front, so that the caller's own word counts.
  std::vector<char*> words{argv, argv + argc};
  std::string in_turns = "--benchmark_enable_random_interleaving=true";
  words.insert(words.begin() + 1, in_turns.data());
  int count = argc + 1;
  benchmark::Initialize(&count, words.data());
  median_times reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  const auto ratio = [&times = reporter.times](const char* what, const char* plain,
                                               const char* ours) {
    if (times.count(plain) == 0 || times.count(ours) == 0) return;
    fmt::print("{:<40} {:6.1f} times the plain reader\n", what, times[plain] / times[ours]);
  };
  ratio("usual columns, fresh memory", "plain_usual", "fresh_usual");
  ratio("usual columns, memory used again", "plain_usual", "reused_usual");
  ratio("close columns, memory used again", "plain_close", "reused_close");
  ratio("wide columns, memory used again", "plain_wide", "reused_wide");
  for (const auto& path : {usual_file(), close_file(), wide_file()}) std::filesystem::remove(path);
}
