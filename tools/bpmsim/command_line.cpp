#include "command_line.hpp"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <optional>

#include "list_io.hpp"
#include "terminal.hpp"

namespace cli {
namespace {

constexpr int usage_error = 2;

using texts = std::vector<std::string>;

[[noreturn]] void refuse(const std::string& name, const std::string& text,
                         const std::string& expected) {
  throw CLI::ValidationError(name, fmt::format("expected {}, found \"{}\"", expected, text));
}

double real_of(const std::string& name, const std::string& text) {
  const std::optional<double> v = util::scan_real(text);
  if (!v) refuse(name, text, "a number");
  return *v;
}

int integer_of(const std::string& name, const std::string& text) {
  const auto v = util::scan_integer(text);
  if (!v) refuse(name, text, "a whole number");
  return *v;
}

sim::button_value button_of(const std::string& name, const std::string& text, bool value_needed) {
  const char* const expected = value_needed ? "BPM:BUTTON:VALUE" : "BPM:BUTTON or BPM:BUTTON:VALUE";
  texts parts{""};
  for (const char c : text) {
    if (c == ':') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  if (parts.size() > 3 || parts.size() < (value_needed ? 3U : 2U)) refuse(name, text, expected);
  const auto bpm = util::scan_integer(parts[0]);
  const auto button = util::scan_integer(parts[1]);
  const auto value = parts.size() == 3 ? util::scan_real(parts[2]) : 1.0;
  if (!bpm || !button || !value) refuse(name, text, expected);
  return {*bpm, *button, *value};
}

// --- putting what was typed into the values, by kind of target ----------------------------------

void put(bool* to, const std::string& /*name*/, const texts& /*typed*/) { *to = true; }

void put(int* to, const std::string& name, const texts& typed) {
  *to = integer_of(name, typed.front());
}

void put(std::uint64_t* to, const std::string& name, const texts& typed) {
  const std::string& text = typed.front();
  const char* const end = text.data() + text.size();
  const auto [stop, fault] = std::from_chars(text.data(), end, *to);
  if (fault != std::errc{} || stop != end) {
    refuse(name, text, "a whole number from 0 to 18446744073709551615");
  }
}

void put(std::string* to, const std::string& /*name*/, const texts& typed) { *to = typed.front(); }

void put(const real_value& to, const std::string& name, const texts& typed) {
  *to.value = real_of(name, typed.front()) * to.unit;
}

void put(const real_pair& to, const std::string& name, const texts& typed) {
  *to.x = real_of(name, typed.front()) * to.unit;
  *to.y = real_of(name, typed.back()) * to.unit;
}

void put(const word_value& to, const std::string& name, const texts& typed) {
  const auto place_of = [&](const std::string& text) {
    const auto found = std::find(to.words.begin(), to.words.end(), text);
    if (found == to.words.end()) refuse(name, text, "one of " + CLI::detail::join(to.words, ", "));
    return static_cast<int>(found - to.words.begin());
  };
  to.put(to.value, place_of(typed.front()));
  if (to.second != nullptr) to.put(to.second, place_of(typed.back()));
}

void put(const button_list& to, const std::string& name, const texts& typed) {
  for (const std::string& text : typed) {
    to.values->push_back(button_of(name, text, to.value_needed));
  }
}

// --- what help shows: kind and default ----------------------------------------------------------

struct shown {
  std::string kind;
  std::string default_text;  // empty: none worth showing
  int most = 1;              // values after the option
};

shown show(const bool* /*value*/) { return {"", "", 0}; }
shown show(const int* v) { return {"N", std::to_string(*v)}; }
shown show(const std::uint64_t* v) { return {"N", std::to_string(*v)}; }
shown show(const std::string* v) { return {"PATH", *v}; }
shown show(const real_value& v) {
  const std::string kind = *v.unit_name == '\0' ? "VALUE" : v.unit_name;
  return {kind, fmt::format("{:.6g}", *v.value / v.unit)};
}
shown show(const real_pair& v) {
  const std::string kind = *v.unit_name == '\0' ? "VALUE" : v.unit_name;
  return {kind, fmt::format("{:.6g} {:.6g}", *v.x / v.unit, *v.y / v.unit), 2};
}
shown show(const word_value& v) {
  const auto word = [&](const void* at) { return v.words[static_cast<std::size_t>(v.get(at))]; };
  const std::string kind = CLI::detail::join(v.words, "|");
  if (v.second == nullptr) return {kind, word(v.value)};
  return {kind, word(v.value) + " " + word(v.second), 2};
}
shown show(const button_list& v) {
  return {v.value_needed ? "BPM:BUTTON:VALUE" : "BPM:BUTTON", "", 1 << 20};
}

void add_option(CLI::App& app, const option& o) {
  // The parser keeps its own copies: an option record may be a temporary.
  const auto take = [to = o.to, name = o.name](const texts& typed) {
    std::visit([&](const auto& t) { put(t, name, typed); }, to);
    return true;
  };
  const shown s = std::visit([](const auto& t) { return show(t); }, o.to);
  if (s.most == 0) {
    app.add_flag_function(
           o.name, [take](std::int64_t) { take({}); }, o.help)
        ->group(o.group);
    return;
  }
  CLI::Option* const made = app.add_option(o.name, take, o.help);
  made->type_name(s.kind)->type_size(1)->group(o.group);
  if (s.most > 1) made->expected(1, s.most);
  if (!s.default_text.empty()) made->default_str(s.default_text);
  if (o.name.front() != '-') made->required();
}

// The parser takes "-.5" for an option, but knows "-0.5" for a number.
std::string parser_word(std::string word) {
  if (word.rfind("-.", 0) == 0) word.insert(1, "0");
  return word;
}

// It asks for a subcommand where one was typed that it does not know.
bool is_unknown_command(const texts& typed, std::span<const command> commands) {
  if (typed.empty() || typed.front().front() == '-') return false;
  return std::none_of(commands.begin(), commands.end(),
                      [&](const command& c) { return c.word == typed.front(); });
}

int tell(std::string_view fault) {
  fmt::print(stderr, "bpmsim: {} (bpmsim --help tells what can be typed)\n", fault);
  return usage_error;
}

std::string one_line(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

}  // namespace

int run(int argc, const char* const* argv, std::string_view purpose, std::string_view version,
        std::span<const command> commands) {
  CLI::App app{std::string{purpose}, "bpmsim"};
  app.set_version_flag("--version", fmt::format("bpmsim {}", version));
  app.require_subcommand(1);
  app.get_formatter()->column_width(36);
  int status = 0;
  for (const command& c : commands) {
    CLI::App* const sub = app.add_subcommand(c.word, c.purpose);
    for (const option& o : c.options) add_option(*sub, o);
    sub->callback([&c, &status] {
      if (const std::string fault = c.fault(); !fault.empty()) {
        throw CLI::ValidationError(fault, CLI::ExitCodes::ValidationError);
      }
      status = c.run();
    });
  }
  texts typed;
  for (int i = 1; i < argc; ++i) typed.push_back(parser_word(argv[i]));
  if (is_unknown_command(typed, commands)) {
    return tell(fmt::format("no subcommand \"{}\"", typed.front()));
  }
  std::reverse(typed.begin(), typed.end());  // the parser takes them from the back
  try {
    app.parse(typed);
  } catch (const CLI::Success& asked) {  // --help, --version
    return app.exit(asked);
  } catch (const CLI::ParseError& fault) {
    return tell(one_line(fault.what()));
  }
  return status;
}

}  // namespace cli
