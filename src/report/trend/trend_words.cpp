#include "trend_words.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

#include "calendar.hpp"
#include "symbols.hpp"

namespace report {

std::string short_name(const bpm_series& series) {
  return series.name.empty() ? fmt::format("BPM {}", series.bpm) : series.name;
}

std::string long_name(const bpm_series& series) {
  return series.name.empty() ? fmt::format("BPM {}", series.bpm)
                             : fmt::format("BPM {} ({})", series.bpm, series.name);
}

std::string percent(double change) { return fmt::format("{:+.3g} %", 100 * change); }

// With as many decimals as the error is worth.
std::string percent_and_error(double change, double error) {
  const int decimals =
      error > 0 ? std::clamp(static_cast<int>(std::ceil(-std::log10(100 * error))) + 1, 0, 7) : 7;
  return fmt::format("{:+.{}f} ± {:.{}f} %", 100 * change, decimals, 100 * error, decimals);
}

std::string moved_in_words(const moved_gains& moved, bool with_error) {
  std::string words;
  for (std::size_t k = 0; k < 4; ++k) {
    if (moved.change[k] == 0) continue;  // exactly: it stood still
    words += fmt::format(
        "{}{} {}", words.empty() ? "" : ", ", chart::button_names[k],
        with_error ? percent_and_error(moved.change[k], moved.error) : percent(moved.change[k]));
  }
  if (moved.or_others) words += ", or the other two the other way";
  return words;
}

std::string most_moved(const moved_gains& moved) {
  return fmt::format("{} {}{}", chart::button_names[moved.button],
                     percent(moved.change[moved.button]), moved.count > 1 ? " and others" : "");
}

std::string between(const trend_data& data, const trend_step& step) {
  const double before = data.run[step.before].day, behind = data.run[step.behind].day;
  if (std::floor(before) != std::floor(behind)) {
    return fmt::format("between {} and {}", date_text(before), date_text(behind));
  }
  return fmt::format("between {} and {}", minute_text(before), minute_text(behind));
}

std::vector<const trend_step*> largest_first(const bpm_trend& b) {
  std::vector<const trend_step*> steps;
  for (const trend_step& step : b.steps) steps.push_back(&step);
  const auto size = [](const trend_step* step) {
    return std::abs(step->moved.change[step->moved.button]);
  };
  std::stable_sort(steps.begin(), steps.end(),
                   [size](const trend_step* p, const trend_step* q) { return size(p) > size(q); });
  return steps;
}

std::vector<std::string> changes_in_words(const bpm_trend& b, const trend_data& data,
                                          bool with_error) {
  std::vector<std::string> words;
  words.reserve(b.steps.size() + 2);
  for (const trend_step* step : largest_first(b)) {
    words.push_back(moved_in_words(step->moved, with_error) + ' ' + between(data, *step));
  }
  if (b.drift.told) {
    words.push_back("drift " + moved_in_words(b.drift.moved, with_error) + " a month");
  }
  if (b.slow.told) {
    words.push_back(fmt::format("slowly {} from {} to {}", moved_in_words(b.slow.moved, with_error),
                                date_text(data.run[b.slow.from].day),
                                date_text(data.run[b.slow.to].day)));
  }
  return words;
}

std::string runs_in_words(const trend_data& data) {
  const std::size_t n = data.run.size();
  if (n == 0) return "no runs";
  return fmt::format("{} run{} from {} to {}", n, n == 1 ? "" : "s",
                     date_text(data.run.front().day), date_text(data.run.back().day));
}

std::string hint_at_times(const trend_result& r) {
  constexpr double at_once = 2;  // days
  if (r.times_given || r.data.run.size() < least_runs) return {};
  if (r.data.run.back().day - r.data.run.front().day > at_once) return {};
  return "All runs were made at once. If their data are older, --times FILE says when they were "
         "taken.";
}

std::string trend_sentence(const trend_result& r) {
  std::vector<std::string> names;
  constexpr std::size_t most = 3;
  std::size_t judged = 0, changes = 0;
  for (const std::size_t i : worst_first(r)) {
    const bpm_trend& b = r.bpm[i];
    judged += b.word != trend_word::never && b.word != trend_word::few;
    if (!changed(b)) continue;
    if (++changes > most) continue;
    names.push_back(
        fmt::format("{} ({})", short_name(*b.series), changes_in_words(b, r.data, false).front()));
  }
  // "Nothing changed" must not be said of what nobody could look at.
  if (judged == 0) {
    return fmt::format("no BPM has {} runs with gains: too few to see a change in {}", least_runs,
                       runs_in_words(r.data));
  }
  if (changes == 0) {
    return fmt::format("none of {} BPM{} changed in {}", judged, judged == 1 ? "" : "s",
                       runs_in_words(r.data));
  }
  std::string out = fmt::format("{} of {} BPM{} changed: {}", changes, judged,
                                judged == 1 ? "" : "s", fmt::join(names, ", "));
  if (changes > most) out += fmt::format(" and {} more", changes - most);
  return out;
}

std::string why_never(const bpm_series& series) {
  const auto most =
      std::max_element(series.why_not.begin(), series.why_not.end(),
                       [](const auto& p, const auto& q) { return p.second < q.second; });
  if (most == series.why_not.end()) return {};
  const std::size_t n = series.point.size();
  return fmt::format("{} ({} of {} run{})", most->first, most->second, n, n == 1 ? "" : "s");
}

std::vector<wild_in_run> wild_by_run(const trend_result& r) {
  std::map<std::size_t, wild_in_run> by_run;
  for (std::size_t i = 0; i < r.bpm.size(); ++i) {
    for (const wild_run& w : r.bpm[i].wild) {
      by_run[w.run].run = w.run;
      by_run[w.run].bpm.emplace_back(i, &w);
    }
  }
  std::vector<wild_in_run> all;
  all.reserve(by_run.size());
  for (auto& [run, wild] : by_run) all.push_back(std::move(wild));
  std::stable_sort(all.begin(), all.end(), [](const wild_in_run& p, const wild_in_run& q) {
    return p.bpm.size() > q.bpm.size();
  });
  return all;
}

bool is_of_run(const trend_result& r, const wild_in_run& w) {
  constexpr std::size_t least = 4;
  return w.bpm.size() >= least && 3 * w.bpm.size() >= r.bpm.size();
}

std::size_t count_of(const trend_result& r, trend_word word) {
  return static_cast<std::size_t>(std::count_if(
      r.bpm.begin(), r.bpm.end(), [word](const bpm_trend& b) { return b.word == word; }));
}

std::vector<std::size_t> worst_first(const trend_result& r) {
  std::vector<std::size_t> order(r.bpm.size());
  std::iota(order.begin(), order.end(), 0);
  const auto rank = [](trend_word word) {
    switch (word) {
      case trend_word::changed:
        return 0;
      case trend_word::never:
        return 1;
      case trend_word::few:
        return 2;
      case trend_word::quiet:
        break;
    }
    return 3;
  };
  std::stable_sort(order.begin(), order.end(), [&](std::size_t i, std::size_t j) {
    const bpm_trend &p = r.bpm[i], &q = r.bpm[j];
    if (p.word != q.word) return rank(p.word) < rank(q.word);
    return size_of_changes(p, r.data) > size_of_changes(q, r.data);
  });
  return order;
}

}  // namespace report
