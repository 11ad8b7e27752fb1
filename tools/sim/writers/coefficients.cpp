#include "coefficients.hpp"

#include <array>
#include <optional>
#include <string_view>

#include "list_io.hpp"
#include "text_file.hpp"

namespace sim {
namespace {

constexpr std::array<std::string_view, 4> button_names{"BI", "BO", "TI", "TO"};

// 1..4; 0 for a word that is no button.
int button_called(std::string_view word) {
  for (std::size_t k = 0; k < button_names.size(); ++k) {
    if (button_names[k] == word) return static_cast<int>(k) + 1;
  }
  return 0;
}

}  // namespace

util::outcome<loaded_coefficients> read_coefficients(const std::string& path) {
  auto file = util::open_text_file(path);
  if (!file) return file.why;
  loaded_coefficients all;
  while (util::next_line(*file)) {
    util::list_record line;
    // A comment may stand behind a line's values as well as on a line of its own.
    util::start_record(line, file->line.substr(0, file->line.find('#')));
    std::string bpm, name, button, old, now;
    // Nothing but blanks or a comment.
    if (util::take(line, bpm) != util::taken::value) continue;
    for (std::string* word : {&name, &button, &old, &now}) {
      if (util::take(line, *word) != util::taken::value) {
        return util::line_fault(*file, "BPM, name, button, old and new coefficient");
      }
    }
    const int k = button_called(button);
    if (k == 0) return util::line_fault(*file, "a button BI, BO, TI or TO");
    // None was loaded; a BPM of which all four lines say so keeps what it has.
    if (now == "-") continue;
    const auto value = util::scan_real(now);
    // 0 cannot be: readings are divided by it. Below it stands for "not given yet".
    if (!value || *value == 0) return util::line_fault(*file, "a coefficient other than 0");
    double& at = all[name](k);
    if (at != 0) return util::line_fault(*file, "each button of a BPM once");
    at = *value;
  }
  if (file->trouble) return *file->trouble;
  // All four or none: a BPM that was loaded in part has gains that no session ever found.
  for (const auto& [name, coefficient] : all) {
    for (const double value : coefficient.item) {
      if (value == 0) return util::fault{"BPM " + name, path, "a coefficient of each button"};
    }
  }
  return all;
}

}  // namespace sim
