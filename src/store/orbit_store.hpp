// The orbit store: the button signals of every beam passage ("orbit") at every BPM.
//
// It reads as orbit_data(orbit).detector(bpm), orbits 1..3000 and BPMs 0..5000, but memory is laid
// per BPM: the orbits of one BPM stand one after the other (a column), because everything that
// takes time walks the orbits of one BPM. A column comes into being, all zeros, when its BPM is
// first written; its pages are touched only where data are put, so memory follows what is loaded,
// not the declared bounds. Reading what was never written gives zeros and allocates nothing.
#pragma once
#include <array>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "bounded.hpp"

namespace store {

inline constexpr int max_orbits = 3000;  ///< orbits 1..max_orbits
inline constexpr int max_bpm = 5000;     ///< BPM indices 0..max_bpm

/// One beam passage at one BPM.
struct bpm_struct {
  util::bounded<double, 1, 4, "button"> button{};        ///< signals BI, BO, TI, TO [ADC counts]
  double x = 0;                                          ///< horizontal position [m]
  double y = 0;                                          ///< vertical position [m]
  double phase_h = 0;                                    ///< horizontal shaker phase [rad]
  double phase_v = 0;                                    ///< vertical shaker phase [rad]
  util::bounded<double, 1, 4, "true_gain"> true_gain{};  ///< known for synthetic data only [-]
};
static_assert(sizeof(bpm_struct) == 96);

struct orbit_store;

/// One orbit seen across all BPMs; a view, valid as long as the store.
struct orbit_struct {
  const orbit_store* of;
  int orbit;
  /// The reading of this orbit at a BPM; zeros when never written.
  const bpm_struct& detector(int bpm) const;
  /// Beam current of this orbit [mA]; 1.0 where the source does not give one.
  double current() const;
};

/// A store of one name. The name is what a bounds error calls it.
struct orbit_store {
  explicit orbit_store(std::string_view store_name) : name(store_name) {}

  /// A view of one orbit, for reading. Errors: orbit outside 1..3000 ends the run.
  orbit_struct operator()(int orbit) const;

  /// The reading of an orbit at a BPM, for writing; makes the BPM's column if it is not there yet.
  /// Errors: orbit outside 1..3000 or BPM outside 0..5000 ends the run.
  bpm_struct& edit(int orbit, int bpm);

  /// Beam current of one orbit, for writing. Errors: as above.
  double& edit_current(int orbit);

  /// Orbits 1..norbits of one BPM, one after the other, for reading: bounds are checked here, once.
  /// A BPM never written gives an empty span whatever norbits is.
  std::span<const bpm_struct> column(int bpm, int norbits) const;

  /// The same for writing; makes the column if it is not there yet.
  std::span<bpm_struct> edit_column(int bpm, int norbits);

  /// Whether anything was ever written for this BPM.
  bool holds(int bpm) const;

  /// Takes over another store's column of a BPM, replacing its own; the other is left without.
  void take_column(orbit_store& from, int bpm);

  /// Forgets everything.
  void clear();

  std::string_view name;
  struct free_memory {
    void operator()(bpm_struct* column) const;
  };
  using column_memory = std::unique_ptr<bpm_struct[], free_memory>;  // NOLINT(*-c-arrays)
  std::vector<column_memory> columns;  ///< by BPM index; short until needed
  util::bounded<double, 1, max_orbits, "orbit_data%current"> current_of{};
};

}  // namespace store
