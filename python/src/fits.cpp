#include <pybind11/stl.h>

#include <optional>

#include "arrays.hpp"

namespace binding {
namespace {

using butngain::calibration;
using butngain::calibration_fit;
using butngain::four_fits;
using butngain::gain_fit;
using butngain::judgement;

// An array field of a record, copied: four numbers or a small matrix.
template <class record, class T>
void small_array(py::class_<record>& c, const char* name, T record::*field, const char* doc) {
  c.def_property_readonly(
      name, [field](const record& self) { return array_of(self.*field); }, doc);
}

// The words of enumerators, in their order. What is added there must be added here.
// Words, not numbers or enumerations of Python's own: a notebook prints and compares them as they
// are, and a reason that is put in between moves none of the others.
template <class enumerator, std::size_t n>
const char* word_of(const std::array<const char*, n>& words, enumerator value) {
  return words.at(static_cast<std::size_t>(value));
}

constexpr std::array<const char*, 3> fit_words{"determined", "doubtful", "not determined"};
static_assert(static_cast<std::size_t>(butngain::fit_word::not_determined) + 1 == fit_words.size());
constexpr std::array<const char*, 3> fit_kinds{"free", "steady", "wide"};
static_assert(static_cast<std::size_t>(butngain::fit_kind::wide_pedestals) + 1 == fit_kinds.size());
constexpr std::array<const char*, 19> reasons{"none",
                                              "no_table",
                                              "few_orbits",
                                              "dead_button",
                                              "stuck_button",
                                              "saturated_button",
                                              "no_convergence",
                                              "one_line",
                                              "error_too_large",
                                              "pedestals",
                                              "unlikely_gains",
                                              "many_outliers",
                                              "at_the_edge",
                                              "gains_change",
                                              "other_signals",
                                              "pedestals_not_known",
                                              "stand_in_table",
                                              "error_large",
                                              "pedestals_not_checked"};
static_assert(static_cast<std::size_t>(butngain::verdict_reason::pedestals_not_checked) + 1 ==
              reasons.size());
constexpr std::array<const char*, 6> troubles{"cross_talk", "compression", "drift",
                                              "bend",       "step",        "pedestals_of_set"};
static_assert(static_cast<std::size_t>(butngain::trouble_kind::pedestals_of_set) + 1 ==
              troubles.size());

void add_four_fits(py::module_& m) {
  py::class_<gain_fit> g(m, "GainFit", "One of the four fits.");
  small_array(g, "multiplier", &gain_fit::multiplier, "(4,), up to a common factor [-]");
  small_array(g, "curve", &gain_fit::curve, "(4,): Am, k, h2, h3 of the curve that Q is of XY [-]");
  g.def_readonly("chi_square", &gain_fit::chi_square, "Sum of the squared residuals [-].");
  small_array(g, "covariance", &gain_fit::covariance,
              "(8, 8) of multipliers and curve, for a standard deviation of 1 per orbit; the held "
              "row is 0 [-]");
  g.def_readonly("singular", &gain_fit::singular, "True when the covariance means nothing.");
  g.def_readonly("steps", &gain_fit::steps, "Steps of the solver.");

  py::class_<four_fits> f(m, "FourFits", "The four fits of one BPM and what they amount to.");
  // Copies: each fit is then a record of its own, which may outlive this one.
  f.def_property_readonly(
      "held", [](const four_fits& self) { return self.held; },
      "Four GainFit; held[k] holds the gain of button k.");
  small_array(f, "gain", &four_fits::gain, "(4,): button gains, product 1 [-]");
  small_array(f, "multiplier", &four_fits::multiplier, "(4,): what corrects a reading [-]");
  small_array(f, "curve", &four_fits::curve,
              "(4,): Am, k, h2, h3 of the curve that Q is of XY [-]");
  f.def_readonly("chi_square", &four_fits::chi_square, "Mean over the fits [-].");
  f.def_property_readonly(
      "word", [](const four_fits& self) { return word_of(fit_words, self.word); },
      "'determined', 'doubtful' or 'not determined': by the fits alone.");
  f.def_readonly("reason", &four_fits::reason, "One line for people.");
  f.def_readonly("excitation", &four_fits::excitation,
                 "Smaller of sd X and sd Y over the rms residual [-].");
  f.def_readonly("uncertainty", &four_fits::uncertainty,
                 "Largest relative standard deviation of a gain [-].");
  f.def_readonly("spread", &four_fits::spread,
                 "Largest difference of a ratio of gains between the fits [-].");
  m.def(
      "fit",
      [](const py::object& readings) {
        // Outside the next line's reach: giving an array back needs the interpreter's lock.
        const taken_readings taken = take_readings(readings, "signals");
        const py::gil_scoped_release released;
        return butngain::fit(taken.view());
      },
      py::arg("signals"),
      "The four fits of one BPM's gains, from its readings alone.\n\n"
      "signals: (n, 4), buttons BI, BO, TI, TO [any unit], without nan.\nReturns FourFits.");
}

void add_judgement(py::module_& m) {
  py::class_<judgement> j(m, "Verdict", "What a set of gains is worth.");
  j.def_property_readonly(
      "word", [](const judgement& self) { return butngain::text_of(self.word); },
      "'determined', 'weak', 'suspect' or 'not determined'.");
  j.def_property_readonly(
      "reason", [](const judgement& self) { return word_of(reasons, self.reason); },
      "Why it is not 'determined': 'none', 'one_line', 'saturated_button' ...");
  // None where the library has -1, which as a subscript would be the last button.
  j.def_property_readonly(
      "button",
      [](const judgement& self) {
        return self.button < 0 ? std::nullopt : std::optional<int>{self.button};
      },
      "0..3, the button that the reason is about, or None.");
  j.def_readonly("error", &judgement::error,
                 "Standard deviation of ln(gain_k/gain_0) that the word rests on [-].");
  // What a person at a prompt types first: the word with its reason, as the program prints it.
  j.def("__str__", [](const judgement& self) { return butngain::line_of(self); });
  j.def("__repr__",
        [](const judgement& self) { return "<Verdict " + butngain::line_of(self) + ">"; });
}

void add_calibration_fit(py::module_& m) {
  py::class_<calibration_fit> c(
      m, "CalibrationFit",
      "One fit of all unknowns. Pedestals, noise and jitter in parts of the median signal.");
  c.def_property_readonly(
      "kind", [](const calibration_fit& self) { return word_of(fit_kinds, self.kind); },
      "'free' (every orbit's intensity is free), 'steady' (it is smooth in time) or 'wide' (that, "
      "with pedestals left open).");
  c.def_readonly("differences", &calibration_fit::differences,
                 "The current was taken for a random walk.");
  small_array(c, "gain", &calibration_fit::gain, "(4,): button gains, product 1 [-]");
  // Of logarithms: a ratio of gains is a difference there, and its variance a sum of four entries.
  small_array(c, "covariance", &calibration_fit::covariance, "(4, 4) of ln gain [-]");
  small_array(c, "noise_covariance", &calibration_fit::noise_covariance,
              "(4, 4): the part of it that the noise makes [-]");
  c.def_readonly("error", &calibration_fit::error,
                 "Largest standard deviation of ln(gain_k/gain_0) [-].");
  c.def_readonly("noise_error", &calibration_fit::noise_error, "The same of noise_covariance [-].");
  small_array(
      c, "pedestal", &calibration_fit::pedestal,
      "(4,): what a button reads without beam, as far as the model can tell [median signal]");
  small_array(c, "pedestal_covariance", &calibration_fit::pedestal_covariance,
              "(4, 4) of the pedestals [median signal, squared]");
  c.def_readonly("noise", &calibration_fit::noise, "rms of one reading [median signal].");
  c.def_readonly("noise_v", &calibration_fit::noise_v,
                 "rms of the intensity's residuals; 0 when it is free [median signal].");
  c.def_readonly("jitter", &calibration_fit::jitter,
                 "rms of the intensity about its course; 0 when it is free [median signal].");
  c.def_readonly("chi_square", &calibration_fit::chi_square,
                 "Residuals over the noise, squared and summed [-].");
  c.def_readonly("chi_square_v", &calibration_fit::chi_square_v,
                 "The same of the intensity's residuals; 0 when it is free [-].");
  c.def_readonly("persistence", &calibration_fit::persistence,
                 "Autocorrelation of the intensity's residuals from orbit to orbit, -1..1 [-].");
  c.def_readonly("chamber", &calibration_fit::chamber,
                 "Ten allowances for what a drawing leaves open of a chamber [-].");
  c.def_readonly(
      "current", &calibration_fit::current,
      "Two allowances, in x and y over half the chamber's height, for a current that follows "
      "the position [-].");
  c.def_readonly("orbits", &calibration_fit::orbits, "Orbits that took part.");
  c.def_readonly("outliers", &calibration_fit::outliers, "Orbits that were left out.");
  c.def_readonly("intensity_outliers", &calibration_fit::intensity_outliers,
                 "Orbits of which only the intensity was left out.");
  c.def_readonly("at_edge", &calibration_fit::at_edge,
                 "Orbits held back by the edge of the table.");
  c.def_readonly("steps", &calibration_fit::steps, "Steps that it took; 40 at most.");
  c.def_readonly("converged", &calibration_fit::converged,
                 "False: what stands here is where the steps ended.");
}

// A field of every orbit: a view into the record, no copy. The places stand in records, so the
// columns have strides, which numpy does not mind.
template <class T>
void of_orbits(py::class_<calibration>& c, const char* name, T butngain::orbit_place::*field,
               const char* doc) {
  c.def_property_readonly(
      name,
      [field](const py::object& self) {
        const auto& place = self.cast<const calibration&>().place;
        // Of no orbits the address means nothing, but there must be one.
        static const T nothing{};
        const T* first = place.empty() ? &nothing : &(place.front().*field);
        return view_of(first, {static_cast<py::ssize_t>(place.size())},
                       {py::ssize_t{sizeof(butngain::orbit_place)}}, self);
      },
      doc);
}

void add_calibration(py::module_& m) {
  // First the parts, so that the signatures of this class name them.
  add_judgement(m);
  add_calibration_fit(m);
  py::class_<calibration> c(m, "Calibration", "The outcome of calibrate() for one BPM.");
  c.def_readonly("verdict", &calibration::verdict, "Verdict: what the gains are worth, and why.");
  small_array(c, "gain", &calibration::gain,
              "(4,): button gains t, product 1; a reading is t times the signal [-]");
  // A property, for the record says only which: the fit itself stands in one of the next three.
  c.def_property_readonly(
      "chosen", [](const calibration& self) { return butngain::chosen_fit(self); },
      "The CalibrationFit that the gains are from.");
  c.def_readonly("free", &calibration::free, "Fit with every orbit's intensity free.");
  c.def_readonly("steady", &calibration::steady, "Fit with an intensity that is smooth in time.");
  c.def_readonly("wide", &calibration::wide, "The same with pedestals left open.");
  c.def_readonly("median_signal", &calibration::median_signal,
                 "Median of the four-signal sum, over 4 [unit of the signals].");
  c.def_readonly("pedestal_chi", &calibration::pedestal_chi,
                 "How far the pedestals are beyond sigma_p; 20 is too far [-].");
  c.def_readonly("slope_chi", &calibration::slope_chi,
                 "How far the slopes of the current are beyond what is usual [-].");
  c.def_readonly("moved_gains", &calibration::moved_gains,
                 "Largest change of ln(gain ratio) in time that stands out [-].");
  c.def_readonly("moved_sigma", &calibration::moved_sigma,
                 "Root of the chi-square that speaks for it [-].");
  c.def_property_readonly(
      "trouble",
      [](const calibration& self) {
        // Dicts, of which pandas makes a table: nobody asks for these one by one.
        py::list all;
        for (const butngain::trouble_size& t : self.trouble) {
          py::dict one;
          one["kind"] = word_of(troubles, t.kind);
          one["which"] = t.which;
          one["size"] = t.size;
          one["chi_square"] = t.chi_square;
          one["freedom"] = t.freedom;
          one["shift"] = t.shift;
          all.append(one);
        }
        return all;
      },
      "What else the readings were asked for: dicts of kind, which (button or data set, from 0), "
      "size (part, change of a gain ratio, or pedestal in parts of the median signal), chi_square "
      "(by how much it betters the fit) and its freedom, shift (what it does to a gain ratio at "
      "most); all [-].");
  c.def_readonly("mechanical_error", &calibration::mechanical_error,
                 "From the tolerance of the buttons' places; 0: unknown [-].");
  of_orbits(c, "x", &butngain::orbit_place::x, "float64 (n,): places, outward [m]");
  of_orbits(c, "y", &butngain::orbit_place::y, "float64 (n,): places, up [m]");
  of_orbits(c, "intensity", &butngain::orbit_place::intensity,
            "float64 (n,): signal of a centred beam on a button of gain 1 [unit of the signals]");
  of_orbits(c, "residual", &butngain::orbit_place::residual,
            "float64 (n,): what the orbit says about the BPM alone [median signal]");
  of_orbits(c, "used", &butngain::orbit_place::used,
            "bool (n,): False for outliers and unusable readings");
  // None where no fits were asked for; so the two behind them.
  c.def_readonly("fits", &calibration::fits, "FourFits of the same readings, or None.");
  c.def_readonly("fits_differ", &calibration::fits_differ,
                 "Largest |ln ratio| between the fits' gains and these [-].");
  c.def_readonly("fits_verdict", &calibration::fits_verdict,
                 "Verdict on the fits' gains, or None.");
  c.def("__repr__", [](const calibration& self) {
    return "<Calibration " + butngain::line_of(self.verdict) + ">";
  });
}

/// The settings that one and many calibrations share. In the order of the library's record, which
/// they are put into by place.
struct settings {
  std::vector<int> sets;
  bool exact_table, own_table, fits;
  double sigma_p, half_height, tolerance;
};

butngain::calibration_input input_of(std::span<const signals> readings, const settings& s,
                                     const butngain::table& table) {
  return {readings,  s.sets,        table,       s.exact_table, s.own_table,
          s.sigma_p, s.half_height, s.tolerance, s.fits};
}

settings settings_of(const std::optional<std::vector<int>>& sets, bool exact_table, bool own_table,
                     double sigma_p, double half_height, double tolerance, bool fits) {
  return {sets.value_or(std::vector<int>{}),
          exact_table,
          own_table,
          fits,
          sigma_p,
          half_height,
          tolerance};
}

// The arguments of settings_of, as Python names them. By name only: of four numbers in a row nobody
// remembers which is which.
template <class... more>
void def_calibration(py::module_& m, const char* name, auto procedure, const char* doc,
                     const more&... arguments) {
  m.def(name, procedure, py::arg("signals"), py::arg("table"), py::kw_only(),
        py::arg("sets") = py::none(), py::arg("exact_table") = false, py::arg("own_table") = true,
        py::arg("sigma_p") = butngain::pedestals_left_in, py::arg("half_height") = 0.0,
        py::arg("tolerance") = 0.0, py::arg("fits") = true, arguments..., doc);
}

using set_starts = std::optional<std::vector<int>>;

calibration calibrate(const py::object& readings, const butngain::table& table,
                      const set_starts& sets, bool exact_table, bool own_table, double sigma_p,
                      double half_height, double tolerance, bool fits) {
  const taken_readings taken = take_readings(readings, "signals");
  const settings s =
      settings_of(sets, exact_table, own_table, sigma_p, half_height, tolerance, fits);
  const py::gil_scoped_release released;
  return butngain::calibrate(input_of(taken.view(), s, table));
}

std::vector<calibration> calibrate_many(const py::sequence& readings, const py::object& table,
                                        const set_starts& sets, bool exact_table, bool own_table,
                                        double sigma_p, double half_height, double tolerance,
                                        bool fits, unsigned threads, const py::object& callback) {
  // All are looked at before the first is fitted: a wrong one ends the call at once, not after
  // minutes, and the arrays stay in these lists while the lock is given up.
  std::vector<taken_readings> taken;
  std::vector<butngain::table> tables;
  const bool one_table = py::isinstance<butngain::table>(table);
  for (std::size_t i = 0; i < readings.size(); ++i) {
    taken.push_back(take_readings(readings[i], "signals[" + std::to_string(i) + "]"));
    if (one_table) tables.push_back(table.cast<butngain::table>());
  }
  // A list of tables is taken whole: one that is none is named by Python's own message.
  if (!one_table) tables = table.cast<std::vector<butngain::table>>();
  if (tables.size() != taken.size()) {
    throw py::value_error("table: expected one, or " + std::to_string(taken.size()) +
                          " as there are signals, found " + std::to_string(tables.size()));
  }
  const settings s =
      settings_of(sets, exact_table, own_table, sigma_p, half_height, tolerance, fits);
  std::vector<butngain::calibration_input> inputs;
  for (std::size_t i = 0; i < taken.size(); ++i) {
    inputs.push_back(input_of(taken[i].view(), s, tables[i]));
  }
  const auto tell = progress_of(callback);
  const py::gil_scoped_release released;
  return butngain::calibrate_many(inputs, threads, tell);
}

}  // namespace

void add_fits(py::module_& m) {
  add_four_fits(m);
  add_calibration(m);
  def_calibration(
      m, "calibrate", &calibrate,
      "Gains and pedestals of one BPM against the table of its chamber, with a verdict.\n\n"
      "signals: (n, 4) in time order, buttons BI, BO, TI, TO [any unit], without nan\n"
      "table: Table of the chamber\n"
      "sets: first orbit (from 0) of every data set, ascending; None: all are one set\n"
      "exact_table: no allowances, as for simulations with the same table\n"
      "own_table: False for a stand-in that is not the table of this chamber\n"
      "sigma_p: rms of what the pedestals may still be [median signal]: 0.01, or 3e-4 when they\n"
      "    were subtracted\n"
      "half_height: of the chamber [m]; 0: worked out from the table\n"
      "tolerance: of the buttons' places along the wall [m]; 0: unknown\n"
      "fits: make the four fits too, and judge their gains beside\n"
      "Returns Calibration.");
  def_calibration(
      m, "calibrate_many", &calibrate_many,
      "calibrate() of many BPMs on several threads.\n\n"
      "signals: one (n, 4) array for each BPM; table: one Table, or one for each BPM\n"
      "threads: 0: one for each processor\n"
      "progress(done, of), if given, is called as BPMs are done; False, or Ctrl-C, ends the work\n"
      "    when the BPMs in hand are done\n"
      "The rest as calibrate(). Returns a list of Calibration.",
      py::arg("threads") = 0U, py::arg("progress") = py::none());
}

}  // namespace binding
