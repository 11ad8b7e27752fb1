// Texts: fixed-length blank-padded strings, trimming, letter case, file-name expansion.
#pragma once
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace util {

/// Without blanks at the end; at both ends; at the start.
std::string_view trim_right(std::string_view text);
std::string_view trim(std::string_view text);

/// ASCII upper case.
std::string upcase(std::string_view text);

/// A string of n characters, padded with blanks; longer texts are cut.
template <std::size_t n>
struct fixed_text {
  std::array<char, n> item;
  constexpr fixed_text() { item.fill(' '); }
  constexpr fixed_text(std::string_view t) { assign(t); }  // NOLINT(*-explicit-*)
  constexpr fixed_text(const char* t) { assign(t); }       // NOLINT(*-explicit-*)
  fixed_text(const std::string& t) { assign(t); }          // NOLINT(*-explicit-*)
  constexpr void assign(std::string_view t) {
    for (std::size_t i = 0; i < n; ++i) item[i] = i < t.size() ? t[i] : ' ';
  }
  /// The content without trailing blanks.
  constexpr std::string_view trimmed() const {
    std::size_t length = n;
    while (length > 0 && item[length - 1] == ' ') --length;
    return {item.data(), length};
  }
  /// All n characters.
  constexpr std::string_view all() const { return {item.data(), n}; }
  /// n zero (NUL) characters: what storage that nobody assigned holds.
  static constexpr fixed_text zeros() {
    fixed_text t;
    t.item.fill('\0');
    return t;
  }
  friend constexpr bool operator==(const fixed_text&, const fixed_text&) = default;
};

/// A name that came from a file or an answer, fit for a terminal: what could move the cursor or
/// switch the terminal stands as an escape, so a name can neither hide nor forge what is printed.
///
/// returns  the text with every control character (C0, DEL, and C1 as UTF-8 writes it) and every
///          byte that is no part of well-formed UTF-8 as \t, \n, \r or \xNN; the rest as it stands
/// errors   none
/// note     a backslash is not doubled: an ordinary name is shown as it is, byte for byte
std::string shown(std::string_view text);

/// Bytes of the well-formed UTF-8 character that the text begins with; 0 where none does: also for
/// overlong forms, surrogates and values beyond U+10FFFF.
std::size_t utf8_length(std::string_view text);

/// The same of a text of several lines: line ends, tabs and zeros (which no terminal shows) stay.
std::string shown_lines(std::string_view text);

/// Removes one pair of surrounding quotes, single or double; the text itself when there is none.
std::string_view unquote(std::string_view text);

/// Full path of a facility file: quotes removed, a leading $NAME replaced by the variable's value.
/// given    name  such as $KOVR_ONLINE/machine_data/meas/orbit/offset.bpm
///          width most characters that the result may hold
/// errors   variable not set, or result longer than width: one line on standard error naming
///          both, then err_exit
std::string fullfilename(std::string_view name, std::size_t width = 200);

}  // namespace util
