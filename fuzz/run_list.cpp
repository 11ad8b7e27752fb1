// The list of `butngain many`, as a file and through a pipe: the same runs, each with a name of its
// own that can be a folder, and options with which a session begins.
#include "run_list.hpp"

#include <set>
#include <string>
#include <string_view>

#include "command_line.hpp"
#include "target.hpp"

namespace {

many::session_words words_of_sessions() {
  many::session_words words{
      .columns = {}, .start = driver::start_of_a_run(), .fault_of_run = driver::fault_of_run};
  for (const driver::run_option& option : driver::options_of_a_run()) {
    words.columns.push_back({option.name.substr(2), option.flag, option.several});
  }
  return words;
}

}  // namespace

void fuzz::read(std::string_view text) {
  static const many::session_words& session = *new many::session_words{words_of_sessions()};
  const auto [file, pipe] =
      both_ways(text, [](const std::string& path) { return many::read_run_list(path, session); });
  check(file.value.has_value() == pipe.value.has_value());
  if (!file) return check(same(file.why, pipe.why));
  check(!file->empty() && file->size() == pipe->size());
  std::set<std::string> names;
  for (std::size_t i = 0; i < file->size(); ++i) {
    const many::listed_run& run = (*file)[i];
    check(run.name == (*pipe)[i].name && run.options == (*pipe)[i].options);
    check(!run.name.empty() && run.name.size() < 256 && names.insert(run.name).second);
    check(run.name.find('/') == std::string::npos && run.name[0] != '.');
  }
}
