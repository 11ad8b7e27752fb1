#include "gains_load.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <map>

#include "csv_text.hpp"
#include "gains_csv.hpp"
#include "text.hpp"

namespace report {
namespace {

constexpr std::array<std::string_view, 4> button_names{"BI", "BO", "TI", "TO"};
// What the list of the position tables has room for; its first is 1.
constexpr int last_listed_bpm = 120;

// Words are separated by blanks in both files.
std::string one_word(const std::string& name) {
  std::string word = field_text(name);
  std::replace(word.begin(), word.end(), ' ', '_');
  return word.empty() ? "-" : word;
}

bool has_old(const bpm_row& row) { return std::isfinite(row.coefficient[0]); }

// What a new coefficient is compared with: 1 where the data name none.
double old_of(const bpm_row& row, std::size_t k) { return has_old(row) ? row.coefficient[k] : 1; }

// Why the old coefficients stay, behind the line.
std::string why_kept(const bpm_row& row) {
  std::string why{text_of(row.verdict)};
  if (!row.reason.empty()) why += ": " + row.reason;
  // What keeps the old ones although the BPM is determined: its verdict would read as "load it".
  if (!row.stays.empty()) why = row.stays;
  return field_text(why);
}

int count_loaded(const std::vector<bpm_row>& rows) {
  return static_cast<int>(std::count_if(rows.begin(), rows.end(), is_loaded));
}

// What is in both files, for the person who opens them.
std::string first_lines(const std::vector<bpm_row>& rows, const std::string& about) {
  return fmt::format("# {}\n# {} of {} BPMs determined: {}\n", util::shown(about),
                     count_loaded(rows), rows.size(), util::shown(what_to_load(rows)));
}

}  // namespace

std::string what_to_load(const std::vector<bpm_row>& rows) {
  const int loaded = count_loaded(rows);
  if (loaded == 0) return "nothing to load";
  double largest = 0;
  std::string where;
  for (const bpm_row& row : rows) {
    for (std::size_t k = 0; is_loaded(row) && k < button_names.size(); ++k) {
      const double change = row.new_coefficient[k] / old_of(row, k) - 1;
      // The first is taken whatever it is: gains that did not change have a place to be named too.
      if (!where.empty() && std::abs(change) <= std::abs(largest)) continue;
      largest = change;
      where = fmt::format("{} {}", row.name, button_names[k]);
    }
  }
  return fmt::format("gains of {} BPM{} to load, largest change {:+.2g} % ({})", loaded,
                     loaded == 1 ? "" : "s", 100 * largest, where);
}

four new_coefficients(const four& old, const four& gain, bool divided) {
  four now = old;
  double product = 1;
  for (double& c : now) {
    if (c == 0) c = 1;  // exactly: the readers divide by 1 then
    product *= std::abs(c);
  }
  // Products of sizes: one negative coefficient would leave no fourth root.
  const double mean = std::sqrt(std::sqrt(product));
  for (std::size_t k = 0; k < now.size(); ++k) {
    // A sign that the electronics have is not the fit's, which takes sizes of signals.
    now[k] = (divided ? now[k] : std::copysign(mean, now[k])) * gain[k];
  }
  return now;
}

bool is_loaded(const bpm_row& row) {
  return std::all_of(row.new_coefficient.begin(), row.new_coefficient.end(),
                     [](double c) { return std::isfinite(c); });
}

std::string gains_load_text(const std::vector<bpm_row>& rows, const std::string& about) {
  std::string text =
      "# gains.load: gain coefficients of the electronics, by which they divide readings\n" +
      first_lines(rows, about) +
      "# Load these or button_coeff.dat, not both. change is new/old - 1; error that of a gain\n"
      "# ratio. 'load' or 'keep' says what to do; what stands behind # says why.\n";
  text += fmt::format("#{:>4} {:<12} {:<6} {:>12} {:>12} {:>9} {:>9}  {}\n", "bpm", "name",
                      "button", "old", "new", "change_%", "error_%", "do");
  for (const bpm_row& row : rows) {
    const bool loaded = is_loaded(row);
    for (std::size_t k = 0; k < button_names.size(); ++k) {
      const double old = old_of(row, k);
      text += fmt::format("{:>5} {:<12} {:<6} ", row.bpm, one_word(row.name), button_names[k]);
      if (loaded) {
        // Seven digits: finer than any error, and still read by eye.
        const double now = row.new_coefficient[k];
        text += fmt::format("{:>12.7g} {:>12.7g} {:>+9.4f} {:>9.4f}  load\n", old, now,
                            100 * (now / old - 1), 100 * row.error);
      } else {
        // A 1 in the place of what nobody told would be loaded by somebody.
        const std::string kept = has_old(row) ? fmt::format("{:.7g}", old) : "-";
        text += fmt::format("{0:>12} {0:>12} {1:>+9.4f} {2:>9}  keep  # {3}", kept, 0.0, "-",
                            why_kept(row));
        // Right within their error, which may be good enough for somebody who decides so.
        // Behind the #, where no program takes them for a column.
        if (row.verdict == verdict::weak && std::isfinite(row.gain[k])) {
          text += fmt::format("; gain {:.5f} found, error {:.2g} %", row.gain[k], 100 * row.error);
        }
        text += '\n';
      }
    }
  }
  return text;
}

std::string button_coeff_text(const std::vector<bpm_row>& rows,
                              const std::vector<listed_multiplier>& listed,
                              const std::string& about) {
  std::map<int, four> factor;
  for (const listed_multiplier& at : listed) factor[at.bpm] = at.factor;
  std::map<int, std::string> remark;
  std::string outside;
  for (const bpm_row& row : rows) {
    const std::string name = field_text(row.name);
    if (!is_loaded(row)) {
      remark[row.bpm] = fmt::format("{}, as before: {}", name, why_kept(row));
      continue;
    }
    if (row.bpm < 1 || row.bpm > last_listed_bpm) {
      // The list's reader refuses such a number, and with it the whole file.
      outside += fmt::format("# BPM {} ({}) has no place in this list\n", row.bpm, name);
      continue;
    }
    for (std::size_t k = 0; k < 4; ++k) {
      factor[row.bpm][k] = old_of(row, k) / row.new_coefficient[k];
    }
    remark[row.bpm] = name;
  }
  std::string text =
      "nonlin_bpm_coeff 1                  # button_coeff.dat: factors of BI, BO, TI, TO\n" +
      first_lines(rows, about) + "# Load these or gains.load, not both.\n" + outside;
  // What is known to be listed now goes in again: a BPM that a list leaves out counts as 1.
  for (const auto& [bpm, f] : factor) {
    text += fmt::format("{:>3} {:.9f} {:.9f} {:.9f} {:.9f}", bpm, f[0], f[1], f[2], f[3]);
    text += remark.contains(bpm) ? fmt::format("  # {}\n", remark[bpm]) : "\n";
    remark.erase(bpm);
  }
  // Not loaded, and not known to be listed: a line in use would claim a factor that nobody found.
  for (const auto& [bpm, why] : remark) text += fmt::format("# {:>3} 1 1 1 1  {}\n", bpm, why);
  return text;
}

}  // namespace report
