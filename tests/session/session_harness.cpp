#include "session_harness.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "list_io.hpp"

namespace session {
namespace {

namespace fs = std::filesystem;

struct pipe_pair {
  int read_end = -1;
  int write_end = -1;
};

pipe_pair make_pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
  return {ends[0], ends[1]};
}

[[noreturn]] void become(const std::vector<std::string>& command, const fs::path& directory,
                         const settings& how, int in, int out, int err) {
  if (chdir(directory.c_str()) != 0) _exit(126);
  dup2(in, STDIN_FILENO);
  dup2(err, STDERR_FILENO);
  if (!how.standard_output.empty()) {
    out = open(how.standard_output.c_str(), O_WRONLY | O_CREAT, 0666);
  }
  dup2(out, STDOUT_FILENO);
  unsetenv("DISPLAY");
  for (const auto& [name, value] : how.environment) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  std::perror(arguments[0]);
  _exit(127);
}

// Feeds the input and collects both outputs until both are closed or time is over.
void converse(outcome& result, std::string_view input, int in, int out, int err, int seconds) {
  const auto stop = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  std::array<pollfd, 3> watched{{{in, POLLOUT, 0}, {out, POLLIN, 0}, {err, POLLIN, 0}}};
  const auto finish = [](pollfd& p) {
    close(p.fd);
    p.fd = -1;
  };
  if (input.empty()) finish(watched[0]);
  while (watched[1].fd >= 0 || watched[2].fd >= 0) {
    if (std::chrono::steady_clock::now() > stop) {
      result.timed_out = true;
      break;
    }
    poll(watched.data(), watched.size(), 100);
    if (watched[0].fd >= 0 && watched[0].revents != 0) {
      const ssize_t n = write(watched[0].fd, input.data(), input.size());
      if (n > 0) input.remove_prefix(static_cast<std::size_t>(n));
      if (n < 0 || input.empty()) finish(watched[0]);
    }
    for (std::size_t i = 1; i < 3; ++i) {
      if (watched[i].fd < 0 || watched[i].revents == 0) continue;
      std::array<char, 65536> block{};
      const ssize_t n = read(watched[i].fd, block.data(), block.size());
      if (n <= 0) {
        finish(watched[i]);
      } else {
        (i == 1 ? result.out : result.err).append(block.data(), static_cast<std::size_t>(n));
      }
    }
  }
  for (pollfd& p : watched) {
    if (p.fd >= 0) finish(p);
  }
}

}  // namespace

fs::path scratch::run_directory() const {
  fs::path newest;
  for (const auto& entry : fs::directory_iterator(path())) {
    const std::string name = entry.path().filename().string();
    const bool dated = name.size() == 15 && name[8] == '_' && entry.is_directory();
    if (dated && entry.path() > newest) newest = entry.path();
  }
  return newest;
}

outcome run(const std::vector<std::string>& command, const fs::path& directory,
            std::string_view input, const settings& how) {
  std::signal(SIGPIPE, SIG_IGN);
  const pipe_pair in = make_pipe();
  const pipe_pair out = make_pipe();
  const pipe_pair err = make_pipe();
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGPIPE, SIG_DFL);
    become(command, directory, how, in.read_end, out.write_end, err.write_end);
  }
  close(in.read_end);
  close(out.write_end);
  close(err.write_end);
  outcome result;
  converse(result, input, in.write_end, out.read_end, err.read_end, how.seconds);
  if (result.timed_out) kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

outcome butngain(const fs::path& directory, const std::vector<std::string>& answers,
                 const settings& how) {
  std::string input;
  for (const std::string& answer : answers) input += answer + "\n";
  std::vector<std::string> command{BUTNGAIN_BINARY};
  command.insert(command.end(), how.arguments.begin(), how.arguments.end());
  outcome result = run(command, directory, input, how);
  // Sessions of one test fall into one second and share its directory; a test of its own looks at
  // the line that says so, all others would see it or not as the clock goes.
  if (const std::size_t end = result.err.find('\n');
      result.err.substr(0, end).find(" existed already: ") != std::string::npos) {
    result.err.erase(0, end + 1);
  }
  return result;
}

outcome bpmsim(const fs::path& directory, const std::vector<std::string>& arguments,
               const settings& how) {
  std::vector<std::string> command{BPMSIM_BINARY};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return run(command, directory, "", how);
}

void simulate(const fs::path& directory, const std::string& words, const settings& how) {
  std::istringstream in{words};
  const outcome made = bpmsim(directory, {std::istream_iterator<std::string>{in}, {}}, how);
  if (made.status != 0) throw std::runtime_error("bpmsim " + words + ": " + made.err);
}

settings at_site(const fs::path& online) {
  settings how;
  how.environment["KOVR_ONLINE"] = online.string();
  return how;
}

std::string read_file(const fs::path& path) { return ::scratch::content(path); }

void write_file(const fs::path& path, std::string_view content) { ::scratch::write(path, content); }

std::vector<std::string> lines_of(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

std::string without_line_of_files(std::string_view err) {
  std::string rest;
  for (const std::string& line : lines_of(err)) {
    if (!contains(line, "; all results: ")) rest += line + "\n";
  }
  return rest;
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

std::vector<double> numbers_of(std::string_view line) {
  std::vector<double> numbers;
  std::istringstream words{std::string{line}};
  for (std::string word; words >> word;) {
    if (const auto number = util::scan_real(word)) numbers.push_back(*number);
  }
  return numbers;
}

}  // namespace session
