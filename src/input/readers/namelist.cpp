#include "namelist.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <vector>

#include "file_units.hpp"
#include "list_io.hpp"
#include "text.hpp"

namespace namelist {
namespace {

using failure = std::optional<std::string>;

// The text between a group's name and its end: comments taken off, tabs made blanks, lines joined
// by blanks.
struct group_text {
  std::string file;
  std::string text;
  std::vector<std::size_t> starts;  // where each line begins in the text
  int first_line = 0;               // number in the file of the first of them
};

// One "name(first:last) = values": places in the group's text.
struct assignment {
  std::string_view name;
  std::optional<std::string_view> subscript;  // what stands between the parentheses
  std::size_t begin = 0;                      // where the name begins
  std::size_t values = 0;                     // where the values begin
};

// Elements that an assignment fills, counted from 0.
struct extent {
  std::size_t next = 0;
  std::size_t end = 0;
};

enum class piece { nothing, comment, group_end, equals, other };

bool is_name_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// Whether "&word" (or "$word") stands at this place.
bool marks(std::string_view line, std::size_t at, std::string_view word) {
  if (line[at] != '&' && line[at] != '$') return false;
  if (util::upcase(line.substr(at + 1, word.size())) != util::upcase(word)) return false;
  const std::size_t behind = at + 1 + word.size();
  return behind >= line.size() || !is_name_character(line[behind]);
}

// Moves over the next piece of a line. A quoted text is one piece: what it holds means nothing.
piece next_piece(std::string_view line, std::size_t& at) {
  if (at >= line.size()) return piece::nothing;
  if (marks(line, at, "end")) return piece::group_end;
  const char c = line[at++];
  if (c == '!') return piece::comment;
  if (c == '/') return piece::group_end;
  if (c == '=') return piece::equals;
  if (c == '\'' || c == '"') at = std::min(line.find(c, at), line.size() - 1) + 1;
  return piece::other;
}

std::string fault(const group_text& group, std::size_t at, std::string_view what) {
  const auto behind = std::upper_bound(group.starts.begin(), group.starts.end(), at);
  const auto line = group.first_line + (behind - group.starts.begin()) - 1;
  return util::shown(fmt::format("{}:{}: {}", group.file, line, what));
}

// Looks for "&name" outside comments; `line` then holds what follows it.
bool find_group(int unit, std::string_view name, std::string& line, int& number) {
  while (util::read_line(unit, line)) {
    ++number;
    const std::size_t length = std::min(line.find('!'), line.size());
    for (std::size_t at = 0; at < length; ++at) {
      if (!marks(line, at, name)) continue;
      line.erase(0, at + 1 + name.size());
      return true;
    }
  }
  return false;
}

failure collect(int unit, std::string_view name, group_text& group) {
  group.file = util::unit_path(unit);
  std::string line;
  if (!find_group(unit, name, line, group.first_line)) {
    return fmt::format("{}: expected the group \"&{}\", which is not there", group.file, name);
  }
  do {
    std::replace(line.begin(), line.end(), '\t', ' ');
    std::size_t end = 0;  // of what the group holds of this line
    std::size_t at = 0;
    piece met = piece::other;
    while (met == piece::other || met == piece::equals) {
      end = at;
      met = next_piece(line, at);
    }
    group.starts.push_back(group.text.size());
    group.text.append(line, 0, end).append(" ");
    if (met == piece::group_end) return {};
  } while (util::read_line(unit, line));
  return fault(group, group.text.size(),
               fmt::format(R"(the file ends inside the group "&{}": expected "/")", name));
}

// Reads the name, and the subscript if there is one, back from the equals sign.
assignment split_name(std::string_view text, std::size_t equals) {
  assignment found;
  found.values = equals + 1;
  std::size_t end = util::trim_right(text.substr(0, equals)).size();
  if (end > 0 && text[end - 1] == ')') {
    const std::size_t open = std::min(text.rfind('(', end), end - 1);
    found.subscript = text.substr(open + 1, std::max(end, open + 2) - open - 2);
    end = util::trim_right(text.substr(0, open)).size();
  }
  found.begin = end;
  while (found.begin > 0 && is_name_character(text[found.begin - 1])) --found.begin;
  found.name = text.substr(found.begin, end - found.begin);
  return found;
}

std::vector<assignment> split(std::string_view text) {
  std::vector<assignment> assignments;
  std::size_t at = 0;
  piece met = piece::other;
  while (met != piece::nothing) {
    met = next_piece(text, at);
    if (met == piece::equals) assignments.push_back(split_name(text, at - 1));
  }
  return assignments;
}

// The elements that "(3)", "(3:5)", "(3:)" or no subscript speaks of.
std::optional<extent> elements(const assignment& given, const member& into, std::size_t size) {
  if (!given.subscript) return extent{0, size};
  const std::string_view text = util::trim(*given.subscript);
  const int upper = into.lower + static_cast<int>(size) - 1;
  const auto bound = [&](std::string_view word, int otherwise) -> std::optional<int> {
    word = util::trim(word);
    return word.empty() ? otherwise : util::scan_integer(word);
  };
  const std::size_t colon = text.find(':');
  if (text.empty()) return {};
  const auto first = bound(text.substr(0, colon), into.lower);
  const auto last = colon == std::string_view::npos ? upper : bound(text.substr(colon + 1), upper);
  if (!first || !last || *first < into.lower || *last > upper || *first > *last) return {};
  return extent{static_cast<std::size_t>(*first - into.lower),
                static_cast<std::size_t>(*last - into.lower + 1)};
}

template <class T>
constexpr std::string_view kind_of = "a whole number";
template <>
constexpr std::string_view kind_of<bool> = "a logical such as .true.";

// Stores values one after the other; returns what is wrong with the last one taken, if anything.
template <class T>
failure store_values(util::list_record& record, std::span<T> items, extent into) {
  for (;;) {
    T value{};
    const util::taken got = util::take(record, value);
    if (got == util::taken::end || got == util::taken::slash) return {};
    if (got == util::taken::bad) {
      return fmt::format("expected {}, found \"{}\"", kind_of<T>, record.item);
    }
    if (got == util::taken::null) {
      // All repeats of "1000000*" at once.
      into.next += 1 + static_cast<std::size_t>(record.repeats);
      record.repeats = 0;
      continue;
    }
    if (into.next >= into.end) return fmt::format("no place is left for the value {}", record.item);
    items[into.next++] = value;
  }
}

failure assign(const group_text& group, const assignment& given, std::size_t end,
               std::span<const member> members) {
  const auto into = std::find_if(members.begin(), members.end(), [&](const member& m) {
    return util::upcase(m.name) == util::upcase(given.name);
  });
  if (into == members.end()) {
    std::string names;
    for (const member& m : members) names += fmt::format("{}{}", names.empty() ? "" : ", ", m.name);
    return fault(group, given.begin,
                 fmt::format("expected one of {}, found \"{}\"", names, given.name));
  }
  return std::visit(
      [&](auto items) -> failure {
        const auto range = elements(given, *into, items.size());
        if (!range) {
          return fault(group, given.begin,
                       fmt::format("{}: expected a subscript in {}..{}, found \"{}\"", into->name,
                                   into->lower, into->lower + static_cast<int>(items.size()) - 1,
                                   util::trim(given.subscript.value_or(""))));
        }
        util::list_record record;
        start_record(record, std::string_view{group.text}.substr(given.values, end - given.values));
        const failure wrong = store_values(record, items, *range);
        if (!wrong) return {};
        // The record stands behind the fault, and perhaps behind blanks that follow it.
        const auto used = util::trim_right(record.text.substr(0, record.position)).size();
        return fault(group, given.values + std::max<std::size_t>(used, 1) - 1,
                     fmt::format("{}: {}", into->name, *wrong));
      },
      into->items);
}

}  // namespace

std::optional<std::string> read_group(int unit, std::string_view group,
                                      std::span<const member> members) {
  group_text found;
  if (failure wrong = collect(unit, group, found)) return wrong;
  const std::vector<assignment> assignments = split(found.text);

  // Only separators may stand before the first name.
  const std::size_t first = assignments.empty() ? found.text.size() : assignments[0].begin;
  const std::size_t stray = found.text.find_first_not_of(" ,");
  if (stray < first) {
    return fault(found, stray, "expected \"name = values\" after the group's name");
  }
  for (std::size_t i = 0; i < assignments.size(); ++i) {
    const bool last = i + 1 == assignments.size();
    const std::size_t end = last ? found.text.size() : assignments[i + 1].begin;
    if (failure wrong = assign(found, assignments[i], end, members)) return wrong;
  }
  return {};
}

}  // namespace namelist
