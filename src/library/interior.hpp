// interior: what the library's handles hold, and how faults of the rooms below become exceptions.
#pragma once
#include <memory>
#include <mutex>
#include <utility>

#include "beam_run.hpp"
#include "butngain/error.hpp"
#include "butngain/fit.hpp"
#include "butngain/table.hpp"
#include "chamber_file.hpp"
#include "fault.hpp"
#include "four_fits.hpp"
#include "lookup_table.hpp"

namespace butngain {

struct chamber_contents {
  chamber_solver::chamber drawn;
  // Solved at the first simulation: 0.2 s for a chamber that is not round, and tables solve it in
  // another way.
  mutable std::once_flag once;
  mutable std::shared_ptr<const sim::solved_chamber> solved;
};

struct table_contents {
  nonlin_bpm_mod::table_struct table;
};

[[noreturn]] inline void throw_fault(error_kind kind, const util::fault& fault) {
  throw error(kind, fault.what, fault.where, fault.expected);
}

[[noreturn]] inline void throw_argument(const std::string& name, const std::string& what,
                                        const std::string& expected = {}) {
  throw error(error_kind::argument, what, name, expected);
}

/// The value of an outcome, or its fault as an exception.
template <class T>
T value_of(util::outcome<T>&& made, error_kind kind) {
  if (!made) throw_fault(kind, made.why);
  return std::move(*made);
}

/// The contents of a handle. Errors argument: it has none.
template <class handle>
const auto& contents_of(const handle& h, const char* argument) {
  if (!h.contents) throw_argument(argument, "has no contents", "one that was read or made");
  return *h.contents;
}

/// The solved chamber of a handle, whichever thread asks first.
std::shared_ptr<const sim::solved_chamber> solved_of(const chamber& c);

/// The same numbers with the bounds of the rooms below.
template <class bounded>
bounded bounded_of(const four& from) {
  return {from};
}

/// Both faces of one set of fits.
four_fits public_fits(std::span<const gain_fit_mod::signals> readings,
                      const gain_fit_mod::four_fits& fits);

/// The readings as the fits take them.
std::vector<gain_fit_mod::signals> copied(std::span<const signals> readings);

/// Tells progress. Errors stopped; what the procedure throws passes through.
inline void tell_progress(const progress& tell, std::size_t done, std::size_t of) {
  if (tell && !tell(done, of)) throw error(error_kind::stopped, "stopped", "progress");
}

}  // namespace butngain
