#include "bpm_trend.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "calendar.hpp"
#include "scatter.hpp"

namespace report {
namespace {

double mean_of(const four& v) { return (v[0] + v[1] + v[2] + v[3]) / 4; }

std::vector<stated> stated_points(const bpm_series& series, const trend_data& data,
                                  std::vector<std::size_t>& used) {
  std::vector<stated> points;
  for (std::size_t i = 0; i < series.point.size(); ++i) {
    const trend_point& p = series.point[i];
    if (!p.usable) continue;
    used.push_back(i);
    points.push_back({data.run[p.run].day, p.gain, p.noise, p.error});
  }
  return points;
}

// --- wild runs ----------------------------------------------------------------------------------

// The median of some readings, button by button.
four median_of(std::span<const reading> readings, const four& slope, double day) {
  four middle{};
  for (std::size_t k = 0; k < 4; ++k) {
    std::vector<double> values;
    for (const reading& r : readings) values.push_back(r.value[k] + slope[k] * (day - r.day));
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    middle[k] = (values[(n - 1) / 2] + values[n / 2]) / 2;
  }
  return middle;
}

// Whether a reading is off from these neighbours, which all stand on one side of it.
bool off_from(const reading& r, std::span<const reading> neighbours, const four& slope,
              double wander, const trend_limits& limits) {
  if (neighbours.empty()) return true;
  const four middle = median_of(neighbours, slope, r.day);
  // A median of three has 0.45 of the variance of one; that of fewer, more.
  double variance = r.variance, days = 0;
  for (const reading& n : neighbours) {
    variance += 1.35 * n.variance / static_cast<double>(neighbours.size() * neighbours.size());
    days = std::max(days, std::abs(n.day - r.day));
  }
  four d{};
  for (std::size_t k = 0; k < 4; ++k) d[k] = r.value[k] - middle[k];
  return single_button_errors(d, variance + wander * days) > limits.errors;
}

// First guess, before any step is known: off from those before and from those behind alike. At a
// step a reading agrees with one side.
std::vector<bool> first_wild(std::span<const reading> all, double wander,
                             const trend_limits& limits) {
  constexpr std::size_t side = 3;  // of three, one that is wild itself does not count
  const four slope = robust_slope(all);
  std::vector<bool> wild(all.size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    const auto before = all.first(i), behind = all.subspan(i + 1);
    const auto off = [&](std::span<const reading> those) {
      return off_from(all[i], those, slope, wander, limits);
    };
    // From the next one as well: two that agree are a step, or the end of one, and not wild.
    wild[i] = off(before.last(std::min<std::size_t>(i, 1))) &&
              off(behind.first(std::min<std::size_t>(behind.size(), 1))) &&
              off(before.last(std::min(i, side))) &&
              off(behind.first(std::min(behind.size(), side)));
  }
  return wild;
}

std::vector<reading> without(std::span<const reading> all, const std::vector<bool>& wild) {
  std::vector<reading> kept;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (!wild[i]) kept.push_back(all[i]);
  }
  return kept;
}

// --- explanation and wild runs in turn ----------------------------------------------------------

struct explained_series {
  found_changes found;             // of the readings that are not wild
  std::vector<bool> wild;          // of all
  std::vector<known_level> level;  // at all readings, from the others
  std::vector<double> errors;      // by which each is off from that
};

// The level that the other readings of its stretch say at a reading.
known_level level_without(std::span<const reading> all, const explained_series& e, std::size_t at,
                          std::size_t begin, std::size_t end, double wander) {
  std::vector<reading> before, behind;
  // Near ones suffice: with more, the level is no better known than the reading itself.
  constexpr std::size_t enough = 40;
  for (std::size_t i = at; i-- > begin && before.size() < enough;) {
    if (!e.wild[i]) before.push_back(all[i]);
  }
  for (std::size_t i = at + 1; i < end && behind.size() < enough; ++i) {
    if (!e.wild[i]) behind.push_back(all[i]);
  }
  known_level sum{};
  double weights = 0;
  for (const auto& side : {before, behind}) {
    if (side.empty()) continue;
    // Filtered towards the reading.
    const std::vector<reading> towards(side.rbegin(), side.rend());
    const known_level near = forward_levels(towards, wander).back();
    const double weight = 1 / (near.variance + wander * std::abs(side[0].day - all[at].day));
    weights += weight;
    for (std::size_t k = 0; k < 4; ++k) sum.value[k] += weight * near.value[k];
    sum.day += weight * near.day;
  }
  if (weights == 0) return {all[at].value, all[at].day, 1};
  sum.day /= weights;
  sum.variance = 1 / weights;
  for (std::size_t k = 0; k < 4; ++k) {
    sum.value[k] /= weights;
    if (e.found.drifts) sum.value[k] += e.found.drift.a_day[k] * (all[at].day - sum.day);
  }
  return sum;
}

// Places of the steps among all readings.
std::vector<std::size_t> places_of_steps(const explained_series& e) {
  std::vector<std::size_t> kept;
  for (std::size_t i = 0; i < e.wild.size(); ++i) {
    if (!e.wild[i]) kept.push_back(i);
  }
  std::vector<std::size_t> places;
  for (const found_step& step : e.found.steps) places.push_back(kept[step.at]);
  places.push_back(e.wild.size());
  return places;
}

void compare_with_others(std::span<const reading> all, double wander, explained_series& e) {
  e.level.clear();
  e.errors.clear();
  std::size_t begin = 0;
  for (const std::size_t end : places_of_steps(e)) {
    for (std::size_t i = begin; i < end; ++i) {
      const known_level at = level_without(all, e, i, begin, end, wander);
      four d{};
      for (std::size_t k = 0; k < 4; ++k) d[k] = all[i].value[k] - at.value[k];
      e.level.push_back(at);
      e.errors.push_back(single_button_errors(d, all[i].variance + at.variance));
    }
    begin = end;
  }
}

// For the search, errors of means count, for wild runs that of each by itself.
explained_series explain_series(std::span<const reading> all, double wander, double memory,
                                const trend_limits& limits) {
  explained_series e;
  e.wild = first_wild(all, wander, limits);
  constexpr int most_rounds = 4;  // a run on the verge may come and go
  for (int round = 0; round < most_rounds; ++round) {
    std::vector<reading> kept = without(all, e.wild);
    for (reading& r : kept) r.variance *= memory;
    e.found = search_changes(kept, wander, limits);
    compare_with_others(all, wander, e);
    std::vector<bool> wild(all.size());
    for (std::size_t i = 0; i < all.size(); ++i) wild[i] = e.errors[i] > limits.errors;
    if (std::exchange(e.wild, wild) == wild) break;
  }
  return e;
}

// --- into the record ----------------------------------------------------------------------------

bool made_otherwise(const trend_run& p, const trend_run& q) {
  return p.version != q.version || p.tables != q.tables;
}

void take_steps(const explained_series& e, const trend_data& data, const trend_limits& limits,
                bpm_trend& b) {
  std::vector<std::size_t> runs;  // of the readings that are not wild
  for (std::size_t i = 0; i < b.used.size(); ++i) {
    if (!e.wild[i]) runs.push_back(b.series->point[b.used[i]].run);
  }
  for (const found_step& step : e.found.steps) {
    trend_step told;
    told.before = runs[step.earliest - 1];
    told.behind = runs[step.latest];
    told.errors = single_button_errors(step.change, step.variance);
    told.moved = explain(step.change, step.variance, limits);
    told.made_otherwise = made_otherwise(data.run[told.before], data.run[told.behind]);
    b.steps.push_back(told);
  }
}

void take_drift(const found_changes& found, double days, const trend_limits& limits, bpm_trend& b) {
  if (!(found.drift.variance > 0)) return;
  four a_month = found.drift.a_day;
  for (double& a : a_month) a *= days_of_month;
  const double variance = found.drift.variance * days_of_month * days_of_month;
  // Whether a second button drifts is worth a look where it makes a floor in all the time.
  trend_limits of_slope = limits;
  of_slope.floor *= days > 0 ? days_of_month / days : 1;
  b.drift.moved = explain(a_month, variance, of_slope);
  b.drift.errors = single_button_errors(a_month, variance);
  const double size = std::abs(b.drift.moved.change[b.drift.moved.button]);
  b.drift.told = found.drifts && b.drift.errors > limits.errors && size > of_slope.floor;
}

void take_wild(std::span<const reading> all, const explained_series& e, const trend_limits& limits,
               bpm_trend& b) {
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (!e.wild[i]) continue;
    four d{};
    for (std::size_t k = 0; k < 4; ++k) d[k] = all[i].value[k] - e.level[i].value[k];
    const moved_gains moved = explain(d, all[i].variance + e.level[i].variance, limits);
    b.wild.push_back(
        {b.series->point[b.used[i]].run, e.errors[i], moved, i == 0 || i + 1 == all.size()});
  }
}

