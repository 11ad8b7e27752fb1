#include "dialog_options.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <utility>

#include "list_io.hpp"
#include "text.hpp"

namespace driver {
namespace {

// The question that ends a data set. No option of its own: the number of runs given answers it.
constexpr std::string_view another_set = "Another RD file ?";

// The dialog reads its numbers into 32 bits: what is larger must not get as far as the question.
constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();

std::string check_whole(const std::string& value, std::int32_t from, std::int32_t to) {
  const auto number = util::scan_integer(value);
  if (number && *number >= from && *number <= to) return {};
  // "to 2147483647" would read like a limit that somebody chose.
  const std::string bounds =
      to == largest ? fmt::format("from {} on", from) : fmt::format("from {} to {}", from, to);
  return fmt::format("found \"{}\", expected a whole number {}", util::shown(value), bounds);
}

// Letters in either case, as the dialog takes them.
std::string check_word(const std::string& value, std::initializer_list<std::string_view> words) {
  for (const std::string_view word : words) {
    if (util::upcase(value) == util::upcase(word)) return {};
  }
  return fmt::format("found \"{}\", expected {}", util::shown(value), fmt::join(words, " or "));
}

// What can be no answer whatever the data hold; which of the rest are there only the dialog knows.
std::string check_source(const std::string& value) { return check_word(value, {"T", "O", "F"}); }
std::string check_copy(const std::string& value) { return check_word(value, {"gif", "ps", "no"}); }
std::string check_count(const std::string& value) { return check_whole(value, 0, largest); }
std::string check_bunch(const std::string& value) { return check_whole(value, 1, largest); }
std::string check_correction(const std::string& value) { return check_whole(value, 1, 3); }
std::string check_bpm(const std::string& value) { return check_whole(value, -1, largest); }
std::string check_index(const std::string& value) { return check_whole(value, 0, 100); }

// An empty answer is passed over where the dialog reads list-directed, so batch answers in full
// there; where the dialog says its default itself, it is left to say it.
// --data, --first and --index have no default: a guess would fit data that nobody asked for.
const std::vector<dialog_option> options{
    {"--data", "T|F|O", "TBT data (T), Orbit data(O) or fake data (F) ?",
     "Kind of data: turn by turn, fake (a synthetic series), or closed orbits", counted::once,
     nullptr, check_source},
    {"--first", "FILE", "First fake file name", "First file of a synthetic series: exp_0.txt"},
    {"--last", "FILE", "Last fake file name", "Last file of it", counted::once, ""},
    {"--positions", "N", "Compute positions (x,y) using nonlin BPM for N orbits",
     "Turns to read of raw data, such as 100000", counted::any_set, "", check_count},
    {"--run", "RUN", "Turn by turn data file ?",
     "A run number, or a file, as typed; again for each further data set", counted::each_set, ""},
    {"--correction", "1|2|3", "Correct tbt data for gain and pedestal ?",
     "Correct raw data for nothing, for pedestals, or for gains and pedestals", counted::any_set,
     "3", check_correction},
    {"--bunch", "N", "Bunch number?", "Bunch to analyse", counted::any_set, "", check_bunch},
    {"--pedestal-bunch", "N", "Pedestal bunch number ?", "Bunch without beam; 0 for none",
     counted::any_set, "", check_count},
    {"--limit", "N", "Limit turns to:", "Most turns to look at; 0 for all", counted::any_set, "",
     check_count},
    {"--command-file", "FILE", "Input command file :", "List of closed orbits", counted::once, ""},
    {"--index", "N", "Index ?", "Which BPM of that list", counted::once, nullptr, check_index},
    {"--bpm", "N", "which bpm ?", "BPM to treat; -1 for all", counted::once, "-1", check_bpm},
    {"--copy", "gif|ps|no", "Postscript (p) or Gif (g) ?", "Copy of the plot", counted::once, "",
     check_copy},
};

// How many data sets the options speak of; 0 when none does.
util::outcome<std::size_t> data_sets(const std::vector<std::vector<std::string>>& values) {
  std::size_t sets = 0;
  std::string_view by;
  for (std::size_t i = 0; i < options.size(); ++i) {
    const std::size_t times = values[i].size();
    if (options[i].times == counted::once || times == 0) continue;
    // One for all says nothing about their number.
    if (options[i].times == counted::any_set && times == 1) continue;
    // Which set lacks its answer nobody can tell, and a guess would pair a run with another's
    // bunch.
    if (sets != 0 && times != sets) {
      return util::fault{fmt::format("given {} times, but {} {} times", times, by, sets),
                         std::string{options[i].name}, "the same number of data sets"};
    }
    sets = times;
    by = options[i].name;
  }
  return sets;
}

// The answers follow from the runs given: yes after each but the last. Where none is given a person
// is asked, and batch ends with the first set.
util::known_question ends_set(std::size_t sets, bool batch) {
  util::known_question question{.begins = std::string{another_set}, .option = "--run"};
  if (sets > 0) question.answers.assign(sets - 1, "y");
  if (sets > 0) question.answers.emplace_back("n");
  if (batch) question.by_default = "n";
  return question;
}

}  // namespace

const std::vector<dialog_option>& dialog_options() { return options; }

util::outcome<util::prepared_dialog> prepare_dialog(
    const std::vector<std::vector<std::string>>& values, bool batch) {
  util::prepared_dialog dialog{.batch = batch};
  dialog.round_ends = another_set;
  const auto sets = data_sets(values);
  if (!sets) return sets.why;
  for (std::size_t i = 0; i < options.size(); ++i) {
    const dialog_option& option = options[i];
    util::known_question question{.begins = std::string{option.question},
                                  .option = std::string{option.name},
                                  .answers = values[i]};
    if (option.in_batch != nullptr) question.by_default = option.in_batch;
    dialog.questions.push_back(std::move(question));
  }
  dialog.questions.push_back(ends_set(*sets, batch));
  // values[0] is --data, first in the table. Told now: at its question the run's directory is made.
  if (batch && values[0].empty()) {
    return util::fault{"--batch needs --data, for nobody is asked", {}, {}};
  }
  return dialog;
}

}  // namespace driver
