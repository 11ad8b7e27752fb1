// subcommand: how the words of a subcommand are read; the same for all of them.
#pragma once
#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "run_time.hpp"

namespace util {

/// A call that cannot be understood; 1 would look like work that was begun and failed.
inline constexpr int wrong_call = 2;

/// Tells what is wrong with a call, and where help is: the help itself would push the fault off the
/// screen.
/// given    name  of program and subcommand, as typed
inline int refuse_call(const std::string& name, const std::string& why) {
  tell_line(why + "; try " + name + " --help");
  return wrong_call;
}

/// Reads the words of a call into the options that the app knows. --help is printed.
/// given    app        named as typed: "butngain compare"
///          arguments  the subcommand's name first
/// returns  the status to end with: 0 after --help, 2 after a wrong call, which is told; nothing when
///          the work is to begin
inline std::optional<int> read_call(CLI::App& app, int count, const char* const* arguments) {
  try {
    app.parse(count, arguments);
  } catch (const CLI::Success& asked) {  // the library's way to tell of --help
    app.exit(asked);
    return 0;
  } catch (const CLI::ParseError& fault) {
    return refuse_call(app.get_name(), fault.what());
  }
  return std::nullopt;
}

}  // namespace util
