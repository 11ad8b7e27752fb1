#include "plot_gains.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "apart.hpp"
#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "quick_plot.hpp"
#include "run_time.hpp"
#include "terminal.hpp"
#include "text.hpp"

namespace driver {
namespace {

using namespace quick_plot;

// Size of the window [points]: a landscape letter page, as the files have.
constexpr double xlen = 792;
constexpr double ylen = 612;

constexpr std::string_view prompt = "Postscript (p) or Gif (g) ? @";

// What the plot shows.
struct plotted {
  double bpm_max, bpm_min;
  const gains_plotted& bpm_gain;
  const indices_plotted& bpm_mat;
  int j;
  std::string title;
};

// Between neighbouring BPMs; they come in ascending order.
double least_distance(const plotted& plot) {
  double least = plot.bpm_max - plot.bpm_min;
  for (int point = 2; point <= plot.j; ++point) {
    least = std::min(least, plot.bpm_mat(1, point) - plot.bpm_mat(1, point - 1));
  }
  // Indices are whole numbers; a single BPM, or none, still needs a width.
  return std::max(least, 1.0);
}

// Draws the whole plot on a device. Returns why it cannot, empty when it is drawn.
std::string draw(const plotted& plot, std::string_view device, const std::string& name) {
  std::string reason = qp_open_page(device, name, xlen, ylen, "POINTS");
  if (!reason.empty()) return reason;
  qp_set_page_border(0.02, 0.02, 0.04, 0.04, "%PAGE");
  qp_set_margin(0.02, 0.02, 0.015, 0.015, "%PAGE");
  qp_set_box(1, 1, 1, 1);
  qp_set_axis_counts("X", least_distance(plot));
  // Between four and eight divisions: fewer are hard to read between, more crowd their numbers.
  qp_calc_and_set_axis("X", plot.bpm_min, plot.bpm_max, 4, 8, "GENERAL");
  // Fixed, so that two plots can be laid side by side; a gain beyond it is a wedge on the frame.
  qp_calc_and_set_axis("Y", 0.8, 1.2, 4, 8, "GENERAL");
  qp_draw_axes("BPM", "gain", plot.title);
  qp_set_symbol_attrib("plus", 10, "red");
  if (plot.j > 0) {
    qp_draw_level(1.0);
  } else {
    qp_draw_note("no BPM fitted");
  }
  for (int point = 1; point <= plot.j; ++point) {
    // The four buttons of a BPM as one stroke: its length shows how far they disagree.
    std::array<double, 4> bpms{};
    std::array<double, 4> gains{};
    for (int k = 1; k <= 4; ++k) {
      bpms.at(static_cast<std::size_t>(k) - 1) = plot.bpm_mat(k, point);
      gains.at(static_cast<std::size_t>(k) - 1) = plot.bpm_gain(k, point);
    }
    qp_draw_data(bpms, gains, true, 1);
  }
  return qp_close_page();
}

// A copy, drawn in a process of its own.
std::string draw_apart(const plotted& plot, std::string_view device, const std::string& name) {
  util::apart work;
  if (util::begin_apart(work)) util::end_apart(work, draw(plot, device, name));
  return util::wait_apart(work);
}

void show(const plotted& plot) {
  const std::string reason = draw(plot, "X", "butngain: " + plot.title);
  if (!reason.empty()) util::print_line(fmt::format(" no screen plot: {}", reason));
}

// Whoever reads the transcript later wants to find the file, wherever they stand.
void tell_copy(const std::string& name) {
  std::error_code fault;
  const std::string full = std::filesystem::absolute(name, fault).lexically_normal().string();
  util::tell_line("plot written to " + (fault ? name : full));
}

// Makes a copy; returns whether there is one.
bool copy(const plotted& plot, std::string_view device, const std::string& name,
          const std::string& run_directory) {
  // With --output the copy lies there too, also where its name begins with a slash.
  const std::string path = util::output_path(util::output_name(name));
  const std::string reason = draw_apart(plot, device, path);
  if (reason.empty()) {
    tell_copy(path);
    return true;
  }
  // The label of a synthetic series begins with "/", and few may write to the root folder.
  if (path.starts_with('/') && util::output_base.empty()) {
    const std::string second = std::string{util::trim_right(run_directory)} + name;
    const std::string second_reason = draw_apart(plot, device, second);
    const std::string outcome = second_reason.empty()
                                    ? fmt::format("written to {}", second)
                                    : fmt::format("nor {}: {}", second, second_reason);
    util::print_line(fmt::format(" cannot write {}: {}; {}", name, reason, outcome));
    if (second_reason.empty()) tell_copy(second);
    return second_reason.empty();
  }
  util::print_line(fmt::format(" cannot write {}: {}", path, reason));
  return false;
}

// The answer as it counts: three characters, upper case.
std::string copy_wanted() {
  util::print_line(" Postscript (p) or Gif (g) ");
  std::string answer = "no";
  if (!util::strget(prompt, answer)) {
    qp_close_window();
    util::end_of_input_error(prompt.substr(0, prompt.size() - 1));
  }
  return util::upcase(util::trim(answer).substr(0, 3));
}

}  // namespace

void plot_gains(double bpm_max, double bpm_min, const gains_plotted& bpm_gain,
                const indices_plotted& bpm_mat, int j, const std::string& run_directory,
                const std::string& title) {
  if (j > most_plotted) {
    util::tell_line(
        fmt::format("the results of all {} BPMs are written to {}; only the plot, which has room "
                    "for {}, cannot "
                    "be made",
                    j, util::trim_right(run_directory), most_plotted));
    util::subscript_error("bpm_gain", j, 0, most_plotted, 2);
  }
  const std::string out_file{gain_fit_mod::in_file_0.trimmed()};
  const plotted plot{bpm_max, bpm_min, bpm_gain, bpm_mat, j, title};
  // Up to and including the first "."; nothing when there is none.
  const std::string stem = out_file.substr(0, out_file.find('.') + 1);
  show(plot);
  for (;;) {
    const std::string ans = copy_wanted();
    if (ans.find('N') != std::string::npos) break;
    // Both letters: GIF, the later test, wins.
    if (ans.find('G') != std::string::npos) {
      if (copy(plot, "GIF-L", stem + "gif", run_directory)) break;
    } else if (ans.find('P') != std::string::npos) {
      if (copy(plot, "PS-L", stem + "ps", run_directory)) break;
    } else {
      show(plot);
    }
  }
  qp_close_window();
}

}  // namespace driver
