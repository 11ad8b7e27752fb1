// options: what the options of all subcommands share on top of the parser library.
//
// Numbers go through the program's one scanner (no hexadecimal, no nan); lengths and angles are
// typed in the unit that --help names and kept in SI; an option for the two planes takes one value
// for both or two. Each call adds one option and returns it, so that group and the rest can be set.
#pragma once
#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "electronics.hpp"

namespace options {

/// Typed in parts of `size`, under this name in --help.
struct unit {
  double size = 1;
  const char* name = "VALUE";
};
inline constexpr unit plain{};
inline constexpr unit millimetres{sim::mm, "mm"};
inline constexpr unit degrees{sim::degree, "deg"};
inline constexpr unit counts{1, "counts"};
inline constexpr unit milliamperes{1, "mA"};

/// Where options go: a subcommand, and the group of --help.
struct place {
  CLI::App* app;
  std::string group = "Options";
};

void add_flag(const place& at, const std::string& name, bool& to, const std::string& help);
void add_text(const place& at, const std::string& name, std::string& to, const std::string& help);
/// A positional argument; it must be given unless said otherwise.
void add_path(const place& at, const std::string& name, std::string& to, const std::string& help,
              bool must = true);
void add_whole(const place& at, const std::string& name, int& to, const std::string& help);
void add_seed(const place& at, const std::string& name, std::uint64_t& to, const std::string& help);
void add_real(const place& at, const std::string& name, double& to, const std::string& help,
              unit u = plain);
/// One value for both planes, or two.
void add_planes(const place& at, const std::string& name, double& x, double& y,
                const std::string& help, unit u = plain);
/// Values for single buttons, any number of them: BPM:BUTTON:VALUE, or BPM:BUTTON for 1 where a
/// value is not needed.
void add_buttons(const place& at, const std::string& name, std::vector<sim::button_value>& to,
                 const std::string& help, bool value_needed);
/// The same for the one chamber of a run: BUTTON:VALUE, typed in units of u.
void add_chamber_buttons(const place& at, const std::string& name, sim::buttons& to,
                         const std::string& help, unit u);

/// One of several words, which stand for 0, 1, 2...; `second` as for add_planes, null for one
/// value.
void add_words(const place& at, const std::string& name, const std::vector<std::string>& words,
               const std::function<void(int)>& put_first,
               const std::function<void(int)>& put_second, const std::string& shown,
               const std::string& help);

template <class enumeration>
void add_word(const place& at, const std::string& name, const std::vector<std::string>& words,
              enumeration& to, const std::string& help) {
  add_words(
      at, name, words, [&to](int ix) { to = static_cast<enumeration>(ix); }, {},
      words[static_cast<std::size_t>(to)], help);
}
template <class enumeration>
void add_word_planes(const place& at, const std::string& name,
                     const std::vector<std::string>& words, enumeration& x, enumeration& y,
                     const std::string& help) {
  add_words(
      at, name, words, [&x](int ix) { x = static_cast<enumeration>(ix); },
      [&y](int ix) { y = static_cast<enumeration>(ix); },
      words[static_cast<std::size_t>(x)] + " " + words[static_cast<std::size_t>(y)], help);
}

/// Refuses the command line when the text is not empty: status 2.
void refuse_if(const std::string& fault);

/// Ends the run over a fault of the work: one line, status 1.
[[noreturn]] void give_up(const std::string& fault);

}  // namespace options
