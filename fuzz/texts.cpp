// Numbers and texts, below all readers: the quick ways against the thorough ones, and texts that are
// written as UTF-8 or as a field and read back.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "csv_text.hpp"
#include "list_io.hpp"
#include "plain_numbers.hpp"
#include "run_json.hpp"
#include "target.hpp"
#include "text.hpp"

namespace {

template <class number, class scanner>
void check_plain(std::string_view line, scanner scan) {
  number value{};
  for (std::string_view rest = line; !rest.empty();) {
    const std::string_view before = rest;
    if (!input::take_plain(rest, value)) return;
    std::string_view word = before.substr(0, before.size() - rest.size());
    word.remove_prefix(std::min(word.find_first_not_of(" \t\r"), word.size()));
    const std::optional<number> known = scan(word);
    fuzz::check(known && fuzz::same_bits(*known, value));
  }
}

// Every item is one value for the list and for the scanner, and a list ends.
void check_list(std::string_view line) {
  util::list_record record;
  util::start_record(record, line);
  for (std::size_t i = 0; i <= line.size(); ++i) {
    double value = 0;
    const util::taken got = util::take(record, value);
    if (got == util::taken::end || got == util::taken::slash) return;
    const auto known = util::scan_real(record.item);
    if (got == util::taken::value) fuzz::check(known && fuzz::same_bits(*known, value));
    // "1000000*" alone is a million empty places.
    record.repeats = 0;
  }
  fuzz::check(false);
}

void check_field(const std::string& field) {
  std::vector<std::string> back;
  fuzz::check(report::split_fields("a," + field + ",b", back));
  fuzz::check(back == std::vector<std::string>{"a", field, "b"});
}

bool has_control(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7F') return true;
  }
  return false;
}

}  // namespace

void fuzz::read(std::string_view text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  check_plain<double>(line, util::scan_real);
  check_plain<std::int32_t>(line, util::scan_integer);
  check_list(line);
  const std::string shown = util::shown(text);
  check(!has_control(shown) && util::shown(shown) == shown);
  check_field(report::field_text(text));
  const std::string utf8 = report::text_of_bytes(text);
  check(report::bytes_of_text(utf8) == text);
  for (std::string_view rest = utf8; !rest.empty();) {
    const std::size_t length = util::utf8_length(rest);
    check(length > 0);
    rest.remove_prefix(length);
  }
}
