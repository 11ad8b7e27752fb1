#include "run_numbers.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <optional>

#include "file_units.hpp"
#include "list_io.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "text.hpp"

namespace input {
namespace {

// The largest number in the index; nothing, and why, when there is none.
std::optional<std::int32_t> newest_run(const std::string& path, std::string& fault) {
  const util::unit_handle index{util::lunget()};
  if (const int failed = util::open_old(index.number(), path); failed != 0) {
    fault = fmt::format("no run index: {}: {}", path, util::system_text(failed));
    return {};
  }
  std::optional<std::int32_t> newest;
  std::string text;
  for (int line = 1; util::read_line(index.number(), text); ++line) {
    util::list_record record;
    util::start_record(record, std::string_view{text}.substr(0, text.find('#')));
    if (util::trim(record.text).empty()) continue;
    const auto run = util::take_int(record);
    if (!run || *run < 1) {
      fault = fmt::format("{}:{}: expected run number, date and time, found \"{}\"", path, line,
                          util::shown(util::trim(text)));
      return {};
    }
    newest = std::max(newest.value_or(*run), *run);
  }
  if (!newest) fault = fmt::format("no run in the run index {}", path);
  return newest;
}

}  // namespace

void number_to_true_number(std::string_view kind, std::int32_t number, std::int32_t& true_number,
                           bool& err, std::string& fault) {
  err = true;
  if (kind != "TBT") {
    fault = fmt::format("runs of kind \"{}\" are not recorded; expected TBT", kind);
    return;
  }
  if (number > 0) {
    true_number = number;
    err = false;
    return;
  }
  const auto newest = newest_run(util::fullfilename(site::run_index), fault);
  if (!newest) return;
  // In 64 bits: any number can be typed.
  const auto counted_back = std::int64_t{*newest} + number;
  if (counted_back < 1) {
    fault = fmt::format("{} counts back beyond the first run; the newest is {}", number, *newest);
    return;
  }
  true_number = static_cast<std::int32_t>(counted_back);
  err = false;
}

}  // namespace input
