#include "note.hpp"

#include "run_time.hpp"

namespace input {

void note(std::string_view what) { util::tell_line(what); }

void end_run(const util::fault& why) { util::run_time_error(util::line_of(why)); }

}  // namespace input
