#include "namelist.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <vector>

#include "list_io.hpp"
#include "text.hpp"

namespace namelist {
namespace {

// The text between a group's name and its end: comments taken off, tabs made blanks, lines joined
// by blanks.
struct group_text {
  std::string path;
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

// Where in the file a place of the group's text stands; the member with it, where there is one.
std::string place(const group_text& group, std::size_t at, std::string_view member = {}) {
  const auto behind = std::upper_bound(group.starts.begin(), group.starts.end(), at);
  const auto line = group.first_line + (behind - group.starts.begin()) - 1;
  return fmt::format("{}:{}{}{}", group.path, line, member.empty() ? "" : ": ", member);
}

std::string found(std::string_view text) { return fmt::format("found \"{}\"", text); }

// Looks for "&name" outside comments; the line in hand then holds what follows it.
bool find_group(util::text_file& file, std::string_view name) {
  while (util::next_line(file)) {
    std::string& line = file.line;
    const std::size_t length = std::min(line.find('!'), line.size());
    for (std::size_t at = 0; at < length; ++at) {
      if (!marks(line, at, name)) continue;
      line.erase(0, at + 1 + name.size());
      return true;
    }
  }
  return false;
}

// The group's text, to its end.
util::status collect(util::text_file& file, std::string_view name, group_text& group) {
  group.path = file.path;
  if (!find_group(file, name)) {
    if (file.trouble) return file.trouble;
    return util::fault{"the file has no such group", group.path, fmt::format("\"&{}\"", name)};
  }
  group.first_line = file.number;
  do {
    std::string& line = file.line;
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
  } while (util::next_line(file));
  if (file.trouble) return file.trouble;
  return util::fault{fmt::format("the file ends inside the group \"&{}\"", name),
                     place(group, group.text.size()), "\"/\""};
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

// Stores values one after the other, until there are no more or one is wrong. The fault's place is
// the caller's to say.
template <class T>
util::status store_values(util::list_record& record, std::span<T> items, extent into) {
  for (;;) {
    T value{};
    const util::taken got = util::take(record, value);
    if (got == util::taken::end || got == util::taken::slash) return {};
    if (got == util::taken::bad) {
      return util::fault{found(record.item), {}, std::string{kind_of<T>}};
    }
    if (got == util::taken::null) {
      // All repeats of "1000000*" at once.
      into.next += 1 + static_cast<std::size_t>(record.repeats);
      record.repeats = 0;
      continue;
    }
    if (into.next >= into.end) {
      return util::fault{fmt::format("no place is left for the value {}", record.item), {}, {}};
    }
    items[into.next++] = value;
  }
}

util::fault unknown_member(const group_text& group, const assignment& given,
                           std::span<const member> members) {
  std::string names;
  for (const member& m : members) names += fmt::format("{}{}", names.empty() ? "" : ", ", m.name);
  return {found(given.name), place(group, given.begin), "one of " + names};
}

// Stores what one assignment says; its values end where the next one begins.
template <class T>
util::status assign_items(const group_text& group, const assignment& given, std::size_t end,
                          const member& into, std::span<T> items) {
  const auto range = elements(given, into, items.size());
  if (!range) {
    const int upper = into.lower + static_cast<int>(items.size()) - 1;
    return util::fault{found(util::trim(given.subscript.value_or(""))),
                       place(group, given.begin, into.name),
                       fmt::format("a subscript in {}..{}", into.lower, upper)};
  }
  util::list_record record;
  start_record(record, std::string_view{group.text}.substr(given.values, end - given.values));
  util::status wrong = store_values(record, items, *range);
  if (!wrong) return {};
  // The record stands behind the fault, and perhaps behind blanks that follow it.
  const auto used = util::trim_right(record.text.substr(0, record.position)).size();
  wrong->where = place(group, given.values + std::max<std::size_t>(used, 1) - 1, into.name);
  return wrong;
}

util::status assign(const group_text& group, const assignment& given, std::size_t end,
                    std::span<const member> members) {
  const auto into = std::find_if(members.begin(), members.end(), [&](const member& m) {
    return util::upcase(m.name) == util::upcase(given.name);
  });
  if (into == members.end()) return unknown_member(group, given, members);
  return std::visit([&](auto items) { return assign_items(group, given, end, *into, items); },
                    into->items);
}

}  // namespace

util::status read_group(util::text_file& file, std::string_view group,
                        std::span<const member> members) {
  group_text text;
  if (util::status wrong = collect(file, group, text)) return wrong;
  const std::vector<assignment> assignments = split(text.text);

  // Only separators may stand before the first name.
  const std::size_t first = assignments.empty() ? text.text.size() : assignments[0].begin;
  const std::size_t stray = text.text.find_first_not_of(" ,");
  if (stray < first) {
    const std::string_view word = std::string_view{text.text}.substr(stray);
    return util::fault{found(word.substr(0, word.find_first_of(" ,="))), place(text, stray),
                       "\"name = values\" after the group's name"};
  }
  // Values before a fault stay stored: the operator reads the file again with them.
  for (std::size_t i = 0; i < assignments.size(); ++i) {
    const bool last = i + 1 == assignments.size();
    const std::size_t end = last ? text.text.size() : assignments[i + 1].begin;
    if (util::status wrong = assign(text, assignments[i], end, members)) return wrong;
  }
  return {};
}

}  // namespace namelist