// What steps and drift leave of the level at the readings that are not wild.
std::vector<four> rest_of_levels(std::span<const reading> all, const explained_series& e) {
  std::vector<four> rest;
  std::size_t i = 0, step = 0;
  four moved{};
  for (const known_level& at : e.found.level) {
    while (e.wild[i]) ++i;
    if (step < e.found.steps.size() && rest.size() == e.found.steps[step].at) {
      for (std::size_t k = 0; k < 4; ++k) moved[k] += e.found.steps[step].change[k];
      ++step;
    }
    four v = at.value;
    for (std::size_t k = 0; k < 4; ++k) {
      v[k] -= moved[k];
      if (e.found.drifts) v[k] -= e.found.drift.a_day[k] * (all[i].day - all.front().day);
    }
    rest.push_back(v);
    ++i;
  }
  return rest;
}

// Readings that are not wild, with the steps taken out.
std::vector<reading> without_steps(std::span<const reading> all, const explained_series& e) {
  std::vector<reading> rest = without(all, e.wild);
  for (const found_step& step : e.found.steps) {
    for (std::size_t i = step.at; i < rest.size(); ++i) {
      for (std::size_t k = 0; k < 4; ++k) rest[i].value[k] -= step.change[k];
    }
  }
  return rest;
}

// What steps and drift leave, in means of neighbours: so many that runs which scatter alike because
// the orbit remembers do not look like a level that moves.
struct blocks {
  std::vector<reading> mean;
  std::vector<std::size_t> run;  // in the middle of each, in trend_data::run
};

