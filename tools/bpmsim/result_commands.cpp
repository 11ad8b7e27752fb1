// The subcommands that judge gains: compare, accuracy.
#include <fmt/core.h>

#include <algorithm>
#include <memory>

#include "accuracy.hpp"
#include "commands.hpp"
#include "compare.hpp"
#include "machine_options.hpp"
#include "options.hpp"
#include "orbit_store.hpp"
#include "terminal.hpp"

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
  const std::string table = sim::find_err_table(s.result);
  const auto all = sim::compare(truth, sim::read_err_table(table));
  sim::print_comparison(all);
  const auto [worst, rms] = sim::summarise(all);
  util::print_line(fmt::format("{} of {} BPMs; worst difference {:.1e}, rms {:.1e}", all.size(),
                               truth.size(), worst, rms));
  util::print_line(
      fmt::format("from {}, which prints 4 decimals: differences below {:.0e} are rounding", table,
                  sim::printed_rounding));
  if (s.within == 0) return 0;
  const auto beyond = std::count_if(all.begin(), all.end(), [&s](const sim::bpm_comparison& c) {
    return c.worst > s.within + sim::printed_rounding;
  });
  util::print_line(
      fmt::format("{} of {} BPMs beyond {:g} (and rounding)", beyond, all.size(), s.within));
  return beyond == 0 ? 0 : 1;
}

const char* shape_name(const sim::plane& p) {
  return p.shape == sim::distribution::uniform ? "uniform" : "gaussian";
}

std::string accuracy_fault(const sim::accuracy_setup& s) {
  if (s.bpms < 1 || s.bpms > store::max_bpm) {
    return fmt::format("number of BPMs must lie between 1 and {}, not {}", store::max_bpm, s.bpms);
  }
  if (s.orbits < 1 || s.orbits > store::max_orbits) {
    return fmt::format("number of orbits must lie between 1 and {}, not {}", store::max_orbits,
                       s.orbits);
  }
  return machine_fault(s.machine, s.bpms);
}

int run_accuracy(const sim::accuracy_setup& s) {
  const sim::accuracy_result result = sim::measure_accuracy(s);
  const sim::plane& x = s.machine.beam.x;
  const sim::plane& y = s.machine.beam.y;
  util::print_line(fmt::format(
      "orbit ({:g}, {:g}) mm, {} {:g} and {} {:g} mm, noise {:g}: worst {:.1e} rms {:.1e} "
      "between fits {:.1e}",
      x.orbit / sim::mm, y.orbit / sim::mm, shape_name(x), x.spread / sim::mm, shape_name(y),
      y.spread / sim::mm, s.machine.electronics.noise, result.worst, result.rms, result.spread));
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
  auto s = std::make_shared<sim::accuracy_setup>();
  CLI::App& sub =
      *app.add_subcommand("accuracy", "simulate, fit and tell how far the gains are off");
  add_whole({&sub}, "--bpms", s->bpms, "number of BPMs to simulate and fit");
  add_whole({&sub}, "--orbits", s->orbits, "orbits for each of them");
  const auto chosen = add_machine(sub, s->machine);
  sub.callback([s, chosen, &status] {
    settle(s->machine, *chosen);
    refuse_if(accuracy_fault(*s));
    status = run_accuracy(*s);
  });
}

}  // namespace commands
