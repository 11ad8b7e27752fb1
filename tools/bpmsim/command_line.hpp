// command_line: subcommands and their options as plain records.
//
// A subcommand is a record: its word, what it is for, its options, a check and the work. The
// options point to the values they set, which hold the defaults that --help shows. Lengths and
// angles are typed in the unit that help names and kept in SI.
//
//     bpmsim series --bpms 12 --spread 5 3 --shape uniform gaussian --dead 3:1 4:2
//
// The parser library is compiled in one file only, behind this face.
#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "chamber.hpp"

namespace cli {

/// A real number, typed in parts of `unit` and kept times `unit`.
struct real_value {
  double* value;
  double unit = 1;
  const char* unit_name = "";
};

/// The same for the two planes: one number typed stands for both.
struct real_pair {
  double* x;
  double* y;
  double unit = 1;
  const char* unit_name = "";
};

/// One of several words for a value of an enumeration; with `second` a pair, like real_pair. Made
/// by `words`.
struct word_value {
  void* value;
  void* second;  // null when there is only one
  std::vector<std::string> words;
  void (*put)(void* value, int ix_word);
  int (*get)(const void* value);
};
template <class enumeration>
word_value words(std::vector<std::string> names, enumeration& value,
                 enumeration* second = nullptr) {
  return {
      &value, second, std::move(names),
      [](void* to, int ix_word) {
        *static_cast<enumeration*>(to) = static_cast<enumeration>(ix_word);
      },
      [](const void* from) { return static_cast<int>(*static_cast<const enumeration*>(from)); }};
}

/// Values for single buttons: BPM:BUTTON or BPM:BUTTON:VALUE, any number of them. Without a value
/// it is 1.
struct button_list {
  std::vector<sim::button_value>* values;
  bool value_needed = false;
};

using target = std::variant<bool*, int*, std::uint64_t*, std::string*, real_value, real_pair,
                            word_value, button_list>;

/// One option. A name without leading dashes is a positional argument and must be given.
struct option {
  std::string name;
  target to;
  std::string help;
  std::string group = "Options";
};

struct command {
  std::string word;
  std::string purpose;  // first line: shown in the list of subcommands
  std::vector<option> options;
  std::string (*fault)();  // why the values cannot be used, after parsing; empty when they can
  int (*run)();            // does the work and returns the exit status
};

/// Reads the command line and runs the subcommand that it names.
/// returns  the subcommand's status; 0 after --help and --version; 2 after anything unusable, which
///          is told in one line on standard error
int run(int argc, const char* const* argv, std::string_view purpose, std::string_view version,
        std::span<const command> commands);

}  // namespace cli
