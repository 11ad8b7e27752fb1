#include "battery.hpp"

#include <algorithm>
#include <cmath>
#include <map>

#include "judged_run.hpp"
#include "run_time.hpp"
#include "table_maker.hpp"

namespace sim {
namespace {

// What the calibration allows a current to follow the position [1/m].
constexpr double allowed_slope = 9e-3;

// Written as a chamber file, so that the battery goes through the reader that users go through.
constexpr std::string_view ellipse_text =
    "nonlin_bpm_chamber 1\nname ellipse\nunits mm\ncontour ellipse 45 25\n"
    "button 1 -12.5 -24 15 strip\nbutton 2 12.5 -24 15 strip\nbutton 3 -12.5 24 15 strip\n"
    "button 4 12.5 24 15 strip\nx_grid 81 -30 30\ny_grid 61 -18 18\nmargin 4\nend\n";

chamber drawing_of(battery_chamber which) {
  if (which == battery_chamber::round) return round_chamber();
  if (which == battery_chamber::racetrack) {
    return chamber_solver::default_chamber_at(chamber_solver::default_chamber_of(20));
  }
  auto parsed = chamber_solver::parse_chamber(ellipse_text, "the battery's ellipse");
  if (!parsed) util::run_time_error(util::line_of(parsed.why));
  return std::move(*parsed);
}

}  // namespace

// Tables are made once, when the first kind asks for them.
const nonlin_bpm_mod::table_struct& table_for(battery_chamber which) {
  // References into a map stay valid when it grows, which those into a vector would not.
  static std::map<battery_chamber, nonlin_bpm_mod::table_struct> made;
  if (const auto at = made.find(which); at != made.end()) return at->second;
  auto table = chamber_solver::table_of(drawing_of(which));
  if (!table) util::run_time_error(util::line_of(table.why));
  return made.emplace(which, std::move(*table)).first->second;
}

std::shared_ptr<const solved_chamber> passed_by(const battery_kind& kind) {
  // The beam passes the changed chamber, the calibration gets the table of the drawn one: a drawing
  // is all that anybody has of a real chamber.
  const auto real = changed(drawing_of(kind.chamber), kind.change);
  if (!real) util::run_time_error(util::line_of(real.why));
  return solve(*real);
}

namespace {

// The run of one fresh BPM, described: its number chooses gains, pedestals, slopes, motion, noise.
beam_run describe_run(const battery_kind& kind,
                      const std::shared_ptr<const solved_chamber>& chamber, std::uint64_t seed,
                      int bpm, const battery_setup& s) {
  beam_run run;
  run.chamber = chamber;
  run.beam = kind.beam;
  run.orbits = kind.orbits;
  run.seed = seed;
  run.bpm = bpm;
  electronics_setup e = kind.electronics;
  // What a kind says of single buttons is written for BPM 1; here every BPM has the trouble.
  for (auto* list : {&e.dead, &e.saturated, &e.compressed, &e.stuck, &e.swapped, &e.gain_steps,
                     &e.gain_drifts}) {
    for (button_value& v : *list) v.bpm = bpm;
  }
  if (kind.draw_allowances) {
    // Drawn from the very priors of the calibration: only then must its pulls have an rms of 1.
    random_stream stream = make_stream(seed, purpose::motion, bpm, 1);
    e.pedestal_left = s.sigma_p;
    run.beam.current.slope_x = allowed_slope * normal(stream);
    run.beam.current.slope_y = allowed_slope * normal(stream);
  }
  run.electronics = make_electronics(e, seed, bpm);
  return run;
}

// The same run in one of its stretches, the ix-th from 1; `pedestals` drew those that are left.
beam_run in_stretch(const beam_run& whole, const stretch& part, double sum_of_parts, int ix,
                    const bpm_electronics& pedestals) {
  beam_run run = whole;
  run.orbits = std::max(1, static_cast<int>(std::lround(whole.orbits * part.part / sum_of_parts)));
  run.bunch = ix;  // random numbers of its own
  for (plane* p : {&run.beam.x, &run.beam.y}) {
    p->spread *= part.motion;
    p->amplitude *= part.motion;
  }
  run.beam.x.orbit += part.x;
  run.beam.y.orbit += part.y;
  run.electronics.signal *= part.current;
  run.electronics.noise /= part.current;  // in parts of the signal
  run.electronics.pedestal_left = pedestals.pedestal_left;
  return run;
}

run_signals simulate_or_end(const beam_run& run, const std::string& name) {
  auto made = simulate(run);
  if (!made) util::run_time_error(name + ": " + util::line_of(made.why));
  return std::move(*made);
}

template <class T>
void append(std::vector<T>& to, const std::vector<T>& from) {
  to.insert(to.end(), from.begin(), from.end());
}

}  // namespace

battery_run make_run(const battery_kind& kind, const std::shared_ptr<const solved_chamber>& chamber,
                     std::uint64_t seed, int bpm, const battery_setup& s) {
  const beam_run whole = describe_run(kind, chamber, seed, bpm, s);
  if (kind.stretches.empty()) return {simulate_or_end(whole, kind.name), {}};
  double parts = 0;
  for (const stretch& part : kind.stretches) parts += part.part;
  battery_run joined;
  bpm_electronics pedestals = whole.electronics;
  for (std::size_t i = 0; i < kind.stretches.size(); ++i) {
    const stretch& part = kind.stretches[i];
    // Another seed for the pedestals alone: the gains stay those of the BPM.
    if (part.new_pedestals) pedestals = make_electronics(kind.electronics, seed + 500 + i, bpm);
    const run_signals made = simulate_or_end(
        in_stretch(whole, part, parts, static_cast<int>(i) + 1, pedestals), kind.name);
    if (part.new_set || i == 0) {
      joined.set_start.push_back(static_cast<int>(joined.made.signal.size()));
    }
    append(joined.made.signal, made.signal);
    append(joined.made.at, made.at);
    append(joined.made.intensity, made.intensity);
    joined.made.true_gain = joined.made.mean_gain = made.true_gain;
  }
  return joined;
}

kind_result run_kind(const battery_kind& kind, std::size_t ix_kind, const battery_setup& s) {
  const auto chamber = passed_by(kind);
  knowledge known;
  known.table = &table_for(kind.chamber);
  known.sigma_p = s.sigma_p;

  kind_result result;
  std::map<std::string, int> reasons;
  for (int bpm = 1; bpm <= s.bpms; ++bpm) {
    // Kinds get seeds of their own, so that no two share their noise; 1000 exceeds the number of
    // kinds.
    const battery_run run = make_run(kind, chamber, 1000 * s.seed + ix_kind, bpm, s);
    known.set_start = run.set_start;
    const judged_run judged = judge(run.made, known);
    const auto& verdict = judged.record.verdict;
    // A run that was given up before the fits were judged carries its verdict over to them.
    const auto& of_fits = judged.record.fits_verdict.value_or(verdict);
    const bool determined = verdict.word == calibration::verdict_word::determined;
    const double error = rms_of(judged.calibration);
    ++result.words.at(static_cast<std::size_t>(verdict.word));
    ++result.fits_words.at(static_cast<std::size_t>(of_fits.word));
    if (!determined) ++reasons[text_of(verdict)];
    // The one count that must be 0: a word too careful costs a run, a word too bold a machine.
    if (determined && error > false_above) ++result.wrong;
    if (of_fits.word == calibration::verdict_word::determined &&
        rms_of(judged.fits) > false_above) {
      ++result.fits_wrong;
    }
    result.rms += error * error / s.bpms;
    result.worst = std::max(result.worst, error);
    const auto& fit = chosen_fit(judged.record);
    result.E += fit.E * fit.E / s.bpms;
    if (fit.orbits == 0) continue;
    for (const double pull : pulls_of(judged.calibration, fit.covariance)) {
      // Sums, not means: the caller adds up kinds before it divides.
      result.pull_squares += pull * pull;
      result.pull_sum += pull;
      ++result.pulls;
    }
  }
  result.rms = std::sqrt(result.rms);
  result.E = std::sqrt(result.E);
  const auto usual =
      std::max_element(reasons.begin(), reasons.end(),
                       [](const auto& a, const auto& b) { return a.second < b.second; });
  if (usual != reasons.end()) result.usual_reason = usual->first;
  return result;
}

}  // namespace sim
