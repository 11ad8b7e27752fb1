// Reading and writing one line by its format.
#include <fmt/core.h>
#include <locale.h>  // NOLINT(modernize-deprecated-headers): uselocale is not in <clocale>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kbpmfio_stream.hpp"

namespace rawfile {
namespace {

using kind = kbpmfio_target::kind;

// With its line end: a marker with CR or blanks is a line without a colon, which does the same.
constexpr std::string_view data_marker = "--BEGIN DATA--\n";

// The files have decimal points. A host program may have set a locale with decimal commas, in which
// the C library would read 1.25 as 1: this thread goes by the C locale as long as one of these is
// in scope. The others, and the host's own setting, are left alone.
struct c_locale_in_scope {
  locale_t before;
  c_locale_in_scope() {
    // The handle of the C locale takes no memory and is never given back.
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    before = uselocale(c_locale);
  }
  c_locale_in_scope(const c_locale_in_scope&) = delete;
  c_locale_in_scope& operator=(const c_locale_in_scope&) = delete;
  ~c_locale_in_scope() { uselocale(before); }
};

// One conversion of a format: "%010d" is of letter 'd' with flags "010".
struct conversion {
  std::string_view flags;
  char letter = 0;         // s, d, x or f; 0 when the format has no further conversion
  std::size_t behind = 0;  // where the format goes on
};

conversion conversion_at(std::string_view format, std::size_t percent) {
  const std::size_t letter = format.find_first_of("sdxf", percent);
  if (letter == std::string_view::npos) return {};
  return {format.substr(percent + 1, letter - percent - 1), format[letter], letter + 1};
}

// A conversion must not write where its type does not belong, whatever a table says.
bool fits(char letter, const kbpmfio_target& target) {
  switch (letter) {
    case 'd':
    case 'x':
      return target.of == kind::int32;
    case 'f':
      return target.of == kind::float32;
    case 's':
      return target.of == kind::text && target.size >= 2;
    default:
      return false;
  }
}

// The width in front of a conversion letter, never beyond what a text field holds.
std::string width_of(const conversion& c, const kbpmfio_target& target) {
  std::size_t width = 0;
  std::from_chars(c.flags.data(), c.flags.data() + c.flags.size(), width);
  if (c.letter == 's' && (width == 0 || width >= target.size)) width = target.size - 1;
  return width == 0 ? "" : std::to_string(width);
}

// The pattern that a line is scanned with. Behind a key widths do not count, and a text is all the
// rest of the line, blanks included; without a key widths are in force. The pattern stops before a
// conversion that has no target of its type, so nothing is stored where it does not belong.
std::string scan_pattern(std::string_view format, std::span<const kbpmfio_target> targets,
                         bool keyed) {
  std::string pattern;
  bool text_seen = false;
  auto to = targets.begin();
  for (std::size_t i = 0; i < format.size();) {
    if (format[i] != '%') {
      pattern += format[i++];
      continue;
    }
    conversion c = conversion_at(format, i);
    if (c.letter == 0 || to == targets.end() || !fits(c.letter, *to)) break;
    if (keyed) c.flags = {};
    pattern.append("%").append(width_of(c, *to));
    if (keyed && c.letter == 's' && !text_seen) {
      pattern.append("[^\n]\n");
      text_seen = true;
    } else {
      pattern += c.letter;
    }
    ++to;
    i = c.behind;
  }
  return pattern;
}

// A line as the C library sees it: up to the first zero byte.
std::string_view as_text(std::string_view line) { return line.substr(0, line.find('\0')); }

// The count of conversions is of no interest: what did not convert stays as it was.
void scan(std::string_view line, std::string_view format, std::span<const kbpmfio_target> targets,
          bool keyed) {
  std::array<char, max_line + 1> text;  // NOLINT(*-member-init): filled up to its zero
  text[line.copy(text.data(), max_line)] = '\0';
  std::array<void*, max_addresses> to{};
  std::transform(targets.begin(), targets.end(), to.begin(),
                 [](const kbpmfio_target& t) { return t.address; });
  const std::string pattern = scan_pattern(format, targets, keyed);
  const c_locale_in_scope points;
  static_cast<void>(std::sscanf(text.data(), pattern.c_str(), to[0], to[1], to[2], to[3], to[4],
                                to[5], to[6], to[7], to[8], to[9]));
}

// Blank lines and comments.
bool is_passed_over(std::string_view line) {
  const std::string_view content = stripped(line);
  return content.empty() || content.front() == '#';
}

// Whether what stands before the colon agrees with as many characters of the format.
// Not the whole key, and nothing behind the colon: "Location:12W" reads, and so does a cut key, which
// then converts nothing. Kept for compatibility.
bool key_matches(std::string_view line, std::size_t colon, std::string_view format) {
  return line.substr(0, colon) == format.substr(0, colon);
}

// One value with the conversion of its piece; texts as they stand.
void append_value(std::string& out, const conversion& c, const kbpmfio_target& target) {
  if (!fits(c.letter, target)) return;
  if (c.letter == 's') {
    out += as_text({static_cast<const char*>(target.address), target.size});
    return;
  }
  constexpr std::size_t widest = 512;  // a float32 in %f has 39 digits before the point
  std::array<char, widest> value{};
  const std::string spec = std::string{"%"}.append(c.flags) + c.letter;
  const c_locale_in_scope points;
  if (c.letter == 'f') {
    const double widened = *static_cast<const float*>(target.address);
    static_cast<void>(std::snprintf(value.data(), widest, spec.c_str(), widened));
  } else {
    const std::int32_t whole = *static_cast<const std::int32_t*>(target.address);
    static_cast<void>(std::snprintf(value.data(), widest, spec.c_str(), whole));
  }
  out += value.data();
}

}  // namespace

std::int32_t kbpmfio_scan_line_input(kbpmfio_stream& stream, std::string_view format,
                                     std::span<const kbpmfio_target> targets) {
  const bool wants_key = format.find(':') != std::string_view::npos;
  while (const auto next = next_line(stream)) {
    const std::string_view line = as_text(*next);
    if (is_passed_over(line)) continue;
    if (line.substr(0, data_marker.size()) == data_marker) return 0;
    const std::size_t colon = line.find(':');
    // Used up whatever it holds: only data lines have no colon, and their readers count lines.
    if (colon == std::string_view::npos) {
      scan(line, format, targets, false);
      return 0;
    }
    if (key_matches(line, colon, format)) {
      scan(line, format, targets, true);
      return 0;
    }
    if (!wants_key) {
      // The line belongs to the next section. Comments before it are gone, but every reader of
      // lines passes over comments; going back to them would take a file that can be sought in.
      put_back(stream, *next);
      return 1;
    }
  }
  return 0;
}

std::int32_t kbpmfio_scan_line_output(kbpmfio_stream& stream, std::string_view format,
                                      std::span<const kbpmfio_target> targets) {
  std::string out{format.substr(0, format.find('%'))};
  std::size_t piece = out.size();
  bool text_seen = false;
  for (const kbpmfio_target& target : targets) {
    if (piece >= format.size()) break;
    const conversion c = conversion_at(format, piece);
    if (c.letter == 0) break;
    append_value(out, c, target);
    text_seen = text_seen || c.letter == 's';
    piece = std::min(format.find('%', c.behind), format.size());
    out += format.substr(c.behind, piece - c.behind);
  }
  // A time stamp brings its own line end, and has lost it when it was read from a file.
  if (text_seen && (out.empty() || out.back() != '\n')) out += '\n';
  put(stream, out);
  return 0;
}

std::int32_t kbpmfio_bunch_patt_input(kbpmfio_stream& stream, std::string_view format,
                                      std::span<const kbpmfio_target> targets) {
  if (targets.empty() || targets[0].of != kind::int32 || targets[0].size < pattern_words) return 0;
  const std::span<std::int32_t> words{static_cast<std::int32_t*>(targets[0].address),
                                      std::size_t{pattern_words}};
  while (const auto next = next_line(stream)) {
    const std::string_view line = as_text(*next);
    const std::size_t colon = line.find(':');
    if (is_passed_over(line) || colon == std::string_view::npos) continue;
    if (!key_matches(line, colon, format)) continue;
    // The line end is no word. Other white space between blanks is: one that reads as 0.
    std::string_view rest = line.substr(colon);
    while (!rest.empty() && (rest.back() == '\n' || rest.back() == '\r')) rest.remove_suffix(1);
    for (std::size_t word = pattern_words; word > 0; --word) {
      const std::size_t first = rest.find_first_not_of(": ");
      if (first == std::string_view::npos) break;
      rest.remove_prefix(first);
      const std::string token{rest.substr(0, rest.find_first_of(": "))};
      rest.remove_prefix(token.size());
      // What is no number is 0, and a number beyond 32 bits keeps its lower half.
      words[word - 1] = static_cast<std::int32_t>(std::strtol(token.c_str(), nullptr, 16));
    }
    return 0;
  }
  return 0;
}

std::int32_t kbpmfio_bunch_patt_output(kbpmfio_stream& stream, std::string_view format,
                                       std::span<const kbpmfio_target> targets) {
  std::string out{format};
  if (!targets.empty() && targets[0].of == kind::int32) {
    const std::span<const std::int32_t> words{static_cast<const std::int32_t*>(targets[0].address),
                                              targets[0].size};
    for (std::size_t word = words.size(); word > 0; --word) {
      out += fmt::format("{:X} ", static_cast<std::uint32_t>(words[word - 1]));
    }
  }
  put(stream, out.append("\n"));
  return 0;
}

}  // namespace rawfile
