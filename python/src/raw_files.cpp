#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <filesystem>

#include "arrays.hpp"

namespace binding {
namespace {

using butngain::raw_bpm;
using butngain::raw_file;
using shared_file = std::shared_ptr<const raw_file>;

/// A BPM as Python holds it: with the file that its arrays look at.
struct held_bpm {
  shared_file file;
  const raw_bpm* bpm;
};

// From the Python object and not the record: the arrays made of it keep the object alive, and that
// the file.
const raw_bpm& bpm_of(const py::object& self) { return *self.cast<const held_bpm&>().bpm; }

// The library has one span for all bunches; two dimensions are what a notebook slices.
template <class T>
py::array by_turn(const py::object& self, std::span<const T> values) {
  const raw_file& file = *self.cast<const held_bpm&>().file;
  constexpr py::ssize_t item = sizeof(T);
  const py::ssize_t turns = file.turns;
  return view_of(values.data(), {file.bunches, turns}, {turns * item, item}, self);
}

// A tuple of four and not an array (4, bunches, turns): the four lie apart in memory.
template <class T>
py::tuple by_button(const py::object& self, const std::array<std::span<const T>, 4>& values) {
  return py::make_tuple(by_turn(self, values[0]), by_turn(self, values[1]),
                        by_turn(self, values[2]), by_turn(self, values[3]));
}

// A header field of a BPM: texts and numbers as they are, blocks of buttons as small arrays. Copies,
// because a field is a few bytes and pybind11's own references would keep whole records in hand.
template <class T>
void header(py::class_<held_bpm>& c, const char* name, T raw_bpm::*field, const char* doc) {
  c.def_property_readonly(
      name, [field](const held_bpm& held) { return held.bpm->*field; }, doc);
}
template <class T>
void header(py::class_<held_bpm>& c, const char* name, butngain::by_block<T> raw_bpm::*field,
            const char* doc) {
  c.def_property_readonly(
      name, [field](const held_bpm& held) { return array_of(held.bpm->*field); }, doc);
}

template <class T>
void turns(py::class_<held_bpm>& c, const char* name, std::span<const T> raw_bpm::*field,
           const char* doc) {
  c.def_property_readonly(
      name, [field](const py::object& self) { return by_turn(self, bpm_of(self).*field); }, doc);
}

void add_headers(py::class_<held_bpm>& c) {
  header(c, "name", &raw_bpm::name, "Where it stands: '12W'.");
  header(c, "host", &raw_bpm::host, "Host name of the electronics.");
  header(c, "ip_address", &raw_bpm::ip_address, "IP address of the electronics.");
  header(c, "detector_type", &raw_bpm::detector_type, "Kind of detector.");
  header(c, "loader", &raw_bpm::loader, "Program of the electronics.");
  header(c, "timing_setup", &raw_bpm::timing_setup, "Timing set-up.");
  header(c, "trigger", &raw_bpm::trigger, "Trigger setting.");
  header(c, "horizontal_coefficient", &raw_bpm::horizontal_coefficient,
         "x is this times difference over sum; it sets the unit of x, mm as a rule.");
  header(c, "vertical_coefficient", &raw_bpm::vertical_coefficient, "The same for y.");
  header(c, "build_time", &raw_bpm::build_time, "Time stamp of the loader's build.");
  header(c, "fpga_major", &raw_bpm::fpga_major, "FPGA version, major number.");
  header(c, "fpga_minor", &raw_bpm::fpga_minor, "FPGA version, minor number.");
  header(c, "fpga_id", &raw_bpm::fpga_id, "FPGA numbers by button.");
  header(c, "header_turns", &raw_bpm::header_turns, "Turns, as the BPM's own header says.");
  header(c, "turn_counter", &raw_bpm::turn_counter, "Turn counter, as the header has it.");
  header(c, "turn_spacing", &raw_bpm::turn_spacing, "Turns from one recorded turn to the next.");
  header(c, "bunch_pattern_offset", &raw_bpm::bunch_pattern_offset,
         "Offset of the bunch pattern, by timing block [as set].");
  header(c, "common_turn_delay", &raw_bpm::common_turn_delay, "Common turn marker delay [as set].");
  header(c, "turn_delay", &raw_bpm::turn_delay, "Turn marker delay by timing block [as set].");
  header(c, "block_delay", &raw_bpm::block_delay, "Delay by timing block [as set].");
  header(c, "channel_delay", &raw_bpm::channel_delay,
         "(2, 4) delays by timing block and button [as set].");
  header(c, "gain_setting", &raw_bpm::gain_setting,
         "(2, 4) amplifier settings by timing block and button [as set].");
  header(c, "gain_code", &raw_bpm::gain_code,
         "(2, 4) codes of these settings by timing block and button.");
  header(c, "pedestal", &raw_bpm::pedestal,
         "(2, 4) readings without beam, by timing block and button [ADC counts].");
  header(c, "gain_coefficient", &raw_bpm::gain_coefficient,
         "(2, 4) by timing block and button: corrected = (reading - pedestal) / coefficient [-].");
  header(
      c, "adc_saturation", &raw_bpm::adc_saturation,
      "(2, 4) limit by timing block and button, as set; the file has that of TI alone, others 0.");
  header(c, "adc_high", &raw_bpm::adc_high, "(2, 4) upper bound, likewise.");
  header(c, "adc_low", &raw_bpm::adc_low, "(2, 4) lower bound, likewise.");
  header(c, "board_temperature", &raw_bpm::board_temperature, "Of the board [degrees C].");
  header(c, "card_temperature", &raw_bpm::card_temperature, "Of the cards, by button [degrees C].");
}

void add_arrays(py::class_<held_bpm>& c) {
  c.def_property_readonly(
      "readings", [](const py::object& self) { return by_button(self, bpm_of(self).reading); },
      "Four int32 arrays (bunches, turns), by button [ADC counts]. Views, not copies.");
  c.def_property_readonly(
      "corrected", [](const py::object& self) { return by_button(self, bpm_of(self).corrected); },
      "Four float32 arrays (bunches, turns), by button: (reading - pedestal) / coefficient "
      "[ADC counts]. Views, not copies.");
  turns(c, "x", &raw_bpm::x,
        "Linear positions, float32 (bunches, turns) [unit of the coefficients].");
  turns(c, "y", &raw_bpm::y,
        "Linear positions, float32 (bunches, turns) [unit of the coefficients].");
  turns(c, "phase_words", &raw_bpm::phase_words, "int32 (bunches, turns), as encoded.");
  turns(c, "phase_x", &raw_bpm::phase_x, "int32 (bunches, turns) [512ths of a cycle].");
  turns(c, "phase_y", &raw_bpm::phase_y, "int32 (bunches, turns) [512ths of a cycle].");
  turns(c, "phase_other", &raw_bpm::phase_other,
        "int32 (bunches, turns): the rest of the phase words.");
  c.def_property_readonly(
      "blocks",
      [](const py::object& self) {
        const auto blocks = bpm_of(self).block;
        return view_of(blocks.data(), {static_cast<py::ssize_t>(blocks.size())},
                       {py::ssize_t{sizeof(blocks[0])}}, self);
      },
      "Timing block of every bunch, int32 (bunches,).");
  // Doubles in one piece: fits and calibrations take them so, and making them later would cost each
  // of them a copy.
  c.def(
      "signals",
      [](const held_bpm& held, std::size_t bunch) {
        return array_of(butngain::signals_of(*held.bpm, bunch));
      },
      py::arg("bunch") = 0,
      "The corrected readings of one bunch, turn by turn: what fit() and calibrate() take.\n\n"
      "bunch: place in the arrays, from 0.\nReturns float64 (turns, 4) [ADC counts], a copy.");
}

// Names are those of the library's record: what is read in its header holds here too.
void add_file_headers(py::class_<raw_file, std::shared_ptr<raw_file>>& c) {
  c.def_readonly("path", &raw_file::path, "Where it was read from.");
  c.def_readonly("instrument_type", &raw_file::instrument_type, "Kind of instrument.");
  c.def_readonly("command", &raw_file::command, "Command that recorded it.");
  c.def_readonly("file_type", &raw_file::file_type, "Kind of file.");
  c.def_readonly("time_stamp", &raw_file::time_stamp, "When it was recorded, as the file says it.");
  c.def_readonly("species", &raw_file::species, "Particles: POSITRONS, ELECTRONS or DUAL.");
  c.def_readonly("timing_setup", &raw_file::timing_setup, "Timing set-up: '14ns_VAR_G' ...");
  c.def_readonly("file_id", &raw_file::file_id, "Run number.");
  c.def_readonly("file_version", &raw_file::file_version, "Version of the file's form.");
  c.def_readonly("core_revision", &raw_file::core_revision, "Revision of the recorder's core.");
  c.def_readonly("platform_revision", &raw_file::platform_revision,
                 "Revision of the recorder's platform.");
  c.def_readonly("bunches", &raw_file::bunches, "Bunches recorded.");
  c.def_readonly("turns", &raw_file::turns, "Turns recorded of each bunch.");
  c.def_readonly("turn_spacing", &raw_file::turn_spacing,
                 "Turns from one recorded turn to the next.");
  c.def_readonly("condition", &raw_file::condition,
                 "Number of the ring's condition, a key of its operators.");
  c.def_readonly("raw_current", &raw_file::raw_current, "Beam current monitor [counts].");
  c.def_readonly("current", &raw_file::current, "Beam current [mA].");
  c.def_readonly("bunch_numbers", &raw_file::bunch, "Numbers, from 1, of the recorded bunches.");
}

}  // namespace

void add_raw_files(py::module_& m) {
  py::class_<held_bpm> bpm(m, "RawBpm",
                           "One BPM of a raw data file. Buttons 0..3 are BI, BO, TI, TO.");
  add_headers(bpm);
  add_arrays(bpm);
  bpm.def("__repr__", [](const held_bpm& held) { return "<RawBpm " + held.bpm->name + ">"; });

  py::class_<raw_file, std::shared_ptr<raw_file>> file(
      m, "RawFile", "A raw data file: headers as attributes, BPMs by name or in file order.");
  add_file_headers(file);
  file.def_property_readonly(
      "bpms",
      [](const std::shared_ptr<raw_file>& self) {
        // Each with its share of the file: a list of BPMs may outlive the name of the file.
        std::vector<held_bpm> all;
        for (const raw_bpm& one : self->bpm) all.push_back({self, &one});
        return all;
      },
      "The BPMs in file order.");
  file.def_property_readonly(
      "names",
      [](const raw_file& self) {
        std::vector<std::string> names;
        for (const raw_bpm& one : self.bpm) names.push_back(one.name);
        return names;
      },
      "Their names.");
  // As a dict by name, with the length of a list: the order of the file is kept in both.
  file.def("__len__", [](const raw_file& self) { return self.bpm.size(); });
  file.def(
      "__getitem__",
      [](const std::shared_ptr<raw_file>& self, const std::string& name) {
        const raw_bpm* found = butngain::find_bpm(*self, name);
        // As of a dict: `in` a try block, or names first.
        if (found == nullptr) throw py::key_error("no BPM " + name + " in " + self->path);
        return held_bpm{self, found};
      },
      py::arg("name"));
  file.def(
      "rf_bucket",
      [](const raw_file& self, std::int32_t bunch) { return butngain::rf_bucket(self, bunch); },
      py::arg("bunch"), "RF bucket of a bunch number, None where the timing set-up does not say.");
  file.def("__repr__", [](const raw_file& self) {
    return "<RawFile " + self.path + ": " + std::to_string(self.bpm.size()) + " BPMs>";
  });

  m.def(
      "read_raw",
      [](const std::filesystem::path& path) {
        // A load of seconds from a slow disk is no reason to hold up other threads.
        const py::gil_scoped_release released;
        return std::make_shared<raw_file>(butngain::read_raw(path.string()));
      },
      py::arg("path"),
      "Reads a raw data file.\n\nReturns a RawFile, whose arrays are views of one piece of memory: "
      "an array keeps it\nalive. Raises Error for a file that cannot be opened or is none.");
}

}  // namespace binding
