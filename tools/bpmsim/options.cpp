#include "options.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>

#include "list_io.hpp"
#include "run_time.hpp"

namespace options {
namespace {

using texts = std::vector<std::string>;

// Far above what a command line holds; the parser needs some number.
constexpr int any_number = 1 << 20;  // of values behind an option

// Thrown, for this runs inside the parser: it carries the fault to the one place that tells it.
[[noreturn]] void refuse(const std::string& name, const std::string& text,
                         const std::string& expected) {
  // The parser's own way to refuse; main makes one line of it.
  throw CLI::ValidationError(name, fmt::format("expected {}, found \"{}\"", expected, text));
}

double real_of(const std::string& name, const std::string& text) {
  // The program's own scanner instead of the parser's: numbers mean the same here as in its files.
  const std::optional<double> v = util::scan_real(text);
  if (!v) refuse(name, text, "a number");
  return *v;
}

// Empty parts are kept, so that "3::1" is refused by the scanner and not read as "3:1".
texts parts_of(const std::string& text) {
  // By hand: the words between the colons may be empty, which is a fault to tell and not to skip.
  texts parts{""};
  for (const char c : text) {
    if (c == ':') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

sim::button_value button_of(const std::string& name, const std::string& text, bool value_needed) {
  const char* const expected = value_needed ? "BPM:BUTTON:VALUE" : "BPM:BUTTON or BPM:BUTTON:VALUE";
  const texts parts = parts_of(text);
  if (parts.size() > 3 || parts.size() < (value_needed ? 3U : 2U)) refuse(name, text, expected);
  const auto bpm = util::scan_integer(parts[0]);
  const auto button = util::scan_integer(parts[1]);
  // Where the value may be missing, 1 is what the button alone means.
  const auto value = parts.size() == 3 ? util::scan_real(parts[2]) : 1.0;
  if (!bpm || !button || !value) refuse(name, text, expected);
  return {*bpm, *button, *value};
}

// What --help shows of an option.
// The start value is shown from the record itself, so help and behaviour cannot drift apart.
struct shown {
  std::string kind;
  std::string start;  // the value without it; empty: none worth showing
  int most = 1;       // values behind it
};

CLI::Option* add(const place& at, const std::string& name, const shown& s, const std::string& help,
                 const std::function<void(const texts&)>& take) {
  // Texts go to a function of ours: the parser's own conversions have other messages, and know no
  // units.
  CLI::Option* const made = at.app->add_option(
      name,
      [take](const texts& typed) {
        take(typed);
        return true;
      },
      help);
  // One value an option as far as the parser is concerned; how many may follow is `expected`.
  made->type_name(s.kind)->type_size(1)->group(at.group);
  // One value may stand for both planes or be the whole list, so the least is 1.
  if (s.most > 1) made->expected(1, s.most);
  if (!s.start.empty()) made->default_str(s.start);
  return made;
}

}  // namespace

void add_flag(const place& at, const std::string& name, bool& to, const std::string& help) {
  at.app->add_flag(name, to, help)->group(at.group);
}

// The references live as long as the parser: callers keep their records in its callbacks. A path is
// shown with its start value like any other, and read as it stands.
void add_text(const place& at, const std::string& name, std::string& to, const std::string& help) {
  add(at, name, {"PATH", to}, help, [&to](const texts& typed) { to = typed.front(); });
}

void add_path(const place& at, const std::string& name, std::string& to, const std::string& help,
              bool must) {
  add(at, name, {"PATH", to}, help, [&to](const texts& typed) {
    to = typed.front();
  })->required(must);
}

void add_whole(const place& at, const std::string& name, int& to, const std::string& help) {
  add(at, name, {"N", std::to_string(to)}, help, [&to, name](const texts& typed) {
    const auto v = util::scan_integer(typed.front());
    if (!v) refuse(name, typed.front(), "a whole number");
    to = *v;
  });
}

void add_seed(const place& at, const std::string& name, std::uint64_t& to,
              const std::string& help) {
  add(at, name, {"N", std::to_string(to)}, help, [&to, name](const texts& typed) {
    // Seeds use all 64 bits, which the program's scanner of whole numbers does not.
    const std::string& text = typed.front();
    const char* const end = text.data() + text.size();
    // All 64 bits: the scanner of whole numbers ends at those of an int.
    const auto [stop, fault] = std::from_chars(text.data(), end, to);
    if (fault != std::errc{} || stop != end) {
      refuse(name, text, "a whole number from 0 to 18446744073709551615");
    }
  });
}

// Held in SI units, typed and shown in those of the field: the unit acts here and nowhere else.
void add_real(const place& at, const std::string& name, double& to, const std::string& help,
              unit u) {
  add(at, name, {u.name, fmt::format("{:.6g}", to / u.size)}, help,
      [&to, name, u](const texts& typed) { to = real_of(name, typed.front()) * u.size; });
}

void add_planes(const place& at, const std::string& name, double& x, double& y,
                const std::string& help, unit u) {
  add(at, name, {u.name, fmt::format("{:.6g} {:.6g}", x / u.size, y / u.size), 2}, help,
      [&x, &y, name, u](const texts& typed) {
        // With one value front and back are the same.
        x = real_of(name, typed.front()) * u.size;
        y = real_of(name, typed.back()) * u.size;
      });
}

void add_buttons(const place& at, const std::string& name, std::vector<sim::button_value>& to,
                 const std::string& help, bool value_needed) {
  add(at, name, {value_needed ? "BPM:BUTTON:VALUE" : "BPM:BUTTON", "", any_number}, help,
      [&to, name, value_needed](const texts& typed) {
        for (const std::string& text : typed) to.push_back(button_of(name, text, value_needed));
      });
}

void add_chamber_buttons(const place& at, const std::string& name, sim::buttons& to,
                         const std::string& help, unit u) {
  add(at, name, {fmt::format("BUTTON:{}", u.name), "", any_number}, help,
      [&to, name, u](const texts& typed) {
        for (const std::string& text : typed) {
          const texts parts = parts_of(text);
          const auto button = util::scan_integer(parts.front());
          const auto value = util::scan_real(parts.back());
          // front() and back() are safe before the count is known: there is always one part.
          if (parts.size() != 2 || !button || *button < 1 || *button > 4 || !value) {
            refuse(name, text, fmt::format("BUTTON:{}, the button 1 to 4", u.name));
          }
          to(*button) = *value * u.size;
        }
      });
}

void add_words(const place& at, const std::string& name, const texts& words,
               const std::function<void(int)>& put_first,
               const std::function<void(int)>& put_second, const std::string& shown_words,
               const std::string& help) {
  // Captured by value: the option is parsed long after this procedure has returned.
  const auto index_of = [words, name](const std::string& text) {
    const auto found = std::find(words.begin(), words.end(), text);
    if (found == words.end()) refuse(name, text, "one of " + CLI::detail::join(words, ", "));
    return static_cast<int>(found - words.begin());
  };
  add(at, name, {CLI::detail::join(words, "|"), shown_words, put_second ? 2 : 1}, help,
      [put_first, put_second, index_of](const texts& typed) {
        put_first(index_of(typed.front()));
        if (put_second) put_second(index_of(typed.back()));
      });
}

// For faults between options, which no single one can see; asked once all of them are read.
void refuse_if(const std::string& fault) {
  if (!fault.empty()) throw CLI::ValidationError(fault, CLI::ExitCodes::ValidationError);
}

// Status 1, where misuse has 2: the words were right, the work could not be done.
void give_up(const std::string& fault) {
  util::tell_line(fault);
  util::stop_program(1);
}

}  // namespace options
