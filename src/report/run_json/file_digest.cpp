#include "file_digest.hpp"

#include <fmt/format.h>
#include <nettle/sha2.h>
#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

namespace report {
namespace {

struct closes_file {
  void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};

}  // namespace

std::optional<input_file> digest_of(const std::string& path) {
  // Looked at before it is opened: opening a pipe would wait for whoever writes to it.
  struct stat info {};
  if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  // "e": a process that is started meanwhile does not inherit the file.
  const std::unique_ptr<std::FILE, closes_file> file{std::fopen(path.c_str(), "rbe")};
  if (!file) return {};
  input_file found{.path = path};
  sha256_ctx state{};
  sha256_init(&state);
  constexpr std::size_t block_size = std::size_t{1} << 16;  // [bytes]
  std::vector<std::uint8_t> block(block_size);
  while (const std::size_t held = std::fread(block.data(), 1, block.size(), file.get())) {
    sha256_update(&state, held, block.data());
    found.size += held;
  }
  if (std::ferror(file.get()) != 0) return {};
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
  sha256_digest(&state, digest.size(), digest.data());
  for (const std::uint8_t byte : digest) found.sha256 += fmt::format("{:02x}", byte);
  return found;
}

}  // namespace report
