#include "svg_text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

#include "inks.hpp"
#include "text.hpp"

namespace chart {
namespace {

void append_text(std::string& out, const placed_text& t) {
  constexpr std::array anchors{"start", "middle", "end"};
  const auto anchor = static_cast<std::size_t>(std::lround(2 * t.style.at));
  const auto put = std::back_inserter(out);
  // Anchor, weight and colour only where they are not the usual ones: axes have many texts. All but
  // the text itself is ours; the text may be anybody's and is escaped.
  fmt::format_to(put, R"(<text x="{:.1f}" y="{:.1f}" font-size="{}")", t.place.x, t.place.y,
                 t.style.size);
  if (anchor > 0)
    fmt::format_to(put, " text-anchor=\"{}\"", anchors[std::min<std::size_t>(anchor, 2)]);
  if (t.style.bold) out += " font-weight=\"bold\"";
  if (t.style.ink != ink::text) {
    fmt::format_to(put, " style=\"fill:var({})\"", colour_of(t.style.ink).variable);
  }
  if (t.style.upright) {
    fmt::format_to(put, " transform=\"rotate(-90 {:.1f} {:.1f})\"", t.place.x, t.place.y);
  }
  fmt::format_to(put, ">{}</text>", html(t.text));
}

}  // namespace

// Quotes too: the same texts stand in attributes, where a quote would end the value.
std::string html(std::string_view text) {
  std::string out;
  for (const char c : util::shown(text)) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string svg_element(const canvas& c, std::string_view title) {
  // The picture takes the room there is, but grows no further than its texts are fit for. A reader
  // that speaks pages gets the title instead of the shapes.
  std::string out = fmt::format(
      "<svg role=\"img\" viewBox=\"0 0 {0:.0f} {1:.0f}\" width=\"{0:.0f}\" height=\"{1:.0f}\" "
      "style=\"max-width:min(100%,{2:.0f}px)\" aria-label=\"{3}\">",
      c.width, c.height, c.width * c.growth, html(title));
  out += c.shapes;
  for (const placed_text& t : c.texts) append_text(out, t);
  out += "</svg>\n";
  return out;
}

}  // namespace chart
