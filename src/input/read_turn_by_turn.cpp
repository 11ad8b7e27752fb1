#include "read_turn_by_turn.hpp"

#include <fmt/core.h>

#include <string>
#include <string_view>
#include <utility>

#include "bunch_dialog.hpp"
#include "bunch_turns.hpp"
#include "files_read.hpp"
#include "gain_fit_mod.hpp"
#include "in4get.hpp"
#include "list_io.hpp"
#include "note.hpp"
#include "terminal.hpp"
#include "text.hpp"
#include "turn_text.hpp"

namespace input {
namespace {

namespace fit = gain_fit_mod;

// Puts a data set into the session. The columns are handed over, not copied: a set can have 100 MB.
void take_over(turn_data& data) {
  fit::orbit_data = std::move(data.orbits);
  fit::norbits = data.norbits;
  int m = 0;
  for (const bpm_turns& at : data.bpms) {
    fit::dets(++m) = at.bpm;
    fit::bpm_names(at.bpm) = at.name;
    fit::bpm = at.bpm;
    store::remark_unless_kept(at.bpm, fit::bpm_names(at.bpm).trimmed(), at.seen, weakest_signal);
  }
}

// --- text runs -----------------------------------------------------------------------------------

// Opens in_file; failing that, the path without its first "/archive". The fault is that of the path
// as it was named: the other one is a guess.
util::outcome<util::text_file> open_run() {
  constexpr std::string_view archive = "/archive";
  std::string path{fit::in_file.trimmed()};
  auto file = util::open_text_file(path);
  if (file) return file;
  if (const auto at = path.find(archive); at != std::string::npos) {
    path.erase(at, archive.size());
    util::print_line(" " + path);
    if (auto elsewhere = util::open_text_file(path)) return elsewhere;
  }
  return file.why;
}

// What the transcript says of a run.
void show(const text_run& run) {
  for (const store::bpm_struct& first : run.on_show) {
    util::list_line shown;
    shown.integer(1).integer(bpm_on_show);
    for (int j = 1; j <= 4; ++j) shown.real(first.button(j));
    util::print_line(shown.str());
  }
  // The text names another limit than the one that holds: kept for compatibility.
  if (run.too_long) util::print_line(" i > 1000 in subroutine read_turn_by_turn ");
}

// Reads one form of text; `header` is what begins a BPM in it.
util::status read_text(text_run (*reader)(util::text_file&), std::string_view header) {
  // A run that cannot be opened adds nothing; the orbits of the set before must not count again.
  fit::norbits = 0;
  auto file = open_run();
  if (!file) return file.why;
  util::note_file_read(file->path);
  text_run run = reader(*file);
  // What came before a fault belongs into the transcript as if the lines had been shown one by one.
  show(run);
  if (run.data.fault) end_run(*run.data.fault);
  const std::size_t bpms = run.data.bpms.size();
  take_over(run.data);
  if (bpms == 0) {
    note(fmt::format("{}: no BPM in {} lines, expected one to begin with a line such as \"{}\"",
                     file->path, file->number, header));
  }
  // Told and no more: a file cut short by its recorder is still good for the BPMs that it holds.
  if (run.active && static_cast<std::size_t>(*run.active) != bpms) {
    util::print_line(fmt::format(" {}: NUM ACTIVE says {} BPMs, the file holds {}",
                                 util::shown(file->path), *run.active, bpms));
  }
  return {};
}

// --- raw data ------------------------------------------------------------------------------------

// Which answers avoid turns without a pedestal: how many turns are read at all decides it, then how
// many of them are looked at.
void note_gap(const bunch_selection& from, const missing_pedestal& gap) {
  std::string remedy = "answer the turns of the file or more at \"Compute positions\"";
  if (gap.held > 0) remedy += fmt::format(", at most {} at \"Limit turns to\"", gap.held);
  note(
      fmt::format("BPM {} ({}): bunch {} has {} turns to correct, pedestal bunch {} has {}: {}, "
                  "or 0 at \"Pedestal bunch number\"",
                  gap.bpm, from.tbt.bpm(gap.bpm).name.trimmed(), operators_number(from.bunch),
                  gap.wanted, operators_number(*from.empty), gap.held, remedy));
}

}  // namespace

util::status read_turn_by_turn() { return read_text(read_plain_run, "Location : 12W"); }

util::status read_turn_by_turn_kbpm1() { return read_text(read_older_run, "KOVR BPM : 12W"); }

void read_turn_by_turn_3(const tbt_mod::tbt_all_data_struct& tbt, int nbunch, int empty_bunch) {
  bunch_selection from{tbt, tbt_mod::bunch_at(tbt, nbunch),
                       empty_bunch == 0 ? nullptr : &tbt_mod::bunch_at(tbt, empty_bunch), 0};
  util::print_line(util::list_line()
                       .integer(static_cast<std::int32_t>(turns_collected(from.bunch)))
                       .text(" turns collected")
                       .str());
  in4get("Limit turns to: (CR use all)  ", from.max_turns);

  bunch_turns taken = take_bunch(from);
  if (taken.gap) note_gap(from, *taken.gap);
  if (taken.data.fault) end_run(*taken.data.fault);
  for (int bpm = 0; bpm <= last_bpm_read; ++bpm) {
    fit::bpm_names(bpm) = tbt.bpm(bpm).name.trimmed();
  }
  norbits_save.fill(0);
  for (const bpm_turns& at : taken.data.bpms) norbits_save(at.bpm) = at.seen.kept;
  for (int bpm = 0; bpm <= last_bpm_read; ++bpm) {
    for (int k = 1; from.bunch.bpm(bpm).data_ok && k <= 4; ++k) {
      const double coefficient = from.bunch.bpm(bpm).gain(k);
      // 0 would say that there is none: a card that was never calibrated counts as 1, as it does
      // where readings are divided.
      fit::gain_coefficient(k, bpm) = coefficient == 0 ? 1 : coefficient;
    }
  }
  take_over(taken.data);
  // The question for the BPM offers it as its default: kept for compatibility.
  fit::bpm = last_bpm_read + 1;
}

}  // namespace input
