// The subcommand battery: all kinds, one line each, and what they add up to.
#include <fmt/core.h>

#include <cmath>
#include <memory>

#include "battery.hpp"
#include "commands.hpp"
#include "options.hpp"
#include "terminal.hpp"

namespace commands {
namespace {

using namespace options;

/// Counts over all kinds.
struct totals {
  int kinds = 0, bpms = 0;
  int wrong = 0, fits_wrong = 0, fits_determined = 0;
  int sound = 0, lost = 0;         // BPMs of sound kinds, and those of them that are not determined
  int blind = 0, blind_wrong = 0;  // of kinds that no data can tell
  double pull_squares = 0, pull_sum = 0;  // of the kind whose allowances are drawn
  int pulls = 0;
};

void add_to(totals& sum, const sim::battery_kind& kind, const sim::kind_result& r, int bpms) {
  ++sum.kinds;
  sum.bpms += bpms;
  if (kind.blind) {
    sum.blind += bpms;
    sum.blind_wrong += r.wrong;
    return;
  }
  sum.wrong += r.wrong;
  sum.fits_wrong += r.fits_wrong;
  sum.fits_determined += r.fits_words[0];
  if (kind.sound) {
    sum.sound += bpms;
    sum.lost += bpms - r.words[0];
  }
  // Elsewhere the pulls mean nothing: a trouble is no draw from the priors, and none at all is
  // less.
  if (!kind.draw_allowances) return;
  sum.pull_squares += r.pull_squares;
  sum.pull_sum += r.pull_sum;
  sum.pulls += r.pulls;
}

void print_kind(const sim::battery_kind& kind, const sim::kind_result& r) {
  // A wrong word must catch the eye in eighty lines; "sound" only tells where "weak" is a loss.
  const char* mark = r.wrong + r.fits_wrong > 0 ? "WRONG" : "";
  if (*mark == '\0' && kind.sound) mark = "sound";
  if (kind.blind) mark = "blind";
  util::print_line(fmt::format("{:5} {:54} {:4} {:4} {:4} {:4} {:8.1e} {:8.1e} {:8.1e}  {}", mark,
                               kind.name, r.words[0], r.words[1], r.words[2], r.words[3], r.rms,
                               r.worst, r.E, r.usual_reason));
}

// Line by line as the kinds end, so that a long run can be watched and broken off.
int run_battery(const sim::battery_setup& s) {
  util::print_line(
      "      kind                                                    det. weak  not susp."
      "      rms    worst        E  usual reason");
  totals sum;
  std::size_t ix_kind = 0;
  const auto all = s.random > 0 ? sim::random_kinds(s.random, s.seed) : sim::battery_kinds();
  for (const sim::battery_kind& kind : all) {
    // Counted before the choice by name: a kind alone meets the same random numbers as among all.
    ++ix_kind;
    if (kind.name.find(s.only) == std::string::npos) continue;
    const sim::kind_result r = run_kind(kind, ix_kind, s);
    print_kind(kind, r);
    add_to(sum, kind, r, s.bpms);
  }
  util::print_line(fmt::format("{} kinds, {} BPMs, pedestals said to be known to {:g}", sum.kinds,
                               sum.bpms, s.sigma_p));
  util::print_line(
      fmt::format("determined with an error above {:g}: calibration {}, four fits {} of {}",
                  sim::false_above, sum.wrong, sum.fits_wrong, sum.fits_determined));
  // The lines below are left out when no kind can fill them, rather than shown with a division by
  // 0.
  if (sum.sound > 0) {
    util::print_line(fmt::format("sound runs not called determined: {} of {}, {:.1f} %", sum.lost,
                                 sum.sound, 100.0 * sum.lost / sum.sound));
  }
  if (sum.blind > 0) {
    util::print_line(fmt::format("beside them, kinds that no data can tell: {} of {} wrong",
                                 sum.blind_wrong, sum.blind));
  }
  if (sum.pulls > 0) {
    util::print_line(fmt::format("pulls where the allowances are drawn: mean {:.2f}, rms {:.2f}",
                                 sum.pull_sum / sum.pulls,
                                 std::sqrt(sum.pull_squares / sum.pulls)));
  }
  // Lost runs do not fail the battery: careful words cost time, false ones are what it is there
  // for.
  return sum.wrong + sum.fits_wrong == 0 ? 0 : 1;
}

}  // namespace

void add_battery(CLI::App& app, int& status) {
  auto s = std::make_shared<sim::battery_setup>();
  CLI::App& sub = *app.add_subcommand(
      "battery", "runs with every trouble: can the verdicts be believed? status 1 if not");
  add_whole({&sub}, "--bpms", s->bpms, "fresh BPMs of each kind");
  add_real({&sub}, "--known", s->sigma_p,
           "what is said to be known of the pedestals, in parts of the signal");
  add_seed({&sub}, "--seed", s->seed, "chooses the random numbers");
  add_whole({&sub}, "--random", s->random,
            "so many kinds drawn at random instead of the usual ones");
  options::add_text({&sub}, "--only", s->only, "kinds whose name contains this");
  sub.callback([s, &status] {
    refuse_if(s->bpms < 1 ? "at least 1 BPM is needed" : "");
    refuse_if(!(s->sigma_p >= 0) ? "what is known of the pedestals must not be negative" : "");
    status = run_battery(*s);
  });
}

}  // namespace commands
