#include "run_index.hpp"

#include <algorithm>
#include <optional>
#include <string_view>

#include "list_io.hpp"
#include "text.hpp"
#include "text_file.hpp"

namespace input {

util::outcome<std::int32_t> newest_run(const std::string& path) {
  auto index = util::open_text_file(path);
  if (!index) return util::fault{index.why.what, "no run index: " + path, {}};
  // The largest number, not the last line: runs can be recorded again, and lists be merged.
  std::optional<std::int32_t> newest;
  while (util::next_line(*index)) {
    util::list_record record;
    util::start_record(record, std::string_view{index->line}.substr(0, index->line.find('#')));
    if (util::trim(record.text).empty()) continue;
    // Date and time are for people: only the number counts.
    const auto run = util::take_int(record);
    // One line that cannot be read makes the whole index useless: it may be the newest run.
    if (!run || *run < 1) return util::line_fault(*index, "run number, date and time");
    newest = std::max(newest.value_or(*run), *run);
  }
  if (index->trouble) return *index->trouble;
  if (!newest) return util::fault{"no run in the run index " + path, {}, {}};
  return *newest;
}

}  // namespace input
