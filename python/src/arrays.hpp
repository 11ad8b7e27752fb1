// arrays: numpy arrays from and to the library's spans and vectors.
//
// Nothing here imports numpy before the first array is made or taken: importing the module stays
// quick.
#pragma once
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "butngain/butngain.hpp"

namespace py = pybind11;

namespace binding {

using butngain::four;
using butngain::signals;

/// Whole-number or real arrays become doubles in one piece, aligned; what is so already is not
/// copied.
inline constexpr int one_piece = py::array::c_style | py::array::forcecast | 0x0100;
using real_array = py::array_t<double, one_piece>;

/// Readings as the library takes them, and the array that holds them.
struct taken_readings {
  real_array array;
  std::span<const signals> view() const {
    return {reinterpret_cast<const signals*>(array.data()),
            static_cast<std::size_t>(array.shape(0))};
  }
};

/// Takes an array of shape (n, 4). Errors ValueError, which names the argument: another shape,
/// no numbers, a nan or infinity.
taken_readings take_readings(const py::object& from, const std::string& name);

/// Takes one number a button; `from` None gives the value before. Errors ValueError.
four take_four(const py::object& from, const std::string& name, const four& before = {});

/// Takes an array of shape (n,). Errors ValueError.
real_array take_column(const py::object& from, const std::string& name);

/// An array that looks at memory of `owner`, which it keeps alive; it cannot be written to.
template <class T>
py::array view_of(const T* first, std::vector<py::ssize_t> shape, std::vector<py::ssize_t> strides,
                  const py::handle& owner) {
  py::array_t<T> made(std::move(shape), std::move(strides), first, owner);
  py::detail::array_proxy(made.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
  return made;
}

/// An array that takes a vector over, without a copy.
template <class T>
py::array array_of(std::vector<T>&& values) {
  auto kept = std::make_unique<std::vector<T>>(std::move(values));
  const auto n = static_cast<py::ssize_t>(kept->size());
  const T* first = kept->data();
  py::capsule owner(kept.get(), [](void* v) { delete static_cast<std::vector<T>*>(v); });
  kept.release();
  return py::array_t<T>({n}, {static_cast<py::ssize_t>(sizeof(T))}, first, owner);
}

/// The same for readings, shape (n, 4).
py::array array_of(std::vector<signals>&& readings);

/// A small array of its own, shape (4,) or (n, m).
py::array array_of(const four& values);
template <class T, std::size_t n, std::size_t m>
py::array array_of(const std::array<std::array<T, m>, n>& values) {
  py::array_t<T> made({n, m});
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < m; ++j) made.mutable_at(i, j) = values[i][j];
  }
  return made;
}

/// Calls a Python procedure (or None) with what is done, and lets Ctrl-C through.
butngain::progress progress_of(const py::object& callback);

// --- the parts of the module, in the order in which they are added

void add_raw_files(py::module_& m);
void add_tables(py::module_& m);
void add_fits(py::module_& m);
void add_simulation(py::module_& m);

}  // namespace binding
