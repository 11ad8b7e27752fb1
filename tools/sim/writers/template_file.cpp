#include "template_file.hpp"

#include <fmt/core.h>

#include <array>
#include <utility>

#include "file_units.hpp"
#include "random.hpp"

namespace sim {
namespace {

constexpr int blocks = 2;
constexpr int ranges = 11;
// A bound against slips of the pen; no ring comes near it.
constexpr int most_bpms = 5000;

// Front-end cards 0..3 with their buttons in the order BI BO TI TO.
constexpr std::array<std::pair<const char*, int>, 4> cards{
    {{"TI", 3}, {"BI", 1}, {"BO", 2}, {"TO", 4}}};

std::string row(const template_setup& t, int block, std::pair<const char*, int> card,
                const buttons& gain, random_stream& stream) {
  std::string text = fmt::format("  {} {}  ", block, card.first);
  for (int range = 0; range < ranges; ++range) {
    // Drawn for every range, also the one that shows the true gain: the others must not move when
    // it is read.
    const double deviation = t.range_spread * normal(stream);
    const bool plain = block == 0 && range == 0;
    text += fmt::format(" {:.6f}", gain(card.second) * (plain ? 1 : 1 + deviation));
  }
  return text;
}

}  // namespace

std::string template_fault(const template_setup& t) {
  if (t.bpms < 1 || t.bpms > most_bpms) {
    return fmt::format("a template holds 1 to {} BPMs, not {}", most_bpms, t.bpms);
  }
  if (t.range_spread < 0) return "spread of the ranges must not be negative";
  return electronics_fault(t.electronics, t.bpms);
}

std::string template_bpm_name(int bpm) {
  // The ring's own numbering up to 98; templates may hold more BPMs than the ring.
  if (bpm <= 49) return fmt::format("{}W", bpm);
  return bpm <= 98 ? fmt::format("{}E", 99 - bpm) : fmt::format("B{}", bpm);
}

void make_template(const template_setup& t) {
  const util::unit_handle file{util::lunget()};
  util::open_whole_output(file.number(), t.file);
  const auto write = [&](const std::string& line) { util::write_line(file.number(), line); };
  write(fmt::format("# Simulated gains of {} BPMs\n# seed {}\n[NAMES]", t.bpms, t.seed));
  for (int bpm = 1; bpm <= t.bpms; ++bpm) {
    write(fmt::format("  {:4} {}", bpm, template_bpm_name(bpm)));
  }
  for (int bpm = 1; bpm <= t.bpms; ++bpm) {
    // The gains of a simulation with this seed: made in the same place, not drawn here once more.
    const buttons gain = make_electronics(t.electronics, t.seed, bpm).true_gain;
    // Not the stream of the gains: another spread of the ranges leaves range 0 as it was.
    random_stream stream = make_stream(t.seed, purpose::readout, bpm);
    write(fmt::format("\n[BPM_{}]", template_bpm_name(bpm)));
    for (int block = 0; block < blocks; ++block) {
      for (const auto& card : cards) write(row(t, block, card, gain, stream));
    }
  }
}

}  // namespace sim
