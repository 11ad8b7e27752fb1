#include "arrays.hpp"

#include <cmath>

namespace binding {
namespace {

[[noreturn]] void wrong(const std::string& name, const std::string& what) {
  throw py::value_error(name + ": " + what);
}

// As numpy writes it, which is what the caller has seen before.
std::string shape_text(const py::array& array) {
  return py::str(static_cast<py::object>(array.attr("shape"))).cast<std::string>();
}

// Numbers of any kind; a list of lists of unequal lengths, texts and objects are none.
real_array take_numbers(const py::object& from, const std::string& name) {
  py::array any;
  // By numpy's own conversion, so that everything counts as an array that numpy takes for one; its
  // refusals come in many kinds, and the caller is promised one that names the argument.
  try {
    any = py::module_::import("numpy").attr("asarray")(from).cast<py::array>();
  } catch (const py::error_already_set& refused) {
    wrong(name, std::string{"no array: "} + py::str(refused.value()).cast<std::string>());
  }
  // Not what merely converts: bools and texts of digits would pass for signals.
  const char kind = any.dtype().kind();
  if (kind != 'i' && kind != 'u' && kind != 'f') {
    wrong(name, "expected numbers, found dtype " +
                    py::str(static_cast<py::object>(any.dtype())).cast<std::string>());
  }
  return real_array(any);
}

// The first one is told by its place: in a run of 100000 turns "contains nan" helps nobody.
void check_finite(const real_array& array, const std::string& name) {
  const double* value = array.data();
  for (py::ssize_t i = 0; i < array.size(); ++i) {
    if (std::isfinite(value[i])) continue;
    const py::ssize_t columns = array.ndim() == 2 ? array.shape(1) : 1;
    std::string place = std::to_string(i / columns);
    if (array.ndim() == 2) place += ", " + std::to_string(i % columns);
    wrong(name, "[" + place + "] is " + (std::isnan(value[i]) ? "nan" : "infinite"));
  }
}

}  // namespace

taken_readings take_readings(const py::object& from, const std::string& name) {
  taken_readings taken{take_numbers(from, name)};
  if (taken.array.ndim() != 2 || taken.array.shape(1) != 4) {
    wrong(name, "expected shape (n, 4), found " + shape_text(taken.array));
  }
  check_finite(taken.array, name);
  return taken;
}

four take_four(const py::object& from, const std::string& name, const four& before) {
  if (from.is_none()) return before;
  const real_array taken = take_numbers(from, name);
  if (taken.ndim() != 1 || taken.shape(0) != 4) {
    wrong(name, "expected four numbers, found shape " + shape_text(taken));
  }
  four values{};
  for (std::size_t k = 0; k < 4; ++k) {
    values[k] = taken.data()[k];
    // No more than that: an infinite full scale means that there is none.
    if (std::isnan(values[k])) wrong(name, "[" + std::to_string(k) + "] is nan");
  }
  return values;
}

real_array take_column(const py::object& from, const std::string& name) {
  // Copied where it has to be converted, else looked at where it stands.
  real_array taken = take_numbers(from, name);
  // One number is a column of one, as numpy's own procedures see it.
  if (taken.ndim() == 0) taken = real_array(taken.attr("reshape")(1));
  if (taken.ndim() != 1) wrong(name, "expected shape (n,), found " + shape_text(taken));
  check_finite(taken, name);
  return taken;
}

py::array array_of(std::vector<signals>&& readings) {
  // Handed over, not copied; the capsule gives the vector back when the last array on it is gone.
  auto kept = std::make_unique<std::vector<signals>>(std::move(readings));
  const auto n = static_cast<py::ssize_t>(kept->size());
  const double* first = kept->empty() ? nullptr : kept->front().data();
  py::capsule owner(kept.get(), [](void* v) { delete static_cast<std::vector<signals>*>(v); });
  // Only now, when the capsule stands: an exception before it must not lose the memory.
  kept.release();
  constexpr py::ssize_t item = sizeof(double);
  return py::array_t<double>({n, py::ssize_t{4}}, {4 * item, item}, first, owner);
}

py::array array_of(const four& values) {
  py::array_t<double> made(4);
  for (std::size_t k = 0; k < 4; ++k) made.mutable_at(k) = values[k];
  return made;
}

butngain::progress progress_of(const py::object& callback) {
  return [callback](std::size_t done, std::size_t of) {
    const py::gil_scoped_acquire held;
    // The interpreter notes Ctrl-C and would act on it behind this call: hours later, of long work.
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    if (callback.is_none()) return true;
    const py::object answer = callback(done, of);
    return answer.is_none() || answer.cast<bool>();
  };
}

}  // namespace binding
