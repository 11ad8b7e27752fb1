#include "target.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace fuzz {
namespace {

constexpr int first_handle = 700;  // above all that fuzzer and readers open for themselves
constexpr std::size_t handles = 4;

int memory_of(std::size_t number) {
  static std::array<int, handles> made{-1, -1, -1, -1};
  int& file = made.at(number);
  if (file < 0) file = memfd_create("input", MFD_CLOEXEC);
  check(file >= 0);
  return file;
}

void put(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = write(file, text.data(), text.size());
    check(n > 0);
    text.remove_prefix(static_cast<std::size_t>(n));
  }
}

// Fifteen packets, each of which a read gives by itself, for a pipe has room for sixteen: what stands
// in two of them comes in two reads.
void put_in_pieces(int pipe, std::string_view text) {
  const std::size_t piece = text.size() / 15 + 1;
  check(piece <= 4096);
  for (std::size_t at = 0; at < text.size(); at += piece) put(pipe, text.substr(at, piece));
}

}  // namespace

void check(bool holds) {
  if (!holds) std::abort();
}

const std::string& held(std::string_view text, way by, int number) {
  const int handle = first_handle + number;
  const auto place = static_cast<std::size_t>(number);
  if (by == way::file) {
    const int file = memory_of(place);
    check(ftruncate(file, 0) == 0 && lseek(file, 0, SEEK_SET) == 0);
    put(file, text);
    check(dup2(file, handle) == handle);
  } else {
    std::array<int, 2> ends{};
    check(pipe2(ends.data(), O_CLOEXEC | O_DIRECT) == 0);
    put_in_pieces(ends[1], text);
    close(ends[1]);
    check(dup2(ends[0], handle) == handle);
    close(ends[0]);
  }
  static const std::array<std::string, handles> paths{"/proc/self/fd/700", "/proc/self/fd/701",
                                                      "/proc/self/fd/702", "/proc/self/fd/703"};
  return paths.at(place);
}

bool same(const util::fault& a, const util::fault& b) {
  return util::line_of(a) == util::line_of(b);
}

bool same(const util::status& a, const util::status& b) {
  return a.has_value() == b.has_value() && (!a || same(*a, *b));
}

bool same_bytes(const void* a, const void* b, std::size_t size) {
  return size == 0 || std::memcmp(a, b, size) == 0;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::read({reinterpret_cast<const char*>(data), size});
  return 0;
}
