#include "scratch.hpp"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "file_units.hpp"

namespace scratch {

namespace fs = std::filesystem;

directory::directory() : owner_{getpid()} {
  std::string name = (fs::temp_directory_path() / "butngain_XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) std::abort();
  path_ = name;
}

directory::~directory() {
  std::error_code ignored;
  if (getpid() == owner_) fs::remove_all(path_, ignored);
}

std::string directory::file(std::string_view name, std::string_view text) const {
  write(path_ / name, text);
  return *this / name;
}

workplace::workplace() : before_{fs::current_path()} {
  fs::current_path(path());
  setenv("KOVR_ONLINE", path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): one thread
}

workplace::~workplace() {
  util::close_all_units(false);
  unsetenv("KOVR_ONLINE");  // NOLINT(concurrency-mt-unsafe): one thread
  std::error_code ignored;
  fs::current_path(before_, ignored);
}

unopenable::unopenable(const std::string& name) : socket_{socket(AF_UNIX, SOCK_STREAM, 0)} {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (name.size() >= sizeof address.sun_path) std::abort();
  name.copy(address.sun_path, name.size());
  unlink(name.c_str());
  if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) std::abort();
}

unopenable::~unopenable() { close(socket_); }

void write(const fs::path& name, std::string_view text) {
  if (name.has_parent_path()) fs::create_directories(name.parent_path());
  std::ofstream{name, std::ios::binary} << text;
}

std::string content(const fs::path& name) {
  std::ifstream file{name, std::ios::binary};
  return {std::istreambuf_iterator<char>{file}, {}};
}

std::vector<std::string> lines_of(const fs::path& name) {
  std::ifstream file{name};
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

void answer(std::string_view text) {
  // Unlinked once it is open: a test may count what is in its place.
  const directory apart;
  if (std::freopen(apart.file("answers", text).c_str(), "r", stdin) == nullptr) std::abort();
}

void show_output() { dup2(STDERR_FILENO, STDOUT_FILENO); }

}  // namespace scratch