blocks blocks_of(std::span<const reading> all, const explained_series& e, double memory,
                 const bpm_trend& b) {
  const std::vector<reading> rest = without_steps(all, e);
  std::vector<std::size_t> runs;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (!e.wild[i]) runs.push_back(b.series->point[b.used[i]].run);
  }
  blocks made;
  const std::size_t each = reach_of_memory(rest.size());
  for (std::size_t begin = 0; begin + each <= rest.size(); begin += each) {
    reading mean{};
    double weights = 0;
    for (std::size_t i = begin; i < begin + each; ++i) {
      const double weight = 1 / (memory * rest[i].variance);
      weights += weight;
      mean.day += weight * rest[i].day;
      for (std::size_t k = 0; k < 4; ++k) {
        const double drift = e.found.drifts ? e.found.drift.a_day[k] : 0;
        mean.value[k] += weight * (rest[i].value[k] - drift * (rest[i].day - all.front().day));
      }
    }
    mean.day /= weights;
    for (double& v : mean.value) v /= weights;
    mean.variance = 1 / weights;
    made.mean.push_back(mean);
    made.run.push_back(runs[begin + each / 2]);
  }
  return made;
}

void take_slow(const blocks& rest, double wander, const trend_limits& limits, bpm_trend& b) {
  if (!(wander > 0) || rest.mean.empty()) return;
  // Wandering is weighed like a change: what it betters must be worth one.
  if (gain_by_wandering(rest.mean, wander) <= limits.errors * limits.errors) return;
  std::size_t from = 0, to = 0;
  double most = 0;
  for (std::size_t k = 0; k < 4; ++k) {
    const auto [low, high] = std::minmax_element(
        rest.mean.begin(), rest.mean.end(),
        [k](const reading& p, const reading& q) { return p.value[k] < q.value[k]; });
    if (high->value[k] - low->value[k] <= most) continue;
    most = high->value[k] - low->value[k];
    from = static_cast<std::size_t>(std::min(low, high) - rest.mean.begin());
    to = static_cast<std::size_t>(std::max(low, high) - rest.mean.begin());
  }
  four d{};
  for (std::size_t k = 0; k < 4; ++k) d[k] = rest.mean[to].value[k] - rest.mean[from].value[k];
  const double variance = rest.mean[from].variance + rest.mean[to].variance;
  b.slow.from = rest.run[from];
  b.slow.to = rest.run[to];
  b.slow.moved = explain(d, variance, limits);
  b.slow.errors = single_button_errors(d, variance);
  // Twice as clear as a step must be: an orbit that remembers for longer than a block looks the same.
  constexpr double surer = 2;
  b.slow.told = b.slow.errors > surer * limits.errors &&
                std::abs(b.slow.moved.change[b.slow.moved.button]) > limits.floor;
}

