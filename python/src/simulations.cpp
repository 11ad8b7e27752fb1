#include <pybind11/stl.h>

#include <array>
#include <optional>

#include "arrays.hpp"

namespace binding {
namespace {

using butngain::electronics;
using butngain::simulated;
using butngain::simulation;

// Four numbers are handed out as a tuple: a list would be a copy, and changes to it lost in
// silence.
void four_numbers(py::class_<electronics>& c, const char* name, four electronics::*field,
                  const char* doc) {
  c.def_property(
      name,
      [field](const electronics& self) {
        const auto& [a, b, d, e] = self.*field;
        return py::make_tuple(a, b, d, e);
      },
      [field, name](electronics& self, const py::object& values) {
        self.*field = take_four(values, name);
      },
      doc);
}

// Truths and numbers of buttons, which take_four would make reals of.
template <class T>
void four_choices(py::class_<electronics>& c, const char* name,
                  std::array<T, 4> electronics::*field, const char* doc) {
  c.def_property(
      name,
      [field](const electronics& self) {
        const auto& [a, b, d, e] = self.*field;
        return py::make_tuple(a, b, d, e);
      },
      [field](electronics& self, const std::array<T, 4>& values) { self.*field = values; }, doc);
}

// Records within records are handed out by reference: setup.beam.x.orbit = 1e-3 changes the setup.
void add_beam(py::module_& m) {
  using butngain::beam;
  using butngain::beam_current;
  using butngain::beam_plane;
  using butngain::beam_population;
  py::class_<beam_plane>(m, "BeamPlane", "One plane of the beam's motion.")
      .def(py::init<>())
      .def_readwrite("gaussian", &beam_plane::gaussian, "The random part; else it is uniform.")
      .def_readwrite("spread", &beam_plane::spread,
                     "Half width when uniform, rms when gaussian [m].")
      .def_readwrite("orbit", &beam_plane::orbit, "Closed orbit: the mean position [m].")
      .def_readwrite("tune", &beam_plane::tune, "Betatron oscillations per orbit [-].")
      .def_readwrite("amplitude", &beam_plane::amplitude, "Of the oscillation [m].")
      .def_readwrite("phase", &beam_plane::phase, "Of the oscillation at BPM 1, orbit 1 [rad].")
      .def_readwrite("advance", &beam_plane::advance,
                     "Of the phase from one BPM to the next [rad].");
  py::class_<beam_current>(m, "BeamCurrent", "How the current changes over a run.")
      .def(py::init<>())
      .def_readwrite("drift", &beam_current::drift, "Relative change over the run [-].")
      .def_readwrite("decay", &beam_current::decay, "Loss of ln(current) over the run [-].")
      .def_readwrite("walk", &beam_current::walk, "rms step of ln(current) per orbit [-].")
      .def_readwrite("slope_x", &beam_current::slope_x, "Relative change with x [1/m].")
      .def_readwrite("slope_y", &beam_current::slope_y, "Relative change with y [1/m].");
  py::class_<beam_population>(m, "BeamPopulation", "Orbits of another kind among the others.")
      .def(py::init<>())
      .def_readwrite("part", &beam_population::part, "Of the orbits, 0..1.")
      .def_readwrite("x", &beam_population::x, "Its orbit, counted from the other's [m].")
      .def_readwrite("y", &beam_population::y, "Likewise, in y [m].")
      .def_readwrite("current", &beam_population::current, "In parts of the other's [-].");
  py::class_<beam>(m, "Beam", "Where the beam passes.")
      .def(py::init<>())
      .def_readwrite("x", &beam::x, "BeamPlane: the motion in x.")
      .def_readwrite("y", &beam::y, "BeamPlane: the motion in y.")
      .def_readwrite("coupling", &beam::coupling,
                     "Part of one plane's motion that shows in the other [-].")
      .def_readwrite("current", &beam::current, "BeamCurrent: how the current changes.")
      .def_readwrite("second", &beam::second, "BeamPopulation: orbits of another kind.")
      .def_readwrite("duplicated", &beam::duplicated,
                     "Probability that an orbit is the one before once more [-].");
}

// Four to a button first, then what the whole BPM has.
void add_electronics(py::module_& m) {
  py::class_<electronics> e(m, "Electronics", "What reads the buttons, and what is wrong with it.");
  e.def(py::init<>());
  four_numbers(e, "gain", &electronics::gain, "True button gains [-].");
  four_numbers(e, "pedestal", &electronics::pedestal, "Reading without beam [ADC counts].");
  four_numbers(e, "pedestal_left", &electronics::pedestal_left,
               "On top of it, only with beam [ADC counts].");
  four_numbers(e, "full_scale", &electronics::full_scale,
               "Where readings end [ADC counts]; inf: nowhere.");
  four_choices(e, "dead", &electronics::dead, "True: the button reads its pedestal alone.");
  four_numbers(e, "stuck", &electronics::stuck,
               "Constant reading above the pedestal [ADC counts]; 0: none.");
  four_numbers(e, "compression", &electronics::compression,
               "c of r -> r (1 - c (r / (gain signal) - 1)): loss of large readings [-].");
  four_numbers(e, "gain_step", &electronics::gain_step, "Relative change at gain_step_at [-].");
  four_numbers(e, "gain_drift", &electronics::gain_drift, "Relative change over the run [-].");
  four_choices(e, "cable_of", &electronics::cable_of, "Button 0..3 whose signal a channel gets.");
  e.def_readwrite("signal", &electronics::signal, "Centred beam, gain 1 [ADC counts].");
  e.def_readwrite("noise", &electronics::noise, "rms, in parts of signal [-].");
  e.def_readwrite("common_noise", &electronics::common_noise,
                  "rms, the same for all buttons, in parts of signal [-].");
  e.def_readwrite("intensity_spread", &electronics::intensity_spread,
                  "rms of the intensity from orbit to orbit [-].");
  e.def_readwrite("wild", &electronics::wild, "Probability that a reading is wild [-].");
  e.def_readwrite("cross_talk", &electronics::cross_talk, "Part that neighbours see [-].");
  e.def_readwrite("adc_step", &electronics::adc_step, "Steps of readings [ADC counts]; 0: none.");
  e.def_readwrite("gain_step_at", &electronics::gain_step_at,
                  "Part of the run after which gains have stepped, 0..1.");
  e.def_readwrite("outliers", &electronics::outliers, "Orbits with one button off.");
  e.def_readwrite("outlier_size", &electronics::outlier_size, "In parts of signal [-].");
}

/// What a simulation made, in arrays: made once, so that made.x is the same array each time.
struct made_arrays {
  py::array signals, x, y, intensity, gain, mean_gain, pedestal;
};

/// Planes may be given as one number for both, or two: most simulated beams are the same in both.
void set_planes(simulation& run, const py::object& values, const char* name,
                double butngain::beam_plane::*field) {
  if (values.is_none()) return;
  const real_array taken = take_column(values, name);
  if (taken.size() != 1 && taken.size() != 2) {
    throw py::value_error(std::string{name} + ": expected one number or two, for x and y");
  }
  run.beam.x.*field = taken.at(0);
  run.beam.y.*field = taken.at(taken.size() - 1);
}

made_arrays simulate(std::optional<int> orbits, std::optional<std::uint64_t> seed,
                     const py::object& gain, const py::object& pedestal,
                     std::optional<double> noise, const py::object& spread, const py::object& orbit,
                     const std::optional<butngain::chamber>& chamber,
                     const std::optional<simulation>& setup, const py::object& callback) {
  // A copy: what is given beside a setup holds for this call alone.
  simulation run = setup.value_or(simulation{});
  // None everywhere means "not given": 0 orbits or a gain of 0 must be told, not passed over.
  run.orbits = orbits.value_or(run.orbits);
  run.seed = seed.value_or(run.seed);
  run.electronics.gain = take_four(gain, "gain", run.electronics.gain);
  run.electronics.pedestal = take_four(pedestal, "pedestal", run.electronics.pedestal);
  run.electronics.noise = noise.value_or(run.electronics.noise);
  set_planes(run, spread, "spread", &butngain::beam_plane::spread);
  set_planes(run, orbit, "orbit", &butngain::beam_plane::orbit);
  if (chamber) run.where = *chamber;
  const auto tell = progress_of(callback);
  simulated made;
  {
    // Up to here only: the arrays below are Python's.
    const py::gil_scoped_release released;
    made = butngain::simulate(run, tell);
  }
  return {array_of(std::move(made.readings)),
          array_of(std::move(made.x)),
          array_of(std::move(made.y)),
          array_of(std::move(made.intensity)),
          array_of(made.gain),
          array_of(made.mean_gain),
          array_of(made.pedestal)};
}

}  // namespace

void add_simulation(py::module_& m) {
  add_beam(m);
  add_electronics(m);
  py::class_<simulation>(m, "Simulation", "One BPM's run, described; see simulate().")
      .def(py::init<>())
      .def_readwrite("chamber", &simulation::where, "Chamber that the beam passes.")
      .def_readwrite("beam", &simulation::beam, "Beam: where it passes.")
      .def_readwrite("electronics", &simulation::electronics,
                     "Electronics: what reads the buttons.")
      .def_readwrite("orbits", &simulation::orbits, "How many.")
      .def_readwrite("seed", &simulation::seed,
                     "Of the random numbers: the same seed, the same bits.")
      .def_readwrite("bpm", &simulation::bpm, "With the seed it chooses the random numbers.")
      .def_readwrite("bunch", &simulation::bunch, "Likewise.");
  py::class_<made_arrays> s(m, "Simulated", "What a simulation made; one entry an orbit.");
  s.def_readonly("signals", &made_arrays::signals,
                 "float64 (n, 4): readings, pedestals included [ADC counts]");
  s.def_readonly("x", &made_arrays::x, "float64 (n,): true places [m]");
  s.def_readonly("y", &made_arrays::y, "float64 (n,): true places [m]");
  s.def_readonly("intensity", &made_arrays::intensity, "float64 (n,): true, mean 1 [-]");
  s.def_readonly("gain", &made_arrays::gain, "float64 (4,): true button gains at the start [-]");
  s.def_readonly("mean_gain", &made_arrays::mean_gain,
                 "float64 (4,): true button gains over the run; others when they change [-]");
  s.def_readonly("pedestal", &made_arrays::pedestal,
                 "float64 (4,): true pedestals of the readings [ADC counts]");
  m.def("simulate", &simulate, py::arg("orbits") = py::none(), py::kw_only(),
        py::arg("seed") = py::none(), py::arg("gain") = py::none(),
        py::arg("pedestal") = py::none(), py::arg("noise") = py::none(),
        py::arg("spread") = py::none(), py::arg("orbit") = py::none(),
        py::arg("chamber") = py::none(), py::arg("setup") = py::none(),
        py::arg("progress") = py::none(),
        "Simulates the run of one BPM.\n\n"
        "setup: a Simulation, which says everything; what is given beside it goes first\n"
        "orbits: how many (1000); seed: of the random numbers (1)\n"
        "gain: (4,) true button gains; pedestal: (4,) [ADC counts]; noise: rms, in parts of a\n"
        "    centred signal\n"
        "spread, orbit: of the beam's motion and its mean place, one number or (x, y) [m]\n"
        "chamber: Chamber that the beam passes; None: a round pipe of 45 mm radius\n"
        "progress(done, of), if given, is called now and then; False stops the work\n"
        "Returns Simulated.");
}

}  // namespace binding
