#include "command_file.hpp"

#include <array>
#include <string_view>

#include "list_io.hpp"
#include "namelist.hpp"
#include "text.hpp"
#include "text_file.hpp"
#include "turn_data.hpp"

namespace input {
namespace {

constexpr std::string_view group = "bpm_gain_anal_params";

// Whether a line of a list file is "key = value": cu1, cu2, dcu, fit_cal, corstr_cal and others,
// which describe how the list was measured.
bool is_key(std::string_view line) {
  const std::size_t equals = line.find('=');
  return equals != std::string_view::npos && !util::trim(line.substr(0, equals)).empty();
}

// Takes a line "orbit1 orbit2 ratio error". Ratio and error are checked and not used: a line
// without them is a line of something else.
void take_pair(const util::text_file& file, orbit_pairs& list) {
  util::list_record record;
  util::start_record(record, file.line);
  const auto orbit1 = util::take_int(record);
  const auto orbit2 = util::take_int(record);
  const auto ratio = util::take_real(record);
  const auto error = util::take_real(record);
  if (!orbit1 || !orbit2 || !ratio || !error) {
    list.left_out.push_back(
        util::line_fault(file, "\"orbit1 orbit2 ratio error\", key = value or a comment"));
    return;
  }
  // Both orbits of a pair are readings like any other; what their difference shows is not used.
  for (const std::int32_t orbit : {*orbit1, *orbit2}) {
    const auto place = static_cast<long long>(list.orbits.size()) + 1;
    if (place > max_listed) {
      list.fault = bounds_fault("orbit", place, 1, max_listed);
      return;
    }
    list.orbits.push_back(orbit);
  }
}

}  // namespace

util::outcome<command_kind> kind_of_command(const std::string& path) {
  auto file = util::open_text_file(path);
  if (!file) return file.why;
  if (!util::next_line(*file) && file->trouble) return *file->trouble;
  // In any letter case, as names in a group are.
  const std::string begin = "&" + util::upcase(group);
  const bool begins = util::upcase(file->line).find(begin) != std::string::npos;
  return begins ? command_kind::group : command_kind::list;
}

util::status read_command_group(const std::string& path, command& wanted) {
  // Before the file is opened: a second reading, too, offers only what it names itself.
  wanted.fit_bpm_idx.fill(-1);
  auto file = util::open_text_file(path);
  if (!file) return file.why;
  const std::array members{
      namelist::array("fit_bpm_idx", wanted.fit_bpm_idx),
      namelist::variable("read_current_from_butns_file", wanted.read_current_from_butns_file),
      namelist::variable("sigma_cutoff", wanted.sigma_cutoff),
      namelist::variable("chisq_cutoff", wanted.chisq_cutoff),
      namelist::array("orbit", wanted.orbit)};
  return namelist::read_group(*file, group, members);
}

orbit_pairs read_orbit_pairs(const std::string& path) {
  orbit_pairs list;
  auto file = util::open_text_file(path);
  if (!file) {
    list.fault = file.why;
    return list;
  }
  while (!list.fault && util::next_line(*file)) {
    const std::string_view line = util::trim(file->line);
    // Keys and comments may stand anywhere between the pairs.
    if (line.empty() || line[0] == '!' || line[0] == '#' || is_key(line)) continue;
    take_pair(*file, list);
  }
  if (!list.fault) list.fault = file->trouble;
  return list;
}

}  // namespace input