// The common factor of each run, so that buttons that did not move stay where they were.
void show(std::span<const reading> all, const explained_series& e, bpm_trend& b) {
  const double first = all.front().day;
  four moved{};  // by all steps so far, in the simplest explanation
  std::size_t next = 0;
  std::vector<four> shown(all.size()), explained(all.size());
  const auto places = places_of_steps(e);
  const std::vector<four> rest = rest_of_levels(all, e);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < all.size(); ++i) {
    while (next < b.steps.size() && i >= places[next]) {
      for (std::size_t k = 0; k < 4; ++k) moved[k] += b.steps[next].moved.change[k];
      ++next;
    }
    four model = moved;
    for (std::size_t k = 0; k < 4 && b.drift.told; ++k) {
      model[k] += b.drift.moved.change[k] / days_of_month * (all[i].day - first);
    }
    // Of a wild run, what the others say.
    const bool in_search = !e.wild[i] && kept < e.found.level.size();
    const four& at = in_search ? e.found.level[kept].value : e.level[i].value;
    // A single button that moves slowly takes all of that upon itself.
    if (b.slow.told && b.slow.moved.count == 1 && !rest.empty()) {
      const std::size_t k = b.slow.moved.button, near = std::min(kept, rest.size() - 1);
      model[k] += 4.0 / 3 * (rest[near][k] - rest[0][k]);
    }
    if (in_search) ++kept;
    const double common = mean_of(model);
    for (std::size_t k = 0; k < 4; ++k) {
      shown[i][k] = all[i].value[k] + common;
      explained[i][k] = at[k] + common;
    }
  }
  // From the level of the first run on.
  const four zero = explained[0];
  for (std::size_t i = 0; i < all.size(); ++i) {
    for (std::size_t k = 0; k < 4; ++k) {
      shown[i][k] -= zero[k];
      explained[i][k] -= zero[k];
    }
  }
  b.shown = std::move(shown);
  b.explained = std::move(explained);
}

// Readings of a BPM and their scatter.
struct bpm_readings {
  std::vector<stated> points;
  std::vector<reading> all;
  double wander = 0;  // [1/day]
  double memory = 1;
};

double own_memory(std::span<const reading> all, const explained_series& e) {
  std::vector<std::optional<four>> residuals;
  std::size_t kept = 0, next = 0;
  for (std::size_t i = 0; i < all.size(); ++i) {
    residuals.emplace_back();
    if (e.wild[i] || kept >= e.found.level.size()) continue;
    if (next < e.found.steps.size() && kept == e.found.steps[next].at) {
      residuals.emplace_back();
      ++next;
    }
    four r{};
    for (std::size_t k = 0; k < 4; ++k) {
      r[k] = (all[i].value[k] - e.found.level[kept].value[k]) / std::sqrt(all[i].variance);
    }
    residuals.back() = r;
    ++kept;
  }
  return memory_of(residuals);
}

