// Answers typed into the dialogs of turn-by-turn data and of closed orbits, the first byte says which,
// in a folder with a run of each kind. A dialog that came to its end is repeated from its own record,
// and must come to the same data.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "get_orbit_data.hpp"
#include "get_turn_by_turn.hpp"
#include "prepared_answers.hpp"
#include "target.hpp"
#include "terminal.hpp"
#include "text.hpp"

namespace {

namespace fs = std::filesystem;
namespace fit = gain_fit_mod;

void write(const fs::path& path, std::string_view text) {
  if (path.has_parent_path()) fs::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

// The data that answers can name. All that a dialog writes goes into the folder too.
void make_place() {
  std::string name = (fs::temp_directory_path() / "fuzz_dialog_XXXXXX").string();
  fuzz::check(mkdtemp(name.data()) != nullptr);
  fs::current_path(name);
  static std::string made;
  made = name;
  std::atexit([] { fs::remove_all(made); });
  setenv("KOVR_ONLINE", name.c_str(), 1);
  util::output_base = name + "/out";
  fs::create_directories(util::output_base + "/d");
  write("machine_data/meas/run_index/tbt.idx", "4566 2026-01-02\n4567 2026-01-03\n");
  write("run.txt",
        "Location : 12W\n--- Bunch 1 ---\n200 210 190 205 1 2 0.1 0.2\n300 310 290 305 3 4 0 0\n");
  write("o.in", "&bpm_gain_anal_params orbit = 7 fit_bpm_idx = 1, 2 /\n");
  write("o.list", "# pairs\n7 8 1.0 0.1\n");
  for (const int orbit : {7, 8}) {
    write("machine_data/orbit/00/butns." + std::to_string(orbit),
          "E T1      4.5\n1 1000 1100 1200 1300\n2 1000 1100 1200 1300\n");
  }
}

void give_answers(std::string_view text) {
  std::rewind(stdin);
  // What the library read ahead of the input before is forgotten with this.
  const std::string& path = fuzz::held(text, fuzz::way::file);
  fuzz::check(std::freopen(path.c_str(), "r", stdin) != nullptr);
}

bool talk(char which) {
  util::answers_given.clear();
  fit::reset();
  return fuzz::until_the_run_ends([which] {
    if (which == 'o') {
      input::get_orbit_data();
    } else {
      input::get_turn_by_turn(util::fixed_text<16>{"d"}, 0);
    }
  });
}

void check_repeated(char which) {
  // An empty answer takes what is newest at the moment, which another dialog may have moved on.
  const auto given = util::answers_given;
  if (std::any_of(given.begin(), given.end(),
                  [](const auto& a) { return util::trim(a.answer).empty(); })) {
    return;
  }
  const int norbits = fit::norbits;
  const auto name = fit::in_file_0;
  util::prepared = {};
  util::prepared.recorded = util::recorded_dialog{.file = "record", .answers = given};
  const bool whole = talk(which);
  util::prepared = {};
  fuzz::check(whole && fit::norbits == norbits && fit::in_file_0 == name);
}

}  // namespace

void fuzz::read(std::string_view text) {
  static const bool once = [] {
    make_place();
    return true;
  }();
  static_cast<void>(once);
  if (text.empty()) return;
  const char which = text[0];
  give_answers(text.substr(1));
  if (talk(which)) check_repeated(which);
}
