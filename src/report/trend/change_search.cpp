#include "change_search.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace report {
namespace {

// What a search of one explanation works with. Cuts are the first readings behind steps.
struct explanation {
  std::vector<std::size_t> cuts;
  found_drift drift;
  double cost = 0;
};

struct series {
  std::span<const reading> readings;
  double wander = 0;
  trend_limits limits;
};

// From one end or cut to the next.
std::vector<std::pair<std::size_t, std::size_t>> stretches(const series& s,
                                                           const std::vector<std::size_t>& cuts) {
  std::vector<std::pair<std::size_t, std::size_t>> all;
  all.reserve(cuts.size() + 1);
  std::size_t begin = 0;
  for (const std::size_t cut : cuts) all.emplace_back(std::exchange(begin, cut), cut);
  all.emplace_back(begin, s.readings.size());
  return all;
}

line_sums sums_of_all(const series& s, const std::vector<std::size_t>& cuts) {
  line_sums all;
  for (const auto& [begin, end] : stretches(s, cuts)) {
    const line_sums part = sums_of(s.readings.subspan(begin, end - begin), s.wander);
    all.days += part.days;
    all.values += part.values;
    for (std::size_t k = 0; k < 4; ++k) all.products[k] += part.products[k];
  }
  return all;
}

found_drift line_of(const line_sums& sums) {
  found_drift line;
  // Readings of one moment say nothing about a line.
  if (!(sums.days > 0)) return line;
  for (std::size_t k = 0; k < 4; ++k) line.a_day[k] = sums.products[k] / sums.days;
  line.variance = 1 / sums.days;
  return line;
}

// The steps that are possible between two readings, all others of the stretch held.
struct scan {
  std::vector<found_step> step;  // at begin + least_on_a_side, and so on
  std::vector<double> errors;
};

scan scan_stretch(const series& s, std::size_t begin, std::size_t end, const found_drift& drift) {
  scan found;
  if (end - begin < 2 * least_on_a_side) return found;
  const auto part = s.readings.subspan(begin, end - begin);
  const auto before = forward_levels(part, s.wander), behind = backward_levels(part, s.wander);
  for (std::size_t i = least_on_a_side; i + least_on_a_side <= part.size(); ++i) {
    found_step step{.at = begin + i};
    const known_level &from = before[i - 1], &to = behind[i];
    const double days = to.day - from.day;
    for (std::size_t k = 0; k < 4; ++k) {
      step.change[k] = to.value[k] - from.value[k] - drift.a_day[k] * days;
    }
    step.variance = from.variance + to.variance + s.wander * (part[i].day - part[i - 1].day) +
                    drift.variance * days * days;
    found.errors.push_back(single_button_errors(step.change, step.variance));
    found.step.push_back(step);
  }
  return found;
}

// The clearest step of a stretch; nothing in one that is too short.
std::optional<found_step> clearest(const series& s, std::size_t begin, std::size_t end,
                                   const found_drift& drift) {
  const scan all = scan_stretch(s, begin, end, drift);
  const auto most = std::max_element(all.errors.begin(), all.errors.end());
  if (most == all.errors.end()) return {};
  const auto at = static_cast<std::size_t>(most - all.errors.begin());
  found_step step = all.step[at];
  // Where the squares are bettered by nearly as much, the step may be just as well.
  constexpr double as_likely = 4;
  const auto close = [&](std::size_t i) {
    return all.errors[i] * all.errors[i] >= *most * *most - as_likely;
  };
  std::size_t first = at, last = at;
  while (first > 0 && close(first - 1)) --first;
  while (last + 1 < all.errors.size() && close(last + 1)) ++last;
  step.earliest = all.step[first].at;
  step.latest = all.step[last].at;
  return step;
}

double errors_of(const found_step& step) {
  return single_button_errors(step.change, step.variance);
}

// The largest change of a button, in the simplest explanation.
double size_of(const four& change, double variance, const trend_limits& limits) {
  const moved_gains moved = explain(change, variance, limits);
  return std::abs(moved.change[moved.button]);
}

bool counts(const series& s, const found_step& step) {
  return errors_of(step) > s.limits.errors &&
         size_of(step.change, step.variance, s.limits) > s.limits.floor;
}

// Halves every stretch at its clearest step, as long as that is clear. The floor is not asked for
// yet: a short excursion hardly changes the mean of the long stretch that it stands in.
void split(const series& s, std::size_t begin, std::size_t end, const found_drift& drift,
           std::vector<std::size_t>& cuts) {
  const auto step = clearest(s, begin, end, drift);
  if (!step || errors_of(*step) <= s.limits.errors) return;
  cuts.push_back(step->at);
  split(s, begin, step->at, drift, cuts);
  split(s, step->at, end, drift, cuts);
}

// Every step where it is clearest between its neighbours.
std::vector<found_step> settled(const series& s, std::vector<std::size_t>& cuts,
                                const found_drift& drift) {
  std::vector<found_step> steps;
  constexpr int most_rounds = 8;  // cuts that still exchange a reading then are as good either way
  for (int round = 0; round < most_rounds; ++round) {
    steps.clear();
    bool moved = false;
    for (std::size_t i = 0; i < cuts.size(); ++i) {
      const std::size_t begin = i == 0 ? 0 : cuts[i - 1];
      const std::size_t end = i + 1 < cuts.size() ? cuts[i + 1] : s.readings.size();
      const auto step = clearest(s, begin, end, drift);
      moved = moved || step->at != cuts[i];
      cuts[i] = step->at;
      steps.push_back(*step);
    }
    if (!moved) break;
  }
  return steps;
}

// Takes the least clear step away until all that are left count.
std::vector<found_step> pruned(const series& s, std::vector<std::size_t>& cuts,
                               const found_drift& drift) {
  for (;;) {
    std::vector<found_step> steps = settled(s, cuts, drift);
    auto worst = steps.end();
    for (auto step = steps.begin(); step != steps.end(); ++step) {
      if (counts(s, *step)) continue;
      if (worst == steps.end() || errors_of(*step) < errors_of(*worst)) worst = step;
    }
    if (worst == steps.end()) return steps;
    cuts.erase(cuts.begin() + (worst - steps.begin()));
  }
}

double cost_of(const series& s, const explanation& e, bool drifts) {
  const line_sums sums = sums_of_all(s, e.cuts);
  const double a_change = s.limits.errors * s.limits.errors;
  double cost = sums.values + a_change * static_cast<double>(e.cuts.size());
  if (!drifts || !(sums.days > 0)) return cost;
  for (const double product : sums.products) cost -= product * product / sums.days;
  return cost + a_change;
}

explanation steps_alone(const series& s) {
  explanation e;
  split(s, 0, s.readings.size(), {}, e.cuts);
  std::sort(e.cuts.begin(), e.cuts.end());
  static_cast<void>(pruned(s, e.cuts, {}));
  e.cost = cost_of(s, e, false);
  return e;
}

// Line and steps in turn, each with the other held, until the steps stay where they are.
explanation steps_on_a_line(const series& s, std::vector<std::size_t> begin_with) {
  explanation e;
  e.cuts = std::move(begin_with);
  constexpr int most_rounds = 10;
  for (int round = 0; round < most_rounds; ++round) {
    e.drift = line_of(sums_of_all(s, e.cuts));
    // The line's own error would hide every step from a line that took it in.
    found_drift held = e.drift;
    held.variance = 0;
    std::vector<std::size_t> cuts;
    split(s, 0, s.readings.size(), held, cuts);
    std::sort(cuts.begin(), cuts.end());
    static_cast<void>(pruned(s, cuts, held));
    if (std::exchange(e.cuts, cuts) == cuts) break;
  }
  e.drift = line_of(sums_of_all(s, e.cuts));
  // With its error at last: a step that the line explains as well is none.
  static_cast<void>(pruned(s, e.cuts, e.drift));
  e.drift = line_of(sums_of_all(s, e.cuts));
  e.cost = cost_of(s, e, true);
  return e;
}

// What the explanation says at every reading: the level of its stretch from both sides.
std::vector<known_level> levels_of(const series& s, const std::vector<std::size_t>& cuts,
                                   const found_drift& drift) {
  std::vector<known_level> levels;
  for (const auto& [begin, end] : stretches(s, cuts)) {
    const auto part = s.readings.subspan(begin, end - begin);
    const auto before = forward_levels(part, s.wander), behind = backward_levels(part, s.wander);
    for (std::size_t i = 0; i < part.size(); ++i) {
      known_level at = before[i];
      if (i + 1 < part.size()) {
        // Forward up to here and backward from the next: independent of each other.
        const known_level& next = behind[i + 1];
        const double variance = next.variance + s.wander * (part[i + 1].day - part[i].day);
        const double weight = at.variance / (at.variance + variance);
        for (std::size_t k = 0; k < 4; ++k) at.value[k] += weight * (next.value[k] - at.value[k]);
        at.day += weight * (next.day - at.day);
        at.variance *= 1 - weight;
      }
      for (std::size_t k = 0; k < 4; ++k) at.value[k] += drift.a_day[k] * (part[i].day - at.day);
      levels.push_back(at);
    }
  }
  return levels;
}

}  // namespace

found_changes search_changes(std::span<const reading> readings, double wander,
                             const trend_limits& limits) {
  found_changes found;
  if (readings.empty()) return found;
  const series s{readings, wander, limits};
  explanation best = steps_alone(s);
  const double without_line = best.cost;
  for (const auto& begin_with : {std::vector<std::size_t>{}, best.cuts}) {
    explanation e = steps_on_a_line(s, begin_with);
    if (e.cost < best.cost) best = std::move(e);
  }
  found.drifts = best.cost < without_line;
  if (!found.drifts) best.drift = {};
  found.steps = settled(s, best.cuts, best.drift);
  found.level = levels_of(s, best.cuts, best.drift);
  found.drift = line_of(sums_of_all(s, best.cuts));
  return found;
}

}  // namespace report
