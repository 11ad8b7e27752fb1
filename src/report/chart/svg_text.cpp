#include "svg_text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <optional>

#include "inks.hpp"
#include "list_io.hpp"
#include "text.hpp"

namespace chart {
namespace {

// "0%,44.7%,69.8%" as an ink: the library writes colours as percentages, with or without blanks.
const ink_colour* ink_of(std::string_view percentages) {
  std::array<double, 3> part{};
  for (double& value : part) {
    const std::size_t end = percentages.find('%');
    if (end == std::string_view::npos) return nullptr;
    const auto number = util::scan_real(util::trim(percentages.substr(0, end)));
    if (!number) return nullptr;
    // The percentages have digits enough: rounding below finds the whole number that went in.
    value = *number * 255 / 100;
    // Beyond the "%" and the comma; the last one has a bracket there.
    percentages.remove_prefix(std::min(end + 2, percentages.size()));
  }
  for (const ink_colour& c : inks) {
    if (std::lround(part[0]) == c.red && std::lround(part[1]) == c.green &&
        std::lround(part[2]) == c.blue) {
      return &c;
    }
  }
  return nullptr;
}

// Numbers are written with six decimals; two are finer than any screen.
std::string short_number(std::string_view number) {
  const std::size_t point = number.find('.');
  const auto value = util::scan_real(number);
  if (point == std::string_view::npos || number.size() - point <= 3 || !value) {
    return std::string{number};
  }
  std::string text = fmt::format("{:.2f}", *value);
  while (text.back() == '0') text.pop_back();
  if (text.back() == '.') text.pop_back();
  return text;
}

// A path in fewer characters: clouds of dots, "M x y L x y" each, are most of a page.
void append_path(std::string& out, std::string_view path) {
  std::string begin;  // of the stroke, while it has no other corner
  // Kept back until the next letter: only then it is known that a stroke had no length.
  std::string corner;
  char letter = 0;
  // A dot is a stroke to where it began, and "h0" says that in two characters.
  const auto put_corner = [&] {
    if (letter == 'L' && corner == begin) {
      out += "h0";
    } else if (letter != 0) {
      out.append(1, letter).append(corner);
    }
    if (letter == 'M') begin = corner;
    if (letter != 'M') begin.clear();
    corner.clear();
  };
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of(" ,"), path.size());
    const std::string_view word = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (word.size() == 1 && word[0] >= 'A') {
      put_corner();
      letter = word[0];
    } else if (!word.empty()) {
      if (!corner.empty()) corner += ' ';
      corner += short_number(word);
    }
  }
  put_corner();
}

// They are the SVG standard's, but for the limit of mitres (4 there, 10 is the library's): only
// sharp corners differ by it, and every bent line of ours has round ones.
// Values of properties that are what they are without being written.
bool says_nothing(std::string_view property) {
  constexpr std::array<std::string_view, 9> defaults{
      "fill-rule:nonzero",    "fill-opacity:1", "stroke-opacity:1",
      "stroke-linecap:butt",  "stroke-width:1", "stroke-linejoin:miter",
      "stroke-miterlimit:10", "stroke:none",    ""};
  return std::find(defaults.begin(), defaults.end(), property) != defaults.end();
}

void append_style(std::string& out, std::string_view style) {
  bool first = true;
  while (!style.empty()) {
    const std::size_t end = std::min(style.find(';'), style.size());
    const std::string_view property = style.substr(0, end);
    style.remove_prefix(std::min(end + 1, style.size()));
    if (says_nothing(property)) continue;
    if (!first) out += ';';
    first = false;
    const std::size_t colour = property.find(":rgb(");
    const ink_colour* shade =
        colour == std::string_view::npos ? nullptr : ink_of(property.substr(colour + 5));
    // A colour that is none of our inks stays as it is: a wrong shade in the dark, but a picture.
    if (shade == nullptr) {
      out += property;
    } else {
      fmt::format_to(std::back_inserter(out), "{}:var({})", property.substr(0, colour),
                     shade->variable);
    }
  }
}

// The value of an attribute of a tag.
std::optional<std::string_view> attribute(std::string_view tag, std::string_view name) {
  // With the blank in front: "d" must not be found in "id".
  const std::string key = fmt::format(" {}=\"", name);
  const std::size_t at = tag.find(key);
  if (at == std::string_view::npos) return {};
  const std::size_t begin = at + key.size();
  const std::size_t end = tag.find('"', begin);
  if (end == std::string_view::npos) return {};
  return tag.substr(begin, end - begin);
}

// Newer versions of the library write each property as an attribute of its own.
std::string style_of(std::string_view tag) {
  if (const auto style = attribute(tag, "style")) return std::string{*style};
  std::string style;
  for (const char* name :
       {"fill", "fill-rule", "fill-opacity", "stroke", "stroke-width", "stroke-linecap",
        "stroke-linejoin", "stroke-opacity", "stroke-dasharray"}) {
    if (const auto value = attribute(tag, name)) style += fmt::format("{}:{};", name, *value);
  }
  return style;
}

// Paths and boxes are all that our pen makes the library write; prolog, groups, definitions and
// closing tags fall away.
void append_tag(std::string& out, std::string_view tag) {
  if (tag.starts_with("<path")) {
    out += "<path style=\"";
    append_style(out, style_of(tag));
    out += "\" d=\"";
    append_path(out, util::trim(attribute(tag, "d").value_or("")));
    out += "\"/>";
  } else if (tag.starts_with("<rect")) {
    out += "<rect style=\"";
    append_style(out, style_of(tag));
    out += '"';
    for (const char* name : {"x", "y", "width", "height"}) {
      if (const auto value = attribute(tag, name)) {
        fmt::format_to(std::back_inserter(out), " {}=\"", name);
        out += short_number(*value) + '"';
      }
    }
    out += "/>";
  }
}

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

std::string svg_element(std::string_view file, const canvas& c, std::string_view title) {
  const std::size_t root = file.find("<svg");
  if (root == std::string_view::npos) return {};
  // The picture takes the room there is, but grows no further than its texts are fit for. A reader
  // that speaks pages gets the title instead of the shapes.
  std::string out = fmt::format(
      "<svg role=\"img\" viewBox=\"0 0 {0:.0f} {1:.0f}\" width=\"{0:.0f}\" height=\"{1:.0f}\" "
      "style=\"max-width:min(100%,{2:.0f}px)\" aria-label=\"{3}\">",
      c.width, c.height, c.width * c.growth, html(title));
  // Groups around the shapes carry nothing but ids, which would stand twice in a page of several
  // pictures.
  for (std::size_t at = file.find('<', root + 4); at != std::string_view::npos;) {
    const std::size_t end = file.find('>', at);
    if (end == std::string_view::npos) return {};
    append_tag(out, file.substr(at, end - at + 1));
    at = file.find('<', end);
  }
  for (const placed_text& t : c.texts) append_text(out, t);
  out += "</svg>\n";
  return out;
}

}  // namespace chart
