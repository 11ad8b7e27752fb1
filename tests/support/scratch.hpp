// Places for tests that read and write files: nothing of one test is there for the next.
#pragma once
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace scratch {

/// A folder of its own; gone, with all it holds, when it goes out of scope.
class directory {
 public:
  directory();
  directory(const directory&) = delete;
  directory& operator=(const directory&) = delete;
  ~directory();

  const std::filesystem::path& path() const { return path_; }
  /// Full path of a name in it, as the text that most of our procedures take.
  std::string operator/(std::string_view name) const { return (path_ / name).string(); }
  /// Writes a file, with the directories on the way; returns its full path.
  std::string file(std::string_view name, std::string_view text) const;

 private:
  std::filesystem::path path_;
  int owner_;  // a death test's child leaves through exit: the folder is not its own to remove
};

/// The same, and while it lives the working directory and what $KOVR_ONLINE names. In the end all
/// units are closed and the directory before is the working directory again.
class workplace : public directory {
 public:
  workplace();
  workplace(const workplace&) = delete;
  workplace& operator=(const workplace&) = delete;
  ~workplace();

 private:
  std::filesystem::path before_;
};

/// Writes a file, with the directories on the way.
void write(const std::filesystem::path& name, std::string_view text);

/// What a file holds, and the same by lines; nothing when there is no such file.
std::string content(const std::filesystem::path& name);
std::vector<std::string> lines_of(const std::filesystem::path& name);

/// While it lives a socket stands under this name: a file that is there and can be examined, but not
/// opened - not even by root.
class unopenable {
 public:
  explicit unopenable(const std::string& name);
  unopenable(const unopenable&) = delete;
  unopenable& operator=(const unopenable&) = delete;
  ~unopenable();

 private:
  int socket_;
};

/// Makes this text the standard input.
void answer(std::string_view text);

/// Sends standard output where death tests look, too.
void show_output();

}  // namespace scratch
