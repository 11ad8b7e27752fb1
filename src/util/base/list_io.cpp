#include "list_io.hpp"

#include <charconv>
#include <cmath>
#include <cstdlib>

#include "fields.hpp"
#include "text.hpp"

namespace util {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }
// A CR counts as a blank: a text that was not read line by line may still end in one.
bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
bool is_separator(char c) { return is_blank(c) || c == ',' || c == '/'; }

// The text as std::from_chars wants it: no plus sign, exponent letter e. Empty when the text is no
// number: every character is checked here, so that nan, inf and hexadecimal never get through.
std::string plain_number(std::string_view text) {
  std::string plain;
  std::size_t i = 0;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    if (text[i] == '-') plain += '-';
    ++i;
  }
  std::size_t digits = 0;
  bool point = false;
  for (; i < text.size() && (is_digit(text[i]) || (text[i] == '.' && !point)); ++i) {
    point = point || text[i] == '.';
    digits += is_digit(text[i]) ? 1 : 0;
    plain += text[i];
  }
  if (digits == 0) return {};  // a sign or a point alone is no number
  if (i == text.size()) return plain;
  // The exponent: behind E or D its sign may be missing, without a letter the sign is what begins it.
  const char letter = text[i];
  const bool lettered = letter == 'e' || letter == 'E' || letter == 'd' || letter == 'D';
  if (lettered) ++i;
  if (!lettered && letter != '+' && letter != '-') return {};
  plain += 'e';
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) plain += text[i++];
  if (i == text.size()) return {};
  for (; i < text.size(); ++i) {
    if (!is_digit(text[i])) return {};
    plain += text[i];
  }
  return plain;
}

void skip_blanks(list_record& record) {
  while (record.position < record.text.size() && is_blank(record.text[record.position])) {
    ++record.position;
  }
}

// Reads a quoted text; position stands behind the closing quote. A text that is never closed ends
// with the line: a forgotten quote must not swallow the next record.
std::string quoted(list_record& record) {
  const char quote = record.text[record.position++];
  std::string text;
  while (record.position < record.text.size()) {
    const char c = record.text[record.position++];
    if (c == quote) {
      if (record.position >= record.text.size() || record.text[record.position] != quote) break;
      ++record.position;
    }
    text += c;
  }
  return text;
}

// Splits off a repeat count: "3*1.5" gives 3 and leaves "1.5". Returns whether there was one.
bool split_repeats(list_record& record) {
  const std::size_t star = record.item.find('*');
  if (star == std::string::npos || star == 0 || !is_digit(record.item[0])) return false;
  // "0*2" and "1.5*2" hold no count: they stay words, and as numbers are refused with their full text.
  const auto count = scan_integer(std::string_view{record.item}.substr(0, star));
  if (!count || *count < 1) return false;
  record.repeats = *count;
  record.item.erase(0, star + 1);
  return true;
}

bool begins_quoted(const list_record& record) {
  return record.position < record.text.size() &&
         (record.text[record.position] == '\'' || record.text[record.position] == '"');
}

// Takes the word that begins here; a repeat count before a quoted text is a word of its own.
void take_word(list_record& record) {
  const std::size_t first = record.position;
  while (record.position < record.text.size() && !is_separator(record.text[record.position])) {
    if (record.text[record.position++] == '*' && begins_quoted(record)) break;
  }
  record.item.assign(record.text, first, record.position - first);
}

// Moves on to the next item; leaves it in record.item. The separator behind an item belongs to it.
taken next_item(list_record& record) {
  if (record.repeats > 0) {  // n*value: the same item once more
    --record.repeats;
    return record.item_is_null ? taken::null : taken::value;
  }
  if (record.ended) return taken::slash;
  skip_blanks(record);
  const std::string& text = record.text;
  if (record.position >= text.size()) return taken::end;
  if (text[record.position] == '/') {
    record.ended = true;
    return taken::slash;
  }
  record.item.clear();
  record.item_is_null = false;
  record.repeats = 1;
  if (text[record.position] == ',') {
    // A comma where an item should begin: an empty place. The comma behind an item was used up with
    // that item, so "1," has one item and "1,,2" has three.
    record.item_is_null = true;
  } else if (begins_quoted(record)) {
    record.item = quoted(record);
  } else {
    take_word(record);
    if (split_repeats(record) && record.item.empty()) {
      if (begins_quoted(record)) {
        record.item = quoted(record);
      } else {
        record.item_is_null = true;  // "3*": three empty places
      }
    }
  }
  skip_blanks(record);
  if (record.position < text.size() && text[record.position] == ',') ++record.position;
  --record.repeats;
  return record.item_is_null ? taken::null : taken::value;
}

