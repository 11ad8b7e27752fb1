// List-directed reading and writing: free-format numbers and texts on one line.
//
// Reading: blanks, tabs and commas separate; n*value repeats a value; an empty place between two
// commas leaves the variable as it was; a slash ends the list; reals take D exponents and exponents
// without a letter; logicals are T or F, with or without dots. Number texts go through one scanner
// (no locale, no nan, no inf).
// Writing: one leading blank; a 32-bit integer is 12 wide, a logical 2, a real 25 wide with 17
// significant digits; texts stand as they are.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace util {

// --- number scanner ---------------------------------------------------------------------------

/// A whole text as a real: sign, digits, point, exponent with E, D (any case) or sign alone.
/// returns  nothing for anything else: nan, inf, hexadecimal, blanks, overflow
std::optional<double> scan_real(std::string_view text);

/// A whole text as a 32-bit integer with optional sign; nothing when malformed or out of range.
std::optional<std::int32_t> scan_integer(std::string_view text);

/// T, F, .true., .FALSE. and the like; nothing otherwise.
std::optional<bool> scan_logical(std::string_view text);

// --- reading ----------------------------------------------------------------------------------

/// What taking the next item of a record came to.
enum class taken {
  value,  ///< the variable holds the item
  null,   ///< an empty place: the variable keeps what it held
  slash,  ///< a slash ended the list: this and all later variables keep what they held
  end,    ///< the record has no more items
  bad     ///< the item is no such value; it is used up, the variable keeps what it held
};

/// One record (line) and the place reached in it.
struct list_record {
  std::string text;           ///< the line
  int line = 0;               ///< its number in the file, from 1
  std::size_t position = 0;   ///< first character not yet used
  int repeats = 0;            ///< how often the current item still stands (n*value)
  std::string item;           ///< the current item
  bool item_is_null = false;  ///< the repeated item is empty (3*)
  bool ended = false;         ///< a slash was met
};

/// Starts on a new text; the line number is kept.
void start_record(list_record& record, std::string_view text);

taken take(list_record& record, std::int32_t& value);
taken take(list_record& record, double& value);
taken take(list_record& record, bool& value);
/// A word, or a text in single or double quotes (a doubled quote stands for one).
taken take(list_record& record, std::string& value);

/// The next item, or nothing when it is absent, empty or no such number.
std::optional<std::int32_t> take_int(list_record& record);
std::optional<double> take_real(list_record& record);

// --- writing ----------------------------------------------------------------------------------

/// A list-directed line under construction: begins with one blank.
///     list_line().text(" Norbits = ").integer(1000).str()
class list_line {
 public:
  list_line& text(std::string_view t);
  list_line& integer(std::int32_t v);
  list_line& real(double v);
  list_line& logical(bool v);
  const std::string& str() const { return out_; }

 private:
  std::string out_ = " ";
};

}  // namespace util