// How the level wanders, and how far neighbours scatter alike. Several steps look like wandering, so
// both are asked for once more when those that are found are taken out.
double find_wander_and_memory(const trend_limits& limits, bpm_readings& of) {
  if (of.all.empty()) return unknown;
  of.wander = wander_of(of.all);
  const explained_series first = explain_series(of.all, of.wander, 1, limits);
  if (first.found.steps.empty()) return own_memory(of.all, first);
  of.wander = wander_of(without_steps(of.all, first));
  return own_memory(of.all, explain_series(of.all, of.wander, 1, limits));
}

void judge(const bpm_readings& of, const trend_data& data, const trend_limits& limits,
           bpm_trend& b) {
  const std::vector<reading>& all = of.all;
  for (const reading& r : all) b.scatter.push_back(std::sqrt(r.variance));
  std::vector<double> sorted = b.scatter;
  std::sort(sorted.begin(), sorted.end());
  b.usual_scatter = sorted[sorted.size() / 2];
  b.memory = of.memory;
  b.wander = std::sqrt(of.wander * days_of_month);
  const explained_series e = explain_series(all, of.wander, of.memory, limits);
  const bool enough = all.size() >= least_runs;
  if (enough) {
    take_steps(e, data, limits, b);
    take_drift(e.found, all.back().day - all.front().day, limits, b);
    take_slow(blocks_of(all, e, of.memory, b), of.wander, limits, b);
    take_wild(all, e, limits, b);
  }
  show(all, e, b);
  b.word = !enough ? trend_word::few : changed(b) ? trend_word::changed : trend_word::quiet;
}

// The scatter of every BPM first: each is judged with what all of them say.
std::vector<bpm_readings> readings_of_all(const trend_data& data, const trend_limits& limits,
                                          std::vector<bpm_trend>& trends) {
  std::vector<bpm_readings> all(data.bpm.size());
  std::vector<double> scales, memories;
  std::vector<std::size_t> counts;
  for (std::size_t i = 0; i < all.size(); ++i) {
    all[i].points = stated_points(data.bpm[i], data, trends[i].used);
    scales.push_back(scale_of_scatter(all[i].points));
    counts.push_back(all[i].points.size());
  }
  const std::vector<double> scale = shared_scales(scales, counts);
  for (std::size_t i = 0; i < all.size(); ++i) {
    for (const stated& p : all[i].points) {
      all[i].all.push_back({p.day, p.gain, variance_of(p, scale[i])});
    }
    memories.push_back(find_wander_and_memory(limits, all[i]));
  }
  const std::vector<double> memory = shared_memories(memories, counts);
  for (std::size_t i = 0; i < all.size(); ++i) all[i].memory = memory[i];
  return all;
}

}  // namespace

bool changed(const bpm_trend& b) { return !b.steps.empty() || b.drift.told || b.slow.told; }

double size_of_changes(const bpm_trend& b, const trend_data& data) {
  double most = 0;
  for (const trend_step& step : b.steps) {
    most = std::max(most, std::abs(step.moved.change[step.moved.button]));
  }
  if (b.slow.told) most = std::max(most, std::abs(b.slow.moved.change[b.slow.moved.button]));
  if (!b.drift.told || data.run.empty()) return most;
  const double months = (data.run.back().day - data.run.front().day) / days_of_month;
  return std::max(most, std::abs(b.drift.moved.change[b.drift.moved.button]) * months);
}

std::vector<bpm_trend> trends_of(const trend_data& data, const trend_limits& limits) {
  std::vector<bpm_trend> trends(data.bpm.size());
  for (std::size_t i = 0; i < trends.size(); ++i) trends[i].series = &data.bpm[i];
  const auto readings = readings_of_all(data, limits, trends);
  for (std::size_t i = 0; i < trends.size(); ++i) {
    if (!readings[i].all.empty()) judge(readings[i], data, limits, trends[i]);
  }
  return trends;
}

}  // namespace report
