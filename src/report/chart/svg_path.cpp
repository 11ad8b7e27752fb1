#include "svg_path.hpp"

#include <fmt/format.h>

#include <cmath>
#include <iterator>

#include "inks.hpp"

namespace chart {
namespace {

using step = svg_path::step;

constexpr double parts = 256;  // of a point

// What is no number, or far beyond every page, stands in the corner.
long in_parts(double length) {
  constexpr double largest = 1e6;  // [points]
  return std::abs(length) < largest ? static_cast<long>(std::nearbyint(length * parts)) : 0;
}

// Hundredths, the even one of two that are as near: two decimals are finer than any screen.
void append_number(std::string& out, long in_256th) {
  constexpr long up = 25, down = 64;  // 100 / 256
  const bool negative = in_256th < 0;
  const long scaled = (negative ? -in_256th : in_256th) * up;
  long hundredths = scaled / down;
  const long rest = scaled % down;
  if (rest > down / 2 || (rest == down / 2 && hundredths % 2 == 1)) ++hundredths;
  if (negative) out += '-';
  fmt::format_to(std::back_inserter(out), "{}", hundredths / 100);
  const long behind = hundredths % 100;
  if (behind == 0) return;
  out += '.';
  out += static_cast<char>('0' + behind / 10);
  if (behind % 10 != 0) out += static_cast<char>('0' + behind % 10);
}

std::string place_text(const step& at) {
  std::string text;
  append_number(text, at.x);
  text += ' ';
  append_number(text, at.y);
  return text;
}

bool same_place(const step& a, const step& b) { return a.x == b.x && a.y == b.y; }

// Whether the way from a over b to c goes straight on.
bool straight_on(const step& a, const step& b, const step& c) {
  const long first_x = b.x - a.x, first_y = b.y - a.y;
  const long second_x = c.x - b.x, second_y = c.y - b.y;
  return first_x * second_y == first_y * second_x && first_x * second_x + first_y * second_y >= 0;
}

void append_path(std::string& out, const svg_path& path) {
  std::string begin;  // of the stroke, while it has no other corner
  for (const step& at : path.steps) {
    const std::string place = at.what == 'Z' ? std::string{} : place_text(at);
    // A dot is a stroke to where it began, and "h0" says that in two characters.
    if (at.what == 'L' && place == begin) {
      out += "h0";
    } else {
      out.append(1, at.what).append(place);
    }
    begin = at.what == 'M' ? place : std::string{};
  }
}

// What is as it is without being written is left out: a page has thousands of these.
void append_stroke_style(std::string& out, const svg_stroke& how) {
  out += "<path style=\"fill:none";
  const auto put = std::back_inserter(out);
  if (how.width != 1) fmt::format_to(put, ";stroke-width:{}", how.width);
  if (how.round_ends) out += ";stroke-linecap:round";
  if (how.round_joins) out += ";stroke-linejoin:round";
  fmt::format_to(put, ";stroke:var({})", colour_of(how.ink).variable);
  if (how.opacity != 1) fmt::format_to(put, ";stroke-opacity:{}", how.opacity);
  if (how.dashed) out += ";stroke-dasharray:4,3";
  out += "\" d=\"";
}

}  // namespace

double in_steps(double length) { return static_cast<double>(in_parts(length)) / parts; }

void move_to(svg_path& path, point to) {
  const step next{'M', in_parts(to.x), in_parts(to.y)};
  // One that nothing was drawn from is replaced.
  if (!path.steps.empty() && path.steps.back().what == 'M') path.steps.pop_back();
  path.steps.push_back(next);
}

void line_to(svg_path& path, point to) {
  if (path.steps.empty()) return move_to(path, to);
  const step next{'L', in_parts(to.x), in_parts(to.y)};
  const step last = path.steps.back();
  if (last.what == 'L') {
    if (same_place(last, next)) return;
    const step& before = path.steps[path.steps.size() - 2];
    if (same_place(before, last) || straight_on(before, last, next)) path.steps.pop_back();
  }
  path.steps.push_back(next);
}

void close(svg_path& path) {
  if (path.steps.empty()) return;
  const step first = path.steps.front();
  if (path.steps.back().what == 'L' && same_place(path.steps.back(), first)) path.steps.pop_back();
  path.steps.push_back({'Z', first.x, first.y});
  path.steps.push_back({'M', first.x, first.y});
}

void append_stroked(std::string& out, const svg_path& path, const svg_stroke& how) {
  append_stroke_style(out, how);
  append_path(out, path);
  out += "\"/>";
}

void append_filled(std::string& out, const svg_path& path, ink colour, double opacity) {
  const auto put = std::back_inserter(out);
  fmt::format_to(put, "<path style=\" stroke:none;fill:var({})", colour_of(colour).variable);
  if (opacity != 1) fmt::format_to(put, ";fill-opacity:{}", opacity);
  out += "\" d=\"";
  append_path(out, path);
  out += "\"/>";
}

void append_dots(std::string& out, std::span<const std::pair<long, long>> halves,
                 const svg_stroke& how) {
  append_stroke_style(out, how);
  constexpr long half = 128;
  for (const auto& [x, y] : halves) {
    // A stroke of no length between round caps is a dot, and the shortest way to write one.
    out += 'M';
    append_number(out, x * half);
    out += ' ';
    append_number(out, y * half);
    out += "h0";
  }
  out += "\"/>";
}

}  // namespace chart
