#include "run_json.hpp"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "gains_csv.hpp"
#include "run_time.hpp"
#include "whole_file.hpp"

namespace report {
namespace {

using json = nlohmann::ordered_json;  // a record is read by people, in our order

// --- writing ------------------------------------------------------------------------------------

// JSON has no word for what is not a number.
// null is what readers of every language have. Numbers are written with as few digits as bring the
// same bits back.
json number(double value) { return std::isfinite(value) ? json(value) : json(nullptr); }

json numbers(const four& values) {
  json list = json::array();
  for (const double value : values) list.push_back(number(value));
  return list;
}

json texts(const std::vector<std::string>& values) {
  json list = json::array();
  for (const std::string& value : values) list.push_back(text_of_bytes(value));
  return list;
}

// Names, answers and reasons are anybody's bytes, and in a record that was read so is every text: all
// pass text_of_bytes. The library throws at the first that is no UTF-8, and a run without a record
// would be the price of a file name.
json files(const std::vector<input_file>& of) {
  json list = json::array();
  for (const input_file& file : of) {
    list.push_back(
        {{"path", text_of_bytes(file.path)},
         {"size", file.size},
         // Empty where the content is not to be had twice: a pipe, a file that is gone.
         {"sha256", file.sha256.empty() ? json(nullptr) : json(text_of_bytes(file.sha256))}});
  }
  return list;
}

json dialog(const std::vector<answered>& questions) {
  json list = json::array();
  for (const answered& a : questions) {
    list.push_back({{"question", text_of_bytes(a.question)},
                    {"answer", text_of_bytes(a.answer)},
                    {"given", text_of_bytes(a.given)}});
  }
  return list;
}

// The few values that people ask a record for; all others are in gains.csv beside it, once.
json bpms(const std::vector<bpm_row>& rows) {
  json list = json::array();
  for (const bpm_row& row : rows) {
    list.push_back({{"bpm", row.bpm},
                    {"name", text_of_bytes(row.name)},
                    {"verdict", std::string{text_of(row.verdict)}},
                    {"reason", text_of_bytes(row.reason)},
                    {"orbits", row.orbits},
                    {"orbits_used", row.orbits_used},
                    {"gain", numbers(row.gain)},
                    {"error", number(row.error)}});
  }
  return list;
}

// --- reading ------------------------------------------------------------------------------------

// What is wrong with a value; leaves the reader as an exception and read_run_json as a fault.
struct wrong_value {
  std::string name, expected;
};

// A value that is missing is a fault, one that is null is not: where the writer does not know, it
// says null, so a record without the name is damaged or no record.
const json& value_of(const json& object, const char* name) {
  const auto at = object.is_object() ? object.find(name) : object.end();
  if (!object.is_object() || at == object.end()) throw wrong_value{name, "a value of this name"};
  return *at;
}

std::string text_of_value(const json& value, const std::string& name) {
  // An unknown text is the empty one, as the records have it.
  if (value.is_null()) return {};
  if (!value.is_string()) throw wrong_value{name, "a text"};
  return bytes_of_text(value.get<std::string>());
}

std::string text_at(const json& object, const char* name) {
  return text_of_value(value_of(object, name), name);
}

// No default of its own: what stands for "not known" is -1 for a status and 0 for a size.
std::int64_t integer_at(const json& object, const char* name, std::int64_t when_null) {
  const json& value = value_of(object, name);
  if (value.is_null()) return when_null;
  if (!value.is_number_integer()) throw wrong_value{name, "a whole number"};
  return value.get<std::int64_t>();
}

// Cut to 32 bits BPM 4294967297 would be BPM 1.
int int_at(const json& object, const char* name, int when_null) {
  const std::int64_t value = integer_at(object, name, when_null);
  if (!std::in_range<int>(value)) throw wrong_value{name, "a number of 32 bits"};
  return static_cast<int>(value);
}

double number_of(const json& value, const char* name) {
  // Comes back as the nan that it was.
  if (value.is_null()) return unknown;
  if (!value.is_number()) throw wrong_value{name, "a number"};
  return value.get<double>();
}

const json& list_at(const json& object, const char* name) {
  const json& value = value_of(object, name);
  if (!value.is_array()) throw wrong_value{name, "a list"};
  return value;
}

std::vector<input_file> files_at(const json& object, const char* name) {
  std::vector<input_file> read;
  for (const json& file : list_at(object, name)) {
    read.push_back({text_at(file, "path"), static_cast<std::uint64_t>(integer_at(file, "size", 0)),
                    text_at(file, "sha256")});
  }
  return read;
}

// By the words of gains.csv, so that both files speak of a BPM in the same way.
verdict verdict_at(const json& object) {
  const std::string word = text_at(object, "verdict");
  for (const verdict one : {verdict::determined, verdict::weak, verdict::suspect,
                            verdict::not_determined, verdict::not_fitted}) {
    if (word == text_of(one)) return one;
  }
  throw wrong_value{"verdict", "one of the verdicts"};
}

bpm_row row_of(const json& object) {
  bpm_row row;
  row.bpm = int_at(object, "bpm", 0);
  row.name = text_at(object, "name");
  row.verdict = verdict_at(object);
  row.reason = text_at(object, "reason");
  row.orbits = int_at(object, "orbits", 0);
  row.orbits_used = int_at(object, "orbits_used", 0);
  const json& gain = list_at(object, "gain");
  // Checked before the loop: a shorter list would leave gains unknown without a word.
  if (gain.size() != row.gain.size()) throw wrong_value{"gain", "four numbers"};
  for (std::size_t k = 0; k < gain.size(); ++k) row.gain.at(k) = number_of(gain[k], "gain");
  row.error = number_of(value_of(object, "error"), "error");
  return row;
}

void take_lists(const json& from, run_info& info) {
  for (const json& argument : list_at(from, "arguments")) {
    if (!argument.is_string()) throw wrong_value{"arguments", "texts"};
    info.arguments.push_back(bytes_of_text(argument.get<std::string>()));
  }
  for (const json& a : list_at(from, "dialog")) {
    info.dialog.push_back({text_at(a, "question"), text_at(a, "answer"), text_at(a, "given")});
  }
  info.inputs = files_at(from, "inputs");
  info.tables = files_at(from, "tables");
  // Objects, not lists: the names are the site's and the stages' own, and differ from run to run.
  const json& paths = value_of(from, "site_paths");
  for (const auto& [name, path] : paths.items()) {
    info.site_paths.emplace_back(bytes_of_text(name), text_of_value(path, name));
  }
  const json& stages = value_of(from, "seconds");
  for (const auto& [name, seconds] : stages.items()) {
    info.seconds.emplace_back(bytes_of_text(name), number_of(seconds, "seconds"));
  }
}

run_results results_of(const json& from) {
  run_results results;
  run_info& info = results.info;
  info.version = text_at(from, "version");
  info.build = text_at(from, "build");
  info.host = text_at(from, "host");
  info.started = text_at(from, "started");
  info.working_directory = text_at(from, "working_directory");
  info.directory = text_at(from, "directory");
  info.command = text_at(from, "command");
  info.title = text_at(from, "title");
  take_lists(from, info);
  for (const json& bpm : list_at(from, "bpms")) results.bpm.push_back(row_of(bpm));
  // Taken as it is: "running" here is a run that was killed, or one that still goes on.
  info.ended = text_at(from, "ended");
  info.exit_status = int_at(from, "exit_status", -1);
  return results;
}

}  // namespace

std::string run_json_text(const run_results& results) {
  const run_info& info = results.info;
  // In the order in which one asks: which program, where and when, what was answered, what came of
  // it.
  json out;
  out["version"] = text_of_bytes(info.version);
  out["build"] = text_of_bytes(info.build);
  out["host"] = text_of_bytes(info.host);
  out["started"] = text_of_bytes(info.started);
  out["working_directory"] = text_of_bytes(info.working_directory);
  out["directory"] = text_of_bytes(info.directory);
  out["command"] = text_of_bytes(info.command);
  out["arguments"] = texts(info.arguments);
  out["title"] = text_of_bytes(info.title);
  out["dialog"] = dialog(info.dialog);
  out["inputs"] = files(info.inputs);
  out["tables"] = files(info.tables);
  out["site_paths"] = json::object();
  for (const auto& [name, path] : info.site_paths) {
    out["site_paths"][text_of_bytes(name)] = text_of_bytes(path);
  }
  out["bpms"] = bpms(results.bpm);
  out["seconds"] = json::object();
  for (const auto& [stage, seconds] : info.seconds)
    out["seconds"][text_of_bytes(stage)] = number(seconds);
  out["ended"] = text_of_bytes(info.ended);
  out["exit_status"] = info.exit_status < 0 ? json(nullptr) : json(info.exit_status);
  // A value a line, so that records of two runs can be compared by lines; one blank keeps it small.
  constexpr int indent = 1;
  return out.dump(indent) + "\n";
}

util::status write_run_json(const std::string& path, const run_results& results) {
  return util::write_whole_file(path, run_json_text(results));
}

util::outcome<run_results> read_run_json(const std::string& path) {
  std::ifstream file(path);
  if (!file) return util::fault{util::system_text(errno), path, {}};
  // Only what is missing or wrong inside of it is told by an exception, and that one ends below.
  const json record = json::parse(file, nullptr, false);  // nothing thrown: discarded instead
  if (record.is_discarded()) return util::fault{"is no JSON", path, "the record of a run"};
  try {
    return results_of(record);
  } catch (const wrong_value& wrong) {
    return util::fault{"\"" + wrong.name + "\" is missing or wrong", path, wrong.expected};
  }
}

}  // namespace report
