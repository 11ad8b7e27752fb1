// The subcommands that judge gains: compare, accuracy.
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

#include "accuracy.hpp"
#include "commands.hpp"
#include "compare.hpp"
#include "file_units.hpp"
#include "machine_options.hpp"
#include "options.hpp"
#include "orbit_store.hpp"
#include "standard_output.hpp"

namespace commands {
namespace {

using namespace options;

struct compare_setup {
  std::string truth;
  std::string result;
  double within = 0;  // 0: no bound
};

int run_compare(const compare_setup& s) {
  const std::vector<sim::bpm_truth> truth = sim::read_truth(s.truth);
  // Found first and named in the report: somebody with several directories sees what was compared.
  const std::string table = sim::find_err_table(s.result);
  const auto all = sim::compare(truth, sim::read_err_table(table));
  sim::print_comparison(all);
  const auto [worst, rms] = sim::summarise(all);
  util::print_line(fmt::format("{} of {} BPMs; worst difference {:.1e}, rms {:.1e}", all.size(),
                               truth.size(), worst, rms));
  util::print_line(
      fmt::format("from {}, which prints 4 decimals: differences below {:.0e} are rounding", table,
                  sim::printed_rounding));
  // Exactly 0: no bound was typed, and the comparison is only there to be looked at.
  if (s.within == 0) return 0;
  // The table's rounding is added to the bound: it is the printing's fault, not the fit's.
  const auto beyond = std::count_if(all.begin(), all.end(), [&s](const sim::bpm_comparison& c) {
    return c.worst > s.within + sim::printed_rounding;
  });
  util::print_line(
      fmt::format("{} of {} BPMs beyond {:g} (and rounding)", beyond, all.size(), s.within));
  return beyond == 0 ? 0 : 1;
}

// The words of the option, so that a line of the report can be typed again.
const char* shape_name(const sim::plane& p) {
  return p.shape == sim::distribution::uniform ? "uniform" : "gaussian";
}

// The bounds are those of the store that the fits read from: beyond them a fit would end the run by
// a subscript, after all the simulation before it.
std::string accuracy_fault(const sim::accuracy_setup& s) {
  if (s.bpms < 1 || s.bpms > store::max_bpm) {
    return fmt::format("number of BPMs must lie between 1 and {}, not {}", store::max_bpm, s.bpms);
  }
  if (s.orbits < 1 || s.orbits > store::max_orbits) {
    return fmt::format("number of orbits must lie between 1 and {}, not {}", store::max_orbits,
                       s.orbits);
  }
  // Negated, so that nan is refused as well. 0 is allowed: pedestals known exactly.
  if (!(s.sigma_p >= 0)) return "what is known of the pedestals must not be negative";
  return machine_fault(s.machine, s.bpms);
}

// What the options of `accuracy` say beside the simulation itself.
struct accuracy_options {
  sim::accuracy_setup setup;
  bool table = false;  // the orbits of the guide, one line each
  std::string pulls;   // a file for them
};

std::string beam_text(const sim::accuracy_setup& s) {
  const sim::plane& x = s.machine.beam.x;
  const sim::plane& y = s.machine.beam.y;
  return fmt::format("orbit ({:g}, {:g}) mm, {} {:g} and {} {:g} mm, noise {:g}", x.orbit / sim::mm,
                     y.orbit / sim::mm, shape_name(x), x.spread / sim::mm, shape_name(y),
                     y.spread / sim::mm, s.machine.electronics.noise);
}

double rms_pull(const std::vector<double>& pulls) {
  double squares = 0;
  for (const double pull : pulls) squares += pull * pull;
  // About 0 and not about their mean: a bias is an error like any other.
  return pulls.empty() ? 0 : std::sqrt(squares / static_cast<double>(pulls.size()));
}

// One a line, for a histogram by any plotting program; the two columns are of the same ratio.
void write_pulls(const sim::accuracy_result& result, const std::string& path) {
  const util::unit_handle unit{util::lunget()};
  util::open_whole_output(unit.number(), path);
  util::write_line(unit.number(),
                   "# pulls: of the gains; of those with free intensities, noise alone");
  for (std::size_t i = 0; i < result.pulls.size(); ++i) {
    util::write_line(unit.number(),
                     fmt::format("{:.4f} {:.4f}", result.pulls[i], result.free_pulls[i]));
  }
}

void print_words(const std::array<int, 4>& words) {
  // All four words even when 0: the line can be compared from run to run.
  util::print_line(fmt::format("verdicts: {} determined, {} weak, {} not determined, {} suspect",
                               words[0], words[1], words[2], words[3]));
}

int run_accuracy(const accuracy_options& o) {
  const sim::accuracy_result result = sim::measure_accuracy(o.setup);
  util::print_line(fmt::format("{}: worst {:.1e} rms {:.1e} between fits {:.1e}",
                               beam_text(o.setup), result.worst, result.rms, result.spread));
  util::print_line(
      fmt::format("calibration: worst {:.1e} rms {:.1e}, its own figures: noise {:.1e} E {:.1e}",
                  result.calibrated.worst, result.calibrated.rms, result.noise, result.E));
  util::print_line(
      fmt::format("with free intensities: worst {:.1e} rms {:.1e}, limit of the noise {:.1e}",
                  result.free.worst, result.free.rms, result.limit));
  if (result.over_limit > 0) {
    util::print_line(fmt::format("free intensities over the limit: {:.3f} +- {:.3f}",
                                 result.over_limit, result.over_limit_sigma));
  }
  util::print_line(fmt::format("pulls: {:.2f} rms, with free intensities and noise alone {:.2f}",
                               rms_pull(result.pulls), rms_pull(result.free_pulls)));
  print_words(result.words);
  if (!o.pulls.empty()) write_pulls(result, o.pulls);
  return 0;
}

// The closed orbits of the guide, from the axis outward [mm].
constexpr std::array<std::array<double, 2>, 6> guide_orbits{
    {{0, 0}, {2, -1.5}, {3.2, 2.4}, {5, 3}, {8, 6}, {14, 10}}};

// Columns that plotting programs read as they stand.
int print_accuracy_table(const accuracy_options& asked) {
  sim::accuracy_setup setup = asked.setup;
  util::print_line("# errors of ln(t_k/t_1), rms: orbit x y [mm], limit of the noise, four fits,");
  util::print_line(
      "# calibration with free intensities, calibration, its E, BPMs called determined,");
  util::print_line(fmt::format(
      "# free intensities over the limit and its uncertainty; {} BPMs a line", setup.bpms));
  // Same seed for every orbit: the lines differ by where the beam is, not by the luck of the noise.
  for (const auto& [x, y] : guide_orbits) {
    setup.machine.beam.x.orbit = x * sim::mm;
    setup.machine.beam.y.orbit = y * sim::mm;
    const sim::accuracy_result r = sim::measure_accuracy(setup);
    util::print_line(fmt::format(
        "{:5g} {:5g} {:.2e} {:.2e} {:.2e} {:.2e} {:.2e} {:3} {:.3f} {:.3f}", x, y, r.limit, r.rms,
        r.free.rms, r.calibrated.rms, r.E, r.words[0], r.over_limit, r.over_limit_sigma));
  }
  return 0;
}

}  // namespace

void add_compare(CLI::App& app, int& status) {
  auto s = std::make_shared<compare_setup>();
  CLI::App& sub = *app.add_subcommand("compare", "print fitted against true gains");
  add_path({&sub}, "truth", s->truth, "truth file, or directory of the series or above it");
  add_path({&sub}, "result", s->result, "output directory of the session, or its _err table");
  add_real({&sub}, "--within", s->within,
           "status 1 when a gain ratio is further off than this; 0: no bound");
  sub.callback([s, &status] {
    refuse_if(s->within < 0 ? "the bound must not be negative" : "");
    status = run_compare(*s);
  });
}

void add_accuracy(CLI::App& app, int& status) {
  // Shared with the callback: the parser writes into it and runs it after this procedure has
  // returned.
  auto o = std::make_shared<accuracy_options>();
  sim::accuracy_setup& s = o->setup;
  CLI::App& sub = *app.add_subcommand(
      "accuracy", "simulate, fit and calibrate, and tell how far the gains are off");
  add_whole({&sub}, "--bpms", s.bpms, "number of BPMs to simulate and fit");
  add_whole({&sub}, "--orbits", s.orbits, "orbits for each of them");
  add_real({&sub}, "--known", s.sigma_p,
           "rms of what the pedestals may still be, in parts of --signal");
  add_flag({&sub}, "--exact-table", s.exact_table,
           "the calibration makes no allowances for the chamber");
  add_flag({&sub}, "--table", o->table, "the orbits of docs/accuracy.md, one line each");
  options::add_text({&sub}, "--pulls", o->pulls,
                    "file for the pulls: error over its own standard deviation");
  const auto chosen = add_machine(sub, s.machine);
  const CLI::Option* const bpms = sub.get_option("--bpms");
  sub.callback([o, chosen, bpms, &status] {
    // An error over a limit needs many BPMs: 300 tell it to 3 %.
    if (o->table && bpms->count() == 0) o->setup.bpms = 300;
    // First settled, then judged: choices that hang on one another are filled in only here.
    settle(o->setup.machine, *chosen);
    refuse_if(accuracy_fault(o->setup));
    status = o->table ? print_accuracy_table(*o) : run_accuracy(*o);
  });
}

}  // namespace commands
