#include "output_directory.hpp"

#include <fmt/core.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

#include "fields.hpp"
#include "file_units.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"

namespace driver {
namespace {

struct date_and_time {
  std::string date;  // CCYYMMDD
  std::string time;  // hhmmss.sss
};

date_and_time local_now() {
  using std::chrono::system_clock;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  const auto part = now - system_clock::from_time_t(seconds);
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(part).count();
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 16> date{};
  std::array<char, 16> time{};
  std::strftime(date.data(), date.size(), "%Y%m%d", &local);
  std::strftime(time.data(), time.size(), "%H%M%S", &local);
  const std::string fraction = std::to_string(1000 + milliseconds).substr(1);
  return {date.data(), std::string{time.data()} + "." + fraction};
}

std::string name_of(const date_and_time& now) { return now.date + "_" + now.time.substr(0, 6); }

}  // namespace

std::string run_directory_name() { return name_of(local_now()); }

void create_output_directory(util::fixed_text<16>& directory) {
  const date_and_time now = local_now();
  const auto& [date, time] = now;

  // The field of the text " time = " is one column wide and keeps only its blank.
  std::string line;
  util::put_text(line, " date = ", 10);
  util::put_text(line, util::fixed_text<16>{date}.all().substr(0, 10), 10);
  util::put_text(line, " time = ", 1);
  util::put_text(line, util::fixed_text<16>{time}.all().substr(0, 10), 10);
  util::print_line(line);

  const std::string name = name_of(now);
  directory = name;
  // The name is told as it is, wherever it lies: readers of transcripts know its form.
  const std::string path = util::output_path(name);
  constexpr mode_t everybody = 0777;  // less what the umask takes away
  if (mkdir(path.c_str(), everybody) != 0) {
    // Nothing is said here. The first file that cannot be opened for want of the directory ends the
    // run, and "no such file" would send the reader looking for the wrong cause.
    if (errno != EEXIST) {
      util::note_unmade_directory(path, errno);
      return;
    }
    // Two runs of one second: the transcript keeps its silence, the user should know all the same.
    util::tell_line("the directory " + path +
                    " existed already: files of the run before are replaced");
    return;
  }
  std::string made;
  util::put_text(made, " create directory = ", 20);
  util::print_line(made + name);
}

}  // namespace driver
