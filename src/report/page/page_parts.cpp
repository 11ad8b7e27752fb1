#include "page_parts.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>
#include <vector>

#include "bpm_pictures.hpp"
#include "canvas.hpp"
#include "gains_csv.hpp"
#include "jobs.hpp"
#include "report_page.hpp"
#include "symbols.hpp"
#include "words.hpp"

namespace report {
namespace {

using chart::html;

// The verdict as a class of the style sheet.
// From the words of gains.csv, which are fixed; a class has no blanks.
std::string class_of(verdict word) {
  std::string name{text_of(word)};
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

// Numbers as people read them; nothing where a value is not known.
std::string number(double value, const char* format) {
  return std::isfinite(value) ? fmt::format(fmt::runtime(format), value) : std::string{};
}

// A cell whose column is sorted by the full number.
// The shown number is short, and equal for many BPMs: sorted by it, their order would be by chance.
// A value that is not known is an empty key, which the script sorts last.
std::string cell(double value, const char* format) {
  if (!std::isfinite(value)) return "<td data-v=\"\">–</td>";
  return fmt::format("<td data-v=\"{}\">{}</td>", value, number(value, format));
}

std::string text_cell(std::string_view text, std::string_view kind = "t") {
  return fmt::format("<td class=\"{}\">{}</td>", kind, html(text));
}

// By index: a name may hold anything, and may be empty.
std::string link_to(const bpm_row& row) {
  return fmt::format("<a href=\"#bpm-{}\">{}</a>", row.bpm, html(name_of(row)));
}

// A fact that is not known is left out: a label with nothing behind it looks like a fault.
void add_fact(std::string& out, std::string_view name, std::string_view value) {
  if (value.empty()) return;
  fmt::format_to(std::back_inserter(out), "<div><dt>{}</dt><dd>{}</dd></div>\n", html(name),
                 html(value));
}

std::string counts_list(const run_results& run) {
  std::string out = "<ul class=\"counts\">";
  for (const verdict word : verdicts_by_worth) {
    const std::size_t count = count_of(run, word);
    // "0 determined" is the news of a bad run; zeros of the others are not.
    if (count == 0 && word != verdict::determined) continue;
    fmt::format_to(std::back_inserter(out),
                   R"(<li class="{}"><b>{}</b><span class="word">{}</span></li>)", class_of(word),
                   count, text_of(word));
  }
  return out + "</ul>\n";
}

std::string names_of(const std::vector<input_file>& files) {
  std::string text;
  // A line: all of them, with sizes and digests, stand at the end of the page.
  constexpr std::size_t most = 4;
  for (std::size_t i = 0; i < std::min(files.size(), most); ++i) {
    text += (i == 0 ? "" : ", ") + files[i].path;
  }
  if (files.size() > most) text += fmt::format(" and {} more", files.size() - most);
  return text;
}

std::string table_head() {
  std::string out = R"(<thead><tr><th class="t">BPM</th><th>index</th><th class="t">verdict</th>)";
  for (std::size_t k = 0; k < 4; ++k) {
    fmt::format_to(std::back_inserter(out), "<th class=\"c{}\">t {}</th>", k + 1,
                   chart::button_names[k]);
  }
  return out +
         "<th>error<br>E</th><th>orbits</th><th>outliers</th><th>noise</th><th>fits<br>differ</th>"
         "<th>mean x<br>[mm]</th><th>mean y<br>[mm]</th><th>sd x<br>[mm]</th><th>sd y<br>[mm]</th>"
         "<th class=\"t\">reason</th></tr></thead>\n";
}

std::string table_row(const bpm_row& row) {
  std::string out = fmt::format(R"(<tr class="{}"><td class="t">{}</td><td>{}</td>)",
                                class_of(row.verdict), link_to(row), row.bpm);
  out += text_cell(text_of(row.verdict), "t word");
  // Decimals down to the errors one meets: gains to 1e-5, places to a micrometre.
  for (const double t : row.gain) out += cell(t, "{:.5f}");
  out += cell(row.error, "{:.1e}");
  out += fmt::format("<td>{}</td><td>{}</td>", row.orbits, row.outliers);
  out += cell(row.noise, "{:.1e}") + cell(row.fit_distance, "{:.1e}");
  out += cell(row.mean_x_mm, "{:.3f}") + cell(row.mean_y_mm, "{:.3f}");
  out += cell(row.sd_x_mm, "{:.3f}") + cell(row.sd_y_mm, "{:.3f}");
  return out + text_cell(reason_of(row), "t why") + "</tr>\n";
}

// The numbers of one BPM, a line a button.
std::string button_table(const bpm_row& row) {
  std::string out =
      "<div class=\"scroll\"><table><thead><tr><th class=\"t\">button</th><th>gain t</th>"
      "<th>noise σ</th><th>multiplier of the four fits</th><th>pedestal</th><th>its σ</th>";
  const four true_gain = true_gains_shown(row);
  // Only simulated data know it; a column of dashes would puzzle everybody else.
  const bool truth = std::isfinite(true_gain[0]);
  out += truth ? "<th>true t</th></tr></thead><tbody>" : "</tr></thead><tbody>";
  for (std::size_t k = 0; k < 4; ++k) {
    out += fmt::format("<tr><td class=\"t c{}\">{}</td>", k + 1, chart::button_names[k]);
    out += cell(row.gain[k], "{:.6f}") + cell(row.sigma[k], "{:.1e}");
    out += cell(row.fit_gain[k], "{:.6f}") + cell(row.pedestal[k], "{:.1e}");
    out += cell(row.pedestal_sigma[k], "{:.1e}");
    if (truth) out += cell(true_gain[k], "{:.6f}");
    out += "</tr>";
  }
  return out + "</tbody></table></div>\n";
}

// The line that is always seen says what decides whether to open it. The id is what links of table
// and list lead to.
std::string fold_out(const bpm_row& row, std::size_t most_points) {
  std::string rest = reason_of(row).empty() ? "" : fmt::format(": {}", reason_of(row));
  if (std::isfinite(row.error)) rest += fmt::format("; E {:.1e}", row.error);
  std::string out = fmt::format(
      "<details id=\"bpm-{}\" class=\"{}\"><summary><span class=\"name\">{}</span> "
      "<span class=\"word\">{}</span><span class=\"rest\">{}</span></summary><div>\n",
      row.bpm, class_of(row.verdict), html(name_of(row)), text_of(row.verdict), html(rest));
  // A fold-out all the same: links lead to it.
  if (row.verdict == verdict::not_fitted) {
    out += "<p>This BPM was not fitted: there is nothing to show.</p>\n";
  } else {
    out += fmt::format("<p>{} orbits, {} used, {} left out.</p>\n", row.orbits, row.orbits_used,
                       row.outliers);
    out += button_table(row);
    out += "<div class=\"figures\">\n" + bpm_pictures(row, most_points) + "</div>\n";
  }
  return out + "</div></details>\n";
}

std::string file_list(std::string_view title, const std::vector<input_file>& files) {
  if (files.empty()) return {};
  std::string out = fmt::format(
      "<h3>{}</h3><div class=\"scroll\"><table><thead><tr>"
      "<th class=\"t\">file</th><th>bytes</th><th class=\"t\">SHA-256"
      "</th></tr></thead><tbody>",
      title);
  for (const input_file& f : files) {
    out += fmt::format("<tr>{}<td>{}</td>{}</tr>", text_cell(f.path, "t path"), f.size,
                       text_cell(f.sha256, "t path"));
  }
  return out + "</tbody></table></div>\n";
}

}  // namespace

std::string head_of(const run_results& run) {
  // The colour at the side says the sentence to those who only glance.
  const std::size_t good = count_of(run, verdict::determined);
  const char* kind = good == 0 ? " none" : (good < run.bpm.size() ? " some" : "");
  std::string out =
      fmt::format("<header><h1>Button gains: {}</h1>\n<p class=\"verdict{}\">{}</p>\n",
                  html(run.info.title), kind, html(first_sentence(run)));
  if (const std::string ended = how_it_ended(run.info); !ended.empty()) {
    out += fmt::format("<p class=\"ended\">{}</p>\n", html(ended));
  }
  // When, where and by which command stands in run.json: the same readings give the same page.
  out += counts_list(run) + "<dl class=\"facts\">";
  add_fact(out, "inputs", names_of(run.info.inputs));
  add_fact(out, "tables", names_of(run.info.tables));
  add_fact(out, "version",
           run.info.version + (run.info.build.empty() ? "" : ", ") + run.info.build);
  return out + "</dl></header>\n";
}

std::string look_list(const run_results& run) {
  const auto groups = bpms_to_look_at(run);
  // No headline over an empty list: it would have to be read to learn that there is nothing.
  if (groups.empty()) return {};
  std::string out = "<section><h2>BPMs that need a look</h2>\n<ul class=\"look\">\n";
  // By reason, not by BPM: one cause is one line with all its names.
  for (const look_group& g : groups) {
    std::string names;
    for (const bpm_row* row : g.bpm) names += (names.empty() ? "" : ", ") + link_to(*row);
    out += fmt::format("<li class=\"{}\"><span class=\"word\">{}</span>{} {} <br>{}</li>\n",
                       class_of(g.verdict), text_of(g.verdict), g.reason.empty() ? "" : ":",
                       html(g.reason), names);
  }
  return out + "</ul></section>\n";
}

std::string table_of(const run_results& run) {
  std::string out =
      "<section><h2>All BPMs</h2>\n<p>Button gains t: what each button makes of its signal, their "
      "product 1. E is the error of a ratio of two of them, all in all; noise and errors are in "
      "parts of the signal.</p>\n<div class=\"scroll\"><table class=\"sortable\">" +
      table_head() + "<tbody>\n";
  for (const bpm_row& row : run.bpm) out += table_row(row);
  return out + "</tbody></table></div></section>\n";
}

void append_fold_outs(std::string& out, const run_results& run, unsigned threads) {
  // A few points less a BPM where there are many: the page must stay fit for a mail.
  // 500 points a cloud up to 80 BPMs; from 667 on 60, with which a cloud still has a shape.
  constexpr std::size_t points_of_a_page = 40000, least = 60, most = 500;
  const std::size_t points =
      std::clamp(points_of_a_page / std::max<std::size_t>(run.bpm.size(), 1), least, most);
  out += "<section><h2>BPM by BPM</h2>\n";
  std::vector<std::string> made(run.bpm.size());
  const auto make = [&](std::size_t i) {
    made[i] = fold_out(run.bpm[i], points);
    return made[i].size();
  };
  const auto take = [&](std::size_t i) { out += std::exchange(made[i], {}); };
  util::make_in_order({.count = made.size(), .make = make, .take = take, .stop = {}}, threads);
  out += "</section>\n";
}

std::string how_made(const run_results& run) {
  const run_info& info = run.info;
  std::string out =
      "<section><h2>How it was made</h2>\n<details><summary>Answers and files"
      "</summary><div>\n";
  // A run that ended before its first question has none.
  if (!info.dialog.empty()) {
    out += "<h3>Questions and answers</h3><div class=\"scroll\"><table><tbody>";
    for (const answered& a : info.dialog) {
      out += fmt::format("<tr>{}{}</tr>", text_cell(a.question), text_cell(a.answer));
    }
    out += "</tbody></table></div>\n";
  }
  out += file_list("Files read", info.inputs) + file_list("Tables", info.tables);
  return out +
         "<p>When, where and by which command: <code>run.json</code> beside this page.</p>"
         "</div></details></section>\n";
}

}  // namespace report
