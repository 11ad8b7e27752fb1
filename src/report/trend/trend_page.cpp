#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include "calendar.hpp"
#include "canvas.hpp"
#include "page_style.hpp"
#include "symbols.hpp"
#include "trend_pictures.hpp"
#include "trend_report.hpp"
#include "trend_words.hpp"

namespace report {
namespace {

using chart::html;

// Changes and their pictures stand open; of many, only so many.
constexpr std::size_t most_open = 8;

std::string_view word_of(trend_word word) {
  switch (word) {
    case trend_word::changed:
      return "changed";
    case trend_word::never:
      return "never determined";
    case trend_word::few:
      return "too few runs";
    case trend_word::quiet:
      break;
  }
  return "no change";
}

// Classes of the style sheet, by their colours.
std::string_view class_of(trend_word word) {
  switch (word) {
    case trend_word::changed:
    case trend_word::never:
      return "suspect";
    case trend_word::few:
      return "weak";
    case trend_word::quiet:
      break;
  }
  return "determined";
}

std::string link_to(const trend_result& r, std::size_t i) {
  return fmt::format("<a href=\"#bpm-{}\">{}</a>", i, html(short_name(*r.bpm[i].series)));
}

// Dates do not break at their hyphens.
std::string html_of(const std::string& words) {
  std::string out = html(words);
  const auto is_date = [&out](std::size_t at) {
    constexpr std::string_view form = "dddd-dd-dd";
    for (std::size_t i = 0; i < form.size(); ++i) {
      const char c = at + i < out.size() ? out[at + i] : ' ';
      if (form[i] == 'd' ? c < '0' || c > '9' : c != '-') return false;
    }
    return true;
  };
  for (std::size_t at = 0; at < out.size(); ++at) {
    if (!is_date(at)) continue;
    constexpr std::string_view before = "<span class=\"whole\">", behind = "</span>";
    constexpr std::size_t date = 10;
    out.insert(at + date, behind);
    out.insert(at, before);
    at += before.size() + date + behind.size() - 1;
  }
  return out;
}

std::string counts_list(const trend_result& r) {
  std::string out = "<ul class=\"counts\">";
  for (const trend_word word :
       {trend_word::changed, trend_word::quiet, trend_word::few, trend_word::never}) {
    const std::size_t count = count_of(r, word);
    if (count == 0 && word != trend_word::changed) continue;
    out += fmt::format(R"(<li class="{}"><b>{}</b><span class="word">{}</span></li>)",
                       count == 0 ? "determined" : class_of(word), count, word_of(word));
  }
  return out + "</ul>\n";
}

std::string head_of_page(const trend_result& r) {
  const bool any = count_of(r, trend_word::changed) > 0;
  std::string out =
      fmt::format("<header><h1>Trend of the button gains: {}</h1>\n<p class=\"verdict{}\">{}</p>\n",
                  html_of(runs_in_words(r.data)), any ? " none" : "", html_of(trend_sentence(r)));
  if (const std::string hint = hint_at_times(r); !hint.empty()) {
    out += fmt::format("<p class=\"ended\">{}</p>\n", hint);
  }
  return out + counts_list(r) + "</header>\n";
}

// Largest change first, a card each.
std::string list_of_changes(const trend_result& r) {
  std::string out;
  for (const std::size_t i : worst_first(r)) {
    const bpm_trend& b = r.bpm[i];
    if (!changed(b)) continue;
    std::string lines;
    for (const std::string& words : changes_in_words(b, r.data, true)) {
      lines += fmt::format("<br>{}", html_of(words));
    }
    out += fmt::format("<li class=\"suspect\"><b>{}</b>{}</li>\n", link_to(r, i), lines);
  }
  return out.empty()
             ? out
             : "<section><h2>What changed</h2>\n<ul class=\"look\">\n" + out + "</ul></section>\n";
}

std::string time_line(const trend_result& r) {
  // For windows of three widths; the style sheet shows one of them.
  constexpr double wide = 1160, middle = 700, narrow = 356;
  if (count_of(r, trend_word::changed) == 0) return {};
  return fmt::format(
      "<section><h2>When</h2>\n<div class=\"picture wide\">{}</div>\n"
      "<div class=\"picture middle\">{}</div>\n<div class=\"picture narrow\">{}</div>\n"
      "<p class=\"note\">A mark is a step, its box the time between the two runs; a wedge is a "
      "drift; "
      "the strokes below are the runs.</p></section>\n",
      time_line_svg(r, wide), time_line_svg(r, middle), time_line_svg(r, narrow));
}

std::string run_link(const trend_data& data, std::size_t run) {
  return fmt::format("{} <span class=\"path\">{}</span>", html(minute_text(data.run[run].day)),
                     html(data.run[run].directory));
}

// BPMs of which nothing can be said, and runs that are off.
std::string list_of_others(const trend_result& r) {
  std::string out;
  for (std::size_t i = 0; i < r.bpm.size(); ++i) {
    const bpm_trend& b = r.bpm[i];
    if (b.word == trend_word::never) {
      out += fmt::format(
          "<li class=\"suspect\"><span class=\"word\">never determined</span>: {}"
          "<br>{}</li>\n",
          link_to(r, i), html(why_never(*b.series)));
    } else if (b.word == trend_word::few) {
      out += fmt::format(
          "<li class=\"weak\"><span class=\"word\">too few runs</span>: {}<br>{} with "
          "gains, {} are needed</li>\n",
          link_to(r, i), b.used.size(), least_runs);
    }
  }
  std::size_t shown = 0;
  constexpr std::size_t most = 6, most_names = 6;
  const auto wild = wild_by_run(r);
  for (const wild_in_run& w : wild) {
    if (++shown > most) break;
    std::string names;
    for (std::size_t i = 0; i < std::min(w.bpm.size(), most_names); ++i) {
      names += fmt::format("{}{} {}", i == 0 ? "" : "; ", link_to(r, w.bpm[i].first),
                           html(most_moved(w.bpm[i].second->moved)));
    }
    if (w.bpm.size() > most_names) names += fmt::format(" and {} more", w.bpm.size() - most_names);
    if (is_of_run(r, w)) names = "So many at once: the run, rather than its BPMs.";
    out += fmt::format(
        "<li class=\"weak\"><span class=\"word\">run off in {} BPM{}</span>: {}<br>{}"
        "</li>\n",
        w.bpm.size(), w.bpm.size() == 1 ? "" : "s", run_link(r.data, w.run), names);
  }
  if (wild.size() > most) {
    out += fmt::format("<li class=\"weak\">and {} more runs: <code>changes.csv</code></li>\n",
                       wild.size() - most);
  }
  return out.empty() ? out
                     : "<section><h2>Also worth a look</h2>\n<ul class=\"look\">\n" + out +
                           "</ul></section>\n";
}

std::string cell(double value, const char* format) {
  if (!std::isfinite(value)) return "<td data-v=\"\">–</td>";
  return fmt::format("<td data-v=\"{}\">{}</td>", value, fmt::format(fmt::runtime(format), value));
}

// A change that rounds to nothing has no sign.
std::string change_cell(double percent) {
  if (std::abs(percent) < 5e-4) return fmt::format("<td data-v=\"{}\">0.000</td>", percent);
  return cell(percent, "{:+.3f}");
}

std::string table_row(const trend_result& r, std::size_t i) {
  const bpm_trend& b = r.bpm[i];
  const bool judged = b.word != trend_word::never && b.word != trend_word::few;
  std::string out =
      fmt::format(R"(<tr class="{}"><td class="t">{}</td><td>{}</td><td class="t word">{}</td>)",
                  class_of(b.word), link_to(r, i), b.series->bpm, word_of(b.word));
  out += fmt::format("<td>{}</td><td>{}</td>", b.series->point.size(), b.used.size());
  const four none = unknown_four;
  const four& last = b.explained.empty() || !judged ? none : b.explained.back();
  for (const double change : last) out += change_cell(100 * change);
  out += judged ? fmt::format("<td>{}</td><td>{}</td>", b.steps.size(), b.wild.size())
                : "<td data-v=\"\">–</td><td data-v=\"\">–</td>";
  const moved_gains& drift = b.drift.moved;
  out += fmt::format("<td class=\"t\">{}</td>", judged ? chart::button_names[drift.button] : "–");
  out += cell(judged ? 100 * drift.change[drift.button] : unknown, "{:+.5f}");
  out += cell(judged ? 100 * drift.error : unknown, "{:.5f}");
  out += cell(100 * b.usual_scatter, "{:.4f}");
  return out + "</tr>\n";
}

std::string table_of_all(const trend_result& r) {
  std::string out =
      "<section><h2>All BPMs</h2>\n<p>In per cent of a gain. Change: from the first run to the "
      "last, "
      "wild runs left out, with the common factor that leaves most buttons where they were. Drift: "
      "of the button that drifts most, with its error, steps taken out. Scatter: of one button "
      "from "
      "run to run.</p>\n<div class=\"scroll\"><table class=\"sortable\"><thead><tr><th "
      "class=\"t\">BPM"
      "</th><th>index</th><th class=\"t\">word</th><th>runs</th><th>used</th>";
  for (std::size_t k = 0; k < 4; ++k) {
    out += fmt::format("<th class=\"c{}\">change<br>{}</th>", k + 1, chart::button_names[k]);
  }
  out +=
      "<th>steps</th><th>runs<br>off</th><th class=\"t\">drift<br>of</th><th>drift<br>a month</th>"
      "<th>its<br>error</th><th>scatter</th></tr></thead><tbody>\n";
  for (const std::size_t i : worst_first(r)) out += table_row(r, i);
  return out + "</tbody></table></div></section>\n";
}

std::string table_of_steps(const trend_result& r, const bpm_trend& b) {
  if (b.steps.empty()) return {};
  std::string out =
      "<div class=\"scroll\"><table><thead><tr><th class=\"t\">step</th><th>errors</th><th "
      "class=\"t\">"
      "run before</th><th class=\"t\">run behind</th><th class=\"t\">note</th></tr></thead><tbody>";
  for (const trend_step& s : b.steps) {
    out += fmt::format(
        "<tr><td class=\"t\">{}</td><td>{:.0f}</td><td class=\"t\">{}</td><td class=\"t\">{}</td>"
        "<td class=\"t\">{}</td></tr>",
        html(moved_in_words(s.moved, true)), s.errors, run_link(r.data, s.before),
        run_link(r.data, s.behind),
        s.made_otherwise ? "these runs differ in program or tables" : "");
  }
  return out + "</tbody></table></div>\n";
}

std::string fold_out(const trend_result& r, std::size_t i, bool open, std::size_t most_points) {
  const bpm_trend& b = r.bpm[i];
  const auto words = changes_in_words(b, r.data, false);
  std::string out = fmt::format(
      "<details id=\"bpm-{}\" class=\"{}\"{}><summary><span class=\"name\">{}</span> <span "
      "class=\"word\">"
      "{}</span><span class=\"rest\">{}{}</span></summary><div>\n",
      i, class_of(b.word), open ? " open" : "", html(short_name(*b.series)), word_of(b.word),
      words.empty() ? "" : ": ", html_of(fmt::format("{}", fmt::join(words, "; "))));
  if (b.used.empty()) {
    return out + fmt::format("<p>{}</p></div></details>\n", html(why_never(*b.series)));
  }
  out += table_of_steps(r, b);
  const std::string told = b.used.size() > most_points
                               ? fmt::format("A dot is the mean of up to {} runs. ",
                                             (b.used.size() + most_points - 1) / most_points)
                               : std::string{};
  // One picture for all windows but telephones, where it would shrink to nothing.
  constexpr double wide = 820, narrow = 356;
  out += fmt::format(
      "<figure><div class=\"middle-up\">{}</div><div class=\"narrow\">{}</div><figcaption>Change "
      "of each "
      "button's gain [%] against time; {} of {} runs. {}Bars: scatter of one run. Lines: level. "
      "Dashed: "
      "a step. Crosses and wedges: runs that are off.</figcaption></figure>\n",
      bpm_trend_svg(r, b, wide, most_points),
      bpm_trend_svg(r, b, narrow, std::min<std::size_t>(most_points, 40)), b.used.size(),
      b.series->point.size(), told);
  return out + "</div></details>\n";
}

std::string fold_outs(const trend_result& r, bool those_changed) {
  // Of a page that is fit for a mail: a dot and its bar are some 60 bytes.
  constexpr std::size_t points_of_a_page = 6000, least = 40, most = 300;
  const std::size_t points =
      std::clamp(points_of_a_page / std::max<std::size_t>(r.bpm.size(), 1), least, most);
  std::string out;
  std::size_t opened = 0;
  for (const std::size_t i : worst_first(r)) {
    if (changed(r.bpm[i]) != those_changed) continue;
    const bool open = those_changed && opened++ < most_open;
    out += fold_out(r, i, open, open ? most : points);
  }
  if (out.empty()) return out;
  return fmt::format("<section><h2>{}</h2>\n{}</section>\n",
                     those_changed ? "BPMs that changed" : "All other BPMs", out);
}

std::string list_of_left_out(const trend_data& data) {
  if (data.left_out.empty()) return {};
  std::string out = fmt::format(
      "<section><h2>Runs left out</h2>\n<details><summary>{} run{}</summary><div><div "
      "class=\"scroll\">"
      "<table><thead><tr><th class=\"t\">run</th><th class=\"t\">why</th></tr></thead><tbody>",
      data.left_out.size(), data.left_out.size() == 1 ? "" : "s");
  for (const left_out_run& run : data.left_out) {
    out += fmt::format("<tr><td class=\"t path\">{}</td><td class=\"t why\">{}</td></tr>\n",
                       html(run.directory), html(run.why));
  }
  return out + "</tbody></table></div></div></details></section>\n";
}

std::string how_judged(const trend_result& r) {
  return fmt::format(
      "<section><h2>How it was judged</h2>\n<p>A change counts when it is more than {:g} times its "
      "own "
      "error and more than {:g} %. The error comes from how much runs scatter, not from E, most of "
      "which "
      "is the same in all runs of a BPM. A step must be seen by two runs on each side; a single "
      "run "
      "that is off is no step. A drift is told where a straight line explains the runs better than "
      "steps do. Only ratios of gains are known: named is the button whose move alone explains the "
      "change.</p></section>\n",
      r.limits.errors, 100 * r.limits.floor);
}

// Beside the style of all pages: what only this one has.
constexpr std::string_view own_style =
    ".whole{white-space:nowrap}.note{color:var(--quiet);font-size:.85rem;margin:.3rem 0}.look "
    "b{font-size:1.05rem}"
    "@media (max-width:700px){.middle-up{display:none}}@media print{.middle-up{display:block}}"
    "section details figure{max-width:1040px}";

}  // namespace

std::string trend_html(const trend_result& r) {
  std::string out = fmt::format(
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">\n"
      "<title>Trend of the button gains: {}</title>\n<style>{}{}</style></head>\n<body><main>\n",
      html(runs_in_words(r.data)), page_style(), own_style);
  out += head_of_page(r) + list_of_changes(r) + time_line(r) + fold_outs(r, true) +
         list_of_others(r) + table_of_all(r) + fold_outs(r, false) + list_of_left_out(r.data) +
         how_judged(r);
  return out + fmt::format("</main>\n<script>{}</script></body></html>\n", page_script());
}

}  // namespace report
