// The questions of the dialog as options: every question that a session asks has one, and what is
// given there is its answer, as if it had been typed.
//
//   butngain --data T --positions 100000 --run 4566 --bunch 1 --pedestal-bunch 2 --bpm -1 --copy gif
//
// Questions of a data set may be given several times, once for each set, or once for all of them.
// The table in the source is the one place that joins option, question, and what batch answers.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "fault.hpp"
#include "prepared_answers.hpp"

namespace driver {

/// How often an option may be given.
enum class counted {
  once,      ///< the question comes up once in a session
  each_set,  ///< once for each data set
  any_set    ///< once for each data set, or once for all
};

/// One option.
struct dialog_option {
  std::string_view name;      ///< "--run"
  std::string_view type;      ///< what it takes, for people: "RUN"
  std::string_view question;  ///< how the question begins
  std::string_view help;
  counted times = counted::once;
  /// What is answered in batch without the option; nothing where only a person or the option knows.
  const char* in_batch = nullptr;
  /// Why a value cannot be used, empty when it can; null: the dialog finds out.
  std::string (*check)(const std::string& value) = nullptr;
};

/// All of them, in the order in which a session asks.
const std::vector<dialog_option>& dialog_options();

/// The dialog's answers.
/// given    values  of each option of dialog_options(), in its order; empty where not given
///          batch   nobody is asked
/// errors   options of data sets that were given a different number of times; batch without an
///          option that it cannot do without: the fault
util::outcome<util::prepared_dialog> prepare_dialog(
    const std::vector<std::vector<std::string>>& values, bool batch);

}  // namespace driver
