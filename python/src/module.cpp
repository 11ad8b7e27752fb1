// The compiled part of the Python module: the library's records and procedures, with numpy arrays.
#include "arrays.hpp"

PYBIND11_MODULE(_butngain, m) {
  m.doc() = "The compiled part of butngain; import butngain instead.";
  m.attr("__version__") = butngain::version();
  // static: the translator below is called as long as the interpreter lives.
  static py::exception<butngain::error> fault(m, "Error");
  fault.doc() = "A fault in a file, or work that was stopped. Faults of arguments are ValueErrors.";
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const butngain::error& wrong) {
      // As Python's own procedures do: a caller's mistake is a ValueError, a file's fault is ours.
      if (wrong.kind == butngain::error_kind::argument) {
        PyErr_SetString(PyExc_ValueError, wrong.what());
      } else {
        fault(wrong.what());
      }
    }
  });
  // Tables before fits and simulations, whose signatures name Table and Chamber.
  binding::add_raw_files(m);
  binding::add_tables(m);
  binding::add_fits(m);
  binding::add_simulation(m);
}
