#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "calendar.hpp"
#include "csv_text.hpp"
#include "gains_csv.hpp"
#include "symbols.hpp"
#include "text.hpp"
#include "trend_report.hpp"
#include "trend_words.hpp"
#include "whole_file.hpp"

namespace report {
namespace {

// A screen: what is more is in the files.
constexpr std::size_t most_lines = 30;

// Lines of a section, as many as one reads; how many there are is told.
void put_section(std::string& out, std::string_view title, const std::vector<std::string>& lines,
                 std::string_view where) {
  if (lines.empty()) return;
  out += fmt::format("\n{}\n", title);
  for (std::size_t i = 0; i < std::min(lines.size(), most_lines); ++i) {
    out += fmt::format("  {}\n", util::shown(lines[i]));
  }
  if (lines.size() > most_lines) {
    out += fmt::format("  and {} more: {}\n", lines.size() - most_lines, where);
  }
}

std::string run_in_words(const trend_data& data, std::size_t run) {
  return fmt::format("{} ({})", data.run[run].directory, minute_text(data.run[run].day));
}

std::vector<std::string> lines_of_changes(const trend_result& r) {
  std::vector<std::string> lines;
  for (const std::size_t i : worst_first(r)) {
    const bpm_trend& b = r.bpm[i];
    for (const trend_step* step : largest_first(b)) {
      lines.push_back(
          fmt::format("{}: step {}, {:.0f} times its error, between {} and {}{}",
                      long_name(*b.series), moved_in_words(step->moved, true), step->errors,
                      run_in_words(r.data, step->before), run_in_words(r.data, step->behind),
                      step->made_otherwise ? "; these runs differ in program or tables" : ""));
    }
    if (b.drift.told) {
      lines.push_back(fmt::format("{}: drift {} a month, {:.0f} times its error",
                                  long_name(*b.series), moved_in_words(b.drift.moved, true),
                                  b.drift.errors));
    }
    if (b.slow.told) {
      lines.push_back(fmt::format("{}: slowly {}, {:.0f} times its error, from {} to {}",
                                  long_name(*b.series), moved_in_words(b.slow.moved, true),
                                  b.slow.errors, run_in_words(r.data, b.slow.from),
                                  run_in_words(r.data, b.slow.to)));
    }
  }
  return lines;
}

std::vector<std::string> lines_of_wild(const trend_result& r) {
  std::vector<std::string> lines;
  for (const wild_in_run& w : wild_by_run(r)) {
    std::string names;
    // A run that is off in most of its BPMs is one fault, and no list of names.
    constexpr std::size_t most_names = 5;
    for (std::size_t i = 0; i < std::min(w.bpm.size(), most_names); ++i) {
      const auto& [bpm, wild] = w.bpm[i];
      names += fmt::format("{}{} {}{}", i == 0 ? "" : "; ", short_name(*r.bpm[bpm].series),
                           most_moved(wild->moved), wild->at_end ? " (at the end)" : "");
    }
    if (w.bpm.size() > most_names) names += "; ...";
    if (is_of_run(r, w)) names = "the run, rather than its BPMs";
    lines.push_back(fmt::format("{}: {} BPM{}: {}", run_in_words(r.data, w.run), w.bpm.size(),
                                w.bpm.size() == 1 ? "" : "s", names));
  }
  return lines;
}

std::vector<std::string> lines_of_unknown(const trend_result& r) {
  std::vector<std::string> lines;
  for (const bpm_trend& b : r.bpm) {
    if (b.word == trend_word::never) {
      lines.push_back(long_name(*b.series) + ": never determined: " + why_never(*b.series));
    } else if (b.word == trend_word::few) {
      lines.push_back(fmt::format("{}: {} run{} with gains, {} are needed", long_name(*b.series),
                                  b.used.size(), b.used.size() == 1 ? "" : "s", least_runs));
    }
  }
  return lines;
}

std::vector<std::string> lines_of_left_out(const trend_data& data) {
  std::vector<std::string> lines;
  for (const left_out_run& run : data.left_out) lines.push_back(run.directory + ": " + run.why);
  return lines;
}

void put_table(const trend_result& r, std::string& out) {
  std::size_t width = 4;
  for (const bpm_trend& b : r.bpm) width = std::max(width, util::shown(b.series->name).size());
  out += fmt::format(
      "\nall BPMs; scatter of one run, drift a month, both in %\n{:>5} {:<{}} {:>5} {:>5} {:>9} "
      "{:>6} {:>10} {:>9}\n",
      "BPM", "name", width, "runs", "used", "scatter", "steps", "drift", "error");
  for (const std::size_t i : worst_first(r)) {
    const bpm_trend& b = r.bpm[i];
    out += fmt::format("{:5} {:<{}} {:5} {:5}", b.series->bpm, util::shown(b.series->name), width,
                       b.series->point.size(), b.used.size());
    if (b.word != trend_word::never && b.word != trend_word::few) {
      const moved_gains& drift = b.drift.moved;
      out += fmt::format(" {:9.4f} {:6} {:+10.5f} {:9.5f}{}", 100 * b.usual_scatter, b.steps.size(),
                         100 * drift.change[drift.button], 100 * drift.error,
                         changed(b) ? "  changed" : "");
    }
    out += '\n';
  }
}

// --- files --------------------------------------------------------------------------------------

void put_reals(std::string& line, const four& values) {
  for (const double v : values) put_real(line += ',', v);
}

std::string lines_of_points(const trend_result& r, const bpm_trend& b) {
  std::string text;
  const std::string begin = fmt::format("{},{},", b.series->bpm, field_text(b.series->name));
  std::size_t used = 0, wild = 0;
  for (std::size_t i = 0; i < b.series->point.size(); ++i) {
    const trend_point& p = b.series->point[i];
    const trend_run& run = r.data.run[p.run];
    text += fmt::format("{}{},{},{},{}", begin, p.run + 1, field_text(run.directory),
                        iso_text(run.day), text_of(p.verdict));
    const bool is_used = used < b.used.size() && b.used[used] == i;
    if (is_used) {
      const bool is_wild = wild < b.wild.size() && b.wild[wild].run == p.run;
      if (is_wild) ++wild;
      text += is_wild ? ",1,1" : ",1,0";
      four t{};
      for (std::size_t k = 0; k < 4; ++k) t[k] = std::exp(p.gain[k]);
      put_reals(text, t);
      put_real(text += ',', p.error);
      put_real(text += ',', b.scatter[used]);
      put_reals(text, b.shown[used]);
      put_reals(text, b.explained[used]);
      ++used;
    } else {
      text += ",0,0,,,,";
      put_real(text += ',', p.error);
      text += ",,,,,,,,,";
    }
    text += '\n';
  }
  return text;
}

struct change_line {
  std::string_view kind;
  const moved_gains* moved = nullptr;
  double errors = unknown;
  std::size_t before = 0, behind = 0;
  bool has_runs = false;
  std::string note;
};

void put_change(const trend_result& r, const bpm_trend& b, const change_line& c, std::string& out) {
  out += fmt::format("{},{},{}", c.kind, b.series->bpm, field_text(b.series->name));
  if (c.moved == nullptr) {
    out += ",,,,,,,,,";
  } else {
    out += fmt::format(",{}", chart::button_names[c.moved->button]);
    put_real(out += ',', c.moved->change[c.moved->button]);
    put_real(out += ',', c.moved->error);
    put_real(out += ',', c.errors);
    out += fmt::format(",{}", c.moved->count);
    put_reals(out, c.moved->change);
  }
  for (const std::size_t run : {c.before, c.behind}) {
    if (c.has_runs) {
      out += fmt::format(",{},{}", field_text(r.data.run[run].directory),
                         iso_text(r.data.run[run].day));
    } else {
      out += ",,";
    }
  }
  out += fmt::format(",{}\n", field_text(c.note));
}

}  // namespace

std::string trend_text(const trend_result& r) {
  std::string out = util::shown(trend_sentence(r)) + '\n';
  out += fmt::format("{}; {} left out\n", runs_in_words(r.data), r.data.left_out.size());
  if (const std::string hint = hint_at_times(r); !hint.empty()) out += hint + '\n';
  put_section(out,
              fmt::format("changes: more than {:g} times their error and more than {:g} %",
                          r.limits.errors, 100 * r.limits.floor),
              lines_of_changes(r), "changes.csv");
  put_section(out, "runs that are off by themselves, others before and behind agreeing",
              lines_of_wild(r), "changes.csv");
  put_section(out, "BPMs about which nothing can be said", lines_of_unknown(r), "changes.csv");
  put_section(out, "runs left out", lines_of_left_out(r.data), "trend.html");
  put_table(r, out);
  return out;
}

util::status write_trend_csv(const std::string& path, const trend_result& r) {
  util::unfinished_file file;
  if (auto fault = util::begin_whole_file(file, path)) return fault;
  util::put(file,
            "bpm,name,run,directory,time,verdict,used,wild,gain_1,gain_2,gain_3,gain_4,error,"
            "scatter,change_1,change_2,change_3,change_4,level_1,level_2,level_3,level_4\n");
  // A BPM at a time: all points of a year are more than one likes to hold as text.
  for (const bpm_trend& b : r.bpm) util::put(file, lines_of_points(r, b));
  return util::finish(file);
}

std::string changes_csv(const trend_result& r) {
  std::string out =
      "kind,bpm,name,button,change,change_error,change_in_errors,buttons,change_1,change_2,"
      "change_3,change_4,run_before,time_before,run_behind,time_behind,note\n";
  for (const std::size_t i : worst_first(r)) {
    const bpm_trend& b = r.bpm[i];
    for (const trend_step& s : b.steps) {
      put_change(r, b,
                 {"step", &s.moved, s.errors, s.before, s.behind, true,
                  s.made_otherwise ? "the runs differ in program or tables" : ""},
                 out);
    }
    if (b.drift.told) {
      const auto run_of = [&b](std::size_t used) {
        return static_cast<std::size_t>(b.series->point[used].run);
      };
      put_change(r, b,
                 {"drift", &b.drift.moved, b.drift.errors, run_of(b.used.front()),
                  run_of(b.used.back()), true, "a month"},
                 out);
    }
    if (b.slow.told) {
      put_change(r, b, {"slow", &b.slow.moved, b.slow.errors, b.slow.from, b.slow.to, true, ""},
                 out);
    }
    for (const wild_run& w : b.wild) {
      put_change(r, b,
                 {"wild", &w.moved, w.errors, w.run, w.run, true,
                  w.at_end ? "at the end: perhaps the beginning of a step" : ""},
                 out);
    }
    if (b.word == trend_word::never || b.word == trend_word::few) {
      put_change(r, b,
                 {b.word == trend_word::never ? "never" : "few", nullptr, unknown, 0, 0, false,
                  b.word == trend_word::never ? why_never(*b.series) : ""},
                 out);
    }
  }
  return out;
}

}  // namespace report
