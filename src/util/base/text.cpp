#include "text.hpp"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "run_time.hpp"

namespace util {
namespace {

// Of a variable's name, as shells have it; written out, because isalnum depends on the locale.
bool belongs_to_name(char c) {
  return c == '_' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// 0 behind the end: it goes on no character, so one that is cut off is found like a broken one.
std::uint8_t byte_at(std::string_view text, std::size_t i) {
  return i < text.size() ? static_cast<std::uint8_t>(text[i]) : std::uint8_t{0};
}

// U+0080..U+009F, written C2 80..C2 9F, are controls too: 9B alone begins what ESC [ begins.
bool is_control(std::string_view text) {
  const std::uint8_t first = byte_at(text, 0);
  return first < 0x20 || first == 0x7F || (first == 0xC2 && byte_at(text, 1) < 0xA0);
}

void append_escaped(std::string& out, char c) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto byte = static_cast<std::uint8_t>(c);
  // Those that people know by their letter; all others by their number.
  if (c == '\t') {
    out += "\\t";
  } else if (c == '\n') {
    out += "\\n";
  } else if (c == '\r') {
    out += "\\r";
  } else {
    out.append("\\x").append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
  }
}

// A path that cannot be made is a fault of the installation: nothing that is asked again helps.
[[noreturn]] void path_error(const std::string& what) {
  tell_line(what);
  err_exit();
}

}  // namespace

// Overlong forms, surrogates and values beyond U+10FFFF are kept out by the bounds of the second byte.
std::size_t utf8_length(std::string_view text) {
  const std::uint8_t first = byte_at(text, 0);
  std::uint8_t low = 0x80, high = 0xBF;
  std::size_t length = 0;
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) length = 2;
  if (first >= 0xE0 && first <= 0xEF) length = 3;
  if (first >= 0xF0 && first <= 0xF4) length = 4;
  if (first == 0xE0) low = 0xA0;
  if (first == 0xED) high = 0x9F;
  if (first == 0xF0) low = 0x90;
  if (first == 0xF4) high = 0x8F;
  for (std::size_t i = 1; i < length; ++i) {
    if (byte_at(text, i) < low || byte_at(text, i) > high) return 0;
    low = 0x80;  // only the second byte is bounded more narrowly
    high = 0xBF;
  }
  return length;
}

// Blanks only: that is what padded strings are padded with.
std::string_view trim_right(std::string_view text) {
  const std::size_t last = text.find_last_not_of(' ');
  return last == std::string_view::npos ? std::string_view{} : text.substr(0, last + 1);
}

// Tabs too: this is for what people type and files hold, not for padding.
std::string_view trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Not toupper: it changes letters beyond ASCII in some locales.
std::string upcase(std::string_view text) {
  std::string upper{text};
  std::transform(upper.begin(), upper.end(), upper.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return upper;
}

std::string shown(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
    if (length == 0 || is_control(character)) {
      for (const char c : character) append_escaped(out, c);
    } else {
      out += character;
    }
    text.remove_prefix(character.size());
  }
  return out;
}

std::string shown_lines(std::string_view text) {
  // With its length: a text would end at the zero.
  constexpr std::string_view kept{"\n\t\0", 3};
  std::string out;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(kept), text.size());
    out += shown(text.substr(0, end));
    text.remove_prefix(end);
    if (text.empty()) break;
    out += text.front();
    text.remove_prefix(1);
  }
  return out;
}

std::string_view unquote(std::string_view text) {
  // Two at least: one quotation mark is a name, if an odd one.
  const bool quoted = text.size() >= 2 && (text.front() == '"' || text.front() == '\'') &&
                      text.front() == text.back();
  return quoted ? text.substr(1, text.size() - 2) : text;
}

std::string fullfilename(std::string_view name, std::size_t width) {
  // A name may come in quotes, as from a command file, or with blanks around it, as typed.
  const std::string_view plain = unquote(trim(name));
  std::string path{plain};
  if (!plain.empty() && plain[0] == '$') {
    std::size_t end = 1;
    while (end < plain.size() && belongs_to_name(plain[end])) ++end;
    const std::string variable{plain.substr(1, end - 1)};
    const char* value = std::getenv(variable.c_str());
    if (value == nullptr) {
      path_error("environment variable " + variable + " is not set; it is needed for the path " +
                 std::string{plain});
    }
    // Not expanded again: a $ within the value is part of a name.
    path = value + std::string{plain.substr(end)};
  }
  // Checked after the expansion: the variable's value is what makes a path long.
  if (path.size() > width) {
    path_error("the path " + path + " is longer than the " + std::to_string(width) +
               " characters that it may have");
  }
  return path;
}

}  // namespace util
