// What is known of single BPMs: coefficients, bad buttons and offsets, as files and through a pipe;
// what was read is written and read back the same.
#include <fmt/format.h>

#include <string>
#include <string_view>

#include "calib_files.hpp"
#include "target.hpp"

namespace {

using namespace nonlin_bpm_mod;

template <class reader>
auto words_of(reader read_words) {
  return [=](const std::string& path) {
    word_file file;
    fuzz::check(!open_words(file, path));
    return read_words(file);
  };
}

void check_coefficients(std::string_view text) {
  const auto reader = words_of(read_coefficients);
  const auto [file, pipe] = fuzz::both_ways(text, reader);
  fuzz::check(file.value.has_value() == pipe.value.has_value());
  if (!file) return fuzz::check(fuzz::same(file.why, pipe.why));
  std::string list = "nonlin_bpm_coeff 1\n";
  for (int bpm = 1; bpm <= max_bpm; ++bpm) {
    list += fmt::format("{}", bpm);
    for (const double c : (*file)(bpm).item) {
      fuzz::check(c > 0);
      list += fmt::format(" {:.17g}", c);
    }
    list += '\n';
  }
  const auto again = reader(fuzz::held(list, fuzz::way::file));
  fuzz::check(again && fuzz::same_bits(*again, *file));
}

void check_bad_buttons(std::string_view text) {
  const auto reader = words_of(read_bad_buttons);
  const auto [file, pipe] = fuzz::both_ways(text, reader);
  fuzz::check(file.value.has_value() == pipe.value.has_value());
  if (!file) return fuzz::check(fuzz::same(file.why, pipe.why));
  std::string list = "nonlin_bpm_bad_buttons 1\n";
  for (int bpm = 1; bpm <= max_bpm; ++bpm) {
    if ((*file)(bpm) != 0) list += fmt::format("{} {}\r\n", bpm, (*file)(bpm));
  }
  const auto again = reader(fuzz::held(list, fuzz::way::file));
  fuzz::check(again && fuzz::same_bits(*again, *file));
}

bool same_offsets(const offset_list& a, const offset_list& b) {
  if (a.entry.size() != b.entry.size()) return false;
  for (std::size_t i = 0; i < a.entry.size(); ++i) {
    const bpm_offset &p = a.entry[i], &q = b.entry[i];
    if (p.bpm != q.bpm || p.horizontal != q.horizontal || p.vertical != q.vertical) return false;
  }
  return true;
}

void check_offsets(std::string_view text) {
  const auto reader = [](const std::string& path) {
    auto file = util::open_text_file(path);
    fuzz::check(static_cast<bool>(file));
    return read_offsets(*file);
  };
  const auto [file, pipe] = fuzz::both_ways(text, reader);
  fuzz::check(fuzz::same(file.fault, pipe.fault) && same_offsets(file, pipe));
  std::string list;
  for (const bpm_offset& o : file.entry) {
    list += fmt::format("{} {:.17g} {:.17g}\n", o.bpm, o.vertical, o.horizontal);
  }
  const offset_list again = reader(fuzz::held(list, fuzz::way::file));
  fuzz::check(!again.fault && same_offsets(file, again));
}

}  // namespace

void fuzz::read(std::string_view text) {
  check_coefficients(text);
  check_bad_buttons(text);
  check_offsets(text);
}