template <class T, class Scan>
taken take_scanned(list_record& record, T& value, Scan scan) {
  const taken next = next_item(record);
  if (next != taken::value) return next;
  const auto scanned = scan(record.item);
  if (!scanned) return taken::bad;  // record.item still holds the word, for the message
  value = *scanned;
  return taken::value;
}

// A real with all its digits: fixed from 0.1 up to 1e17, else with a three-digit exponent. The
// field's last five columns belong to the exponent and stay blank without one.
std::string list_real(double v) {
  constexpr int width = 25;   // blank, sign, digit, point, 16 digits, E+ddd
  constexpr int digits = 17;  // any two doubles differ within these
  std::string out;
  const double size = std::abs(v);
  if (!std::isfinite(v)) {
    put_fixed(out, v, width, 0);
    return out;
  }
  if (size == 0 || (size >= 0.1 && size < 1e17)) {
    int before = 1;  // digits before the point
    for (double bound = 10; size >= bound && before < digits; bound *= 10) ++before;
    put_fixed(out, v, width - 5, size < 1 && size > 0 ? digits : digits - before);
    return out + "     ";
  }
  // put_exponent writes 0.ddd; shift its point by one place.
  std::string mantissa;
  put_exponent(mantissa, v, width + 8, digits);  // wide enough for any number: trimmed below
  mantissa = std::string{trim(mantissa)};
  const std::size_t point = mantissa.find('.');
  const std::size_t sign = mantissa.find_first_of("+-", point);
  const int power = static_cast<int>(std::strtol(mantissa.c_str() + sign, nullptr, 10)) - 1;
  std::string text = v < 0 ? "-" : "";
  text += mantissa[point + 1];
  text += '.';
  text += mantissa.substr(point + 2, digits - 1);
  text += power < 0 ? "E-" : "E+";
  const std::string size_text = std::to_string(std::abs(power));
  text.append(3 - size_text.size(), '0').append(size_text);
  put_text(out, text, width);
  return out;
}

}  // namespace

std::optional<double> scan_real(std::string_view text) {
  // Most numbers are as the library reads them. What it would read beyond our rules does not begin
  // with a digit.
  const std::size_t sign = !text.empty() && text[0] == '-' ? 1 : 0;
  if (text.size() > sign && is_digit(text[sign])) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc{} && end == text.data() + text.size()) return value;
  }
  const std::string plain = plain_number(text);
  if (plain.empty()) return {};
  double value = 0;
  const auto [end, error] = std::from_chars(plain.data(), plain.data() + plain.size(), value);
  if (error != std::errc{} || end != plain.data() + plain.size()) return {};
  return value;
}

std::optional<std::int32_t> scan_integer(std::string_view text) {
  if (!text.empty() && text[0] == '+') {
    text.remove_prefix(1);  // from_chars takes no plus; behind ours it would take a minus
    if (text.empty() || !is_digit(text[0])) return {};
  }
  std::int32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return {};
  return value;
}

std::optional<bool> scan_logical(std::string_view text) {
  if (!text.empty() && text[0] == '.') text.remove_prefix(1);
  if (text.empty()) return {};
  // The letter decides; what follows it (.TRUE., True, T) does not count.
  if (text[0] == 'T' || text[0] == 't') return true;
  if (text[0] == 'F' || text[0] == 'f') return false;
  return {};
}

void start_record(list_record& record, std::string_view text) {
  record.text = text;
  record.position = 0;
  record.repeats = 0;
  record.item.clear();
  record.item_is_null = false;
  record.ended = false;
}

taken take(list_record& record, std::int32_t& value) {
  return take_scanned(record, value, scan_integer);
}

taken take(list_record& record, double& value) { return take_scanned(record, value, scan_real); }

taken take(list_record& record, bool& value) { return take_scanned(record, value, scan_logical); }

taken take(list_record& record, std::string& value) {
  const taken next = next_item(record);
  if (next == taken::value) value = record.item;
  return next;
}

std::optional<std::int32_t> take_int(list_record& record) {
  std::int32_t value = 0;
  return take(record, value) == taken::value ? std::optional{value} : std::nullopt;
}

std::optional<double> take_real(list_record& record) {
  double value = 0;
  return take(record, value) == taken::value ? std::optional{value} : std::nullopt;
}

list_line& list_line::text(std::string_view t) {
  out_ += t;
  return *this;
}

list_line& list_line::integer(std::int32_t v) {
  put_integer(out_, v, 12);
  return *this;
}

list_line& list_line::real(double v) {
  out_ += list_real(v);
  return *this;
}

list_line& list_line::logical(bool v) {
  out_ += v ? " T" : " F";
  return *this;
}

}  // namespace util
