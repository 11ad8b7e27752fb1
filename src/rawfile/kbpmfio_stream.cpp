#include "kbpmfio_stream.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "run_time.hpp"
#include "text.hpp"

namespace rawfile {
namespace {

// Moves what is left to the front of the block and reads on behind it. What is left is less than a
// line, so little is moved; in return every line lies in one piece and needs no copy.
void refill(kbpmfio_stream& stream) {
  const std::size_t left = stream.filled - stream.next;
  std::memmove(stream.block.data(), stream.block.data() + stream.next, left);
  stream.block_start += static_cast<std::int64_t>(stream.next);
  stream.next = 0;
  stream.filled = left;
  ssize_t got = 0;
  do {
    got = read(stream.fd, stream.block.data() + left, stream.block.size() - left);
  } while (got < 0 && errno == EINTR);
  if (got > 0) {
    stream.filled += static_cast<std::size_t>(got);
    return;
  }
  // To whoever takes lines a read that fails is the end of the file; the loader asks for the fault.
  stream.at_end = true;
  if (got < 0) stream.failure = errno;
}

}  // namespace

// Without a look at what was written: whoever cares for it has called close().
kbpmfio_stream::~kbpmfio_stream() {
  if (fd >= 0) ::close(fd);
  if (out != nullptr) static_cast<void>(std::fclose(out));
}

void closes_stream::operator()(kbpmfio_stream* stream) const { delete stream; }

kbpmfio_output::kbpmfio_output() : stream(new kbpmfio_stream) {}

util::status open_for_reading(kbpmfio_stream& stream, const std::string& path,
                              std::size_t block_size) {
  stream.fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (stream.fd < 0) return util::fault{util::system_text(errno), util::shown(path), {}};
  stream.path = path;
  // A block of one line and more: next_line finds a whole line in it or none at all.
  stream.block.resize(std::max(block_size, max_line));
  return std::nullopt;
}

void open_text(kbpmfio_stream& stream, std::string_view text) {
  stream.block.assign(text.begin(), text.end());
  stream.filled = text.size();
  stream.at_end = true;  // the text is all there is: nothing is ever read from a file
}

util::status open_for_writing(kbpmfio_stream& stream, const std::string& path) {
  stream.out = std::fopen(path.c_str(), "we");
  if (stream.out == nullptr) return util::fault{util::system_text(errno), util::shown(path), {}};
  stream.path = path;
  return std::nullopt;
}

std::optional<std::int64_t> size_of(const kbpmfio_stream& stream) {
  struct stat status {};
  if (stream.fd < 0) return static_cast<std::int64_t>(stream.filled);
  // Of anything but a regular file the size says nothing about what can be read.
  if (fstat(stream.fd, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return status.st_size;
}

std::string_view look_ahead(kbpmfio_stream& stream, std::size_t least) {
  // Until it is enough: a pipe gives what it has at hand, which may be less than was asked for.
  while (stream.filled - stream.next < least && !stream.at_end) refill(stream);
  return {stream.block.data() + stream.next, stream.filled - stream.next};
}

std::optional<std::string_view> next_line(kbpmfio_stream& stream) {
  // First in what is at hand, without the calls that more text takes.
  std::string_view ahead{stream.block.data() + stream.next, stream.filled - stream.next};
  std::size_t line_end = ahead.substr(0, max_line).find('\n');
  if (line_end == std::string_view::npos && ahead.size() < max_line) {
    ahead = look_ahead(stream, max_line);
    line_end = ahead.substr(0, max_line).find('\n');
  }
  if (ahead.empty()) return std::nullopt;
  const std::size_t length =
      line_end == std::string_view::npos ? std::min(ahead.size(), max_line) : line_end + 1;
  stream.next += length;
  // A line that goes on is several lines here; one that goes on for ever is the end of the file.
  stream.unended = line_end == std::string_view::npos ? stream.unended + length : 0;
  if (stream.unended > longest_unended) {
    stream.endless = stream.at_end = true;
    stream.next = stream.filled;
    return std::nullopt;
  }
  return ahead.substr(0, length);
}

util::status read_fault(const kbpmfio_stream& stream) {
  if (stream.failure == 0) return std::nullopt;
  const auto at = stream.block_start + static_cast<std::int64_t>(stream.filled);
  return util::fault{
      "reading failed at byte " + std::to_string(at) + ": " + util::system_text(stream.failure),
      util::shown(stream.path),
      {}};
}

// The line still lies in the block: nothing was read since it was given.
void put_back(kbpmfio_stream& stream, std::string_view line) {
  stream.next -= line.size();
  stream.unended -= std::min(stream.unended, line.size());
}

std::int64_t line_number(const kbpmfio_stream& stream) {
  // Up to the last character taken, which is the line end of the line in question.
  const std::int64_t end = stream.block_start + static_cast<std::int64_t>(stream.next) - 1;
  std::int64_t ends = 0;
  const auto count = [&ends](const char* text, std::int64_t length) {
    ends += std::count(text, text + length, '\n');
  };
  const std::int64_t in_file = std::min(stream.block_start, std::max<std::int64_t>(end, 0));
  std::vector<char> text(usual_block);
  // What has left the block is read again, at places of its own: the reader's is not moved.
  for (std::int64_t at = 0; at < in_file;) {
    const auto wanted = std::min(text.size(), static_cast<std::size_t>(in_file - at));
    const ssize_t got = pread(stream.fd, text.data(), wanted, at);
    if (got <= 0) return 0;
    count(text.data(), got);
    at += got;
  }
  count(stream.block.data(), std::max<std::int64_t>(end - stream.block_start, 0));
  return ends + 1;
}

void put(kbpmfio_stream& stream, std::string_view text) {
  // Headers end with a line end in either mode; on a file that is read it goes nowhere.
  if (stream.out == nullptr) return;
  if (std::fwrite(text.data(), 1, text.size(), stream.out) < text.size()) {
    util::write_error(stream.path, errno);
  }
}

void close(kbpmfio_stream& stream) {
  if (stream.fd >= 0) ::close(stream.fd);
  stream.fd = -1;
  if (stream.out == nullptr) return;
  // Closed from here on, also for the ending that a failure leads to.
  std::FILE* const out = stream.out;
  stream.out = nullptr;
  // What an earlier flush could not write is lost, and closing alone does not tell.
  const bool lost = std::ferror(out) != 0;
  if (std::fclose(out) != 0) util::write_error(stream.path, errno);
  if (lost) util::write_error(stream.path, EIO);
}

}  // namespace rawfile
