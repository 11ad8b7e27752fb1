// lookup_table: one table in memory, as the interpolation and the position fit read it.
//
// A plain record, knowing nothing of the tables and BPMs of a run (nonlin_bpm_mod.hpp holds those):
// who is handed one evaluates it with cell_kernel.hpp, on any thread.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "bounded.hpp"

namespace nonlin_bpm_mod {

/// Four doubles, one per button, that one instruction handles together. The alignment is written out:
/// left alone it would be 16 in most of the program and 32 where four lanes are used.
using four [[gnu::vector_size(32), gnu::aligned(32)]] = double;
struct lanes {
  four v{};  ///< buttons 1..4 at [0]..[3]
};

/// What a table knows of one button at one node, and in the cell whose lower left corner it is.
struct button_struct {
  double phi = 0;                               ///< signal [1]; 0 at a node outside the usable area
  util::bounded2<double, 1, 4, 1, 4, "c"> c{};  ///< bicubic coefficients, first index in x
  double dphi_dx = 0;                           ///< [1/m]
  double dphi_dy = 0;                           ///< [1/m]
};

/// The four button_struct of a node, kept side by side so that the interpolation reads the same
/// coefficient of all buttons at once.
struct button_lanes {
  std::array<lanes, 16> c{};  ///< c(i, j) at 4 (i - 1) + j - 1; all zero in a cell without data
  lanes phi, dphi_dx, dphi_dy;
  button_struct operator()(int button) const;
  void set(int button, const button_struct& value);
};

/// Begins with a line of the cache, so that the coefficients of a cell fill eight of them: read in
/// any order, a large table is a wait for each line.
struct alignas(64) grid_struct {
  button_lanes b;
  /// Linear answer at the node: response_mat times (outer - inner, top - bottom, sum) of the
  /// readings gives (scale dx, scale dy, scale). Zero where the node is not usable.
  util::bounded2<double, 1, 3, 1, 3, "response_mat"> response_mat{};
  int ix_max_phi = 0;   ///< button with the largest phi, 1..4; 0 where the node is not usable
  int ix_max2_phi = 0;  ///< button with the second largest phi; the lower number wins a tie
};

/// Array with bounds 1..size, known only when the table is read.
template <class T, util::label name>
struct counted {
  std::vector<T> item;
  int size() const { return static_cast<int>(item.size()); }
  T& operator()(int i) { return item[offset(i)]; }
  const T& operator()(int i) const { return item[offset(i)]; }
  std::size_t offset(int i) const {
    if (i < 1 || i > size()) util::subscript_error(name.view(), i, 1, size());
    return static_cast<std::size_t>(i) - 1;
  }
};

/// nx by ny nodes; ix runs fastest in memory.
struct node_grid {
  int nx = 0;
  int ny = 0;
  std::vector<grid_struct> item;
  grid_struct& operator()(int ix, int iy) { return item[offset(ix, iy)]; }
  const grid_struct& operator()(int ix, int iy) const { return item[offset(ix, iy)]; }
  std::size_t offset(int ix, int iy) const {
    if (ix < 1 || ix > nx) util::subscript_error("grid", ix, 1, nx, 1);
    if (iy < 1 || iy > ny) util::subscript_error("grid", iy, 1, ny, 2);
    return (static_cast<std::size_t>(iy) - 1) * static_cast<std::size_t>(nx) +
           static_cast<std::size_t>(ix) - 1;
  }
};

/// Direction cosines of phi at eight start nodes, by button: [k][i]. Single precision is plenty to
/// choose a start; eight of them are what a wide processor compares at once.
using eight_floats [[gnu::vector_size(32), gnu::aligned(32)]] = float;
struct start_group {
  static constexpr std::size_t size = 8;
  static constexpr std::size_t abreast =
      4;  ///< groups come in fours: so many are looked at at once
  struct cosines {
    eight_floats v{};
  };
  std::array<cosines, 4> f{};
};

/// Where to look for the start node of a reading of four buttons: the same node that a look at all
/// of them finds, among a few.
///
/// With signals of sum 1, outer - inner, top - bottom and the skew (the diagonal 1, 4 minus the
/// other) say all about a reading. The first two, -1..1 each, choose one of side x side buckets;
/// a bucket's list holds every node that can be the nearest of a reading with a skew in its range.
struct start_map {
  static constexpr int side = 64;
  static constexpr std::size_t abreast = 4;  ///< lists come in fours: so many are looked at at once
  struct bucket {
    double low_skew = 1, high_skew = -1;  ///< the list holds in between; low > high: nowhere
    std::uint32_t first = 0;              ///< of the list, in `node`
    std::uint32_t count = 0;              ///< of nodes, copies of the last to whole fours included
  };
  std::vector<bucket> buckets;               ///< the second difference runs slower
  std::vector<std::uint32_t> node;           ///< numbers of start nodes, ascending in each list
  std::vector<std::array<float, 4>> cosine;  ///< by start node: as in `cosines`, all buttons
};

struct table_struct {
  counted<double, "table x"> x;  ///< grid positions [m], ascending in equal steps
  counted<double, "table y"> y;
  node_grid grid;         ///< node (ix, iy) serves the cell up to (ix+1, iy+1)
  double x_per_step = 0;  ///< nodes per metre: where a search in x begins
  double y_per_step = 0;
  std::vector<std::array<int, 2>> start;  ///< nodes (ix, iy) from which a fit may start
  /// Of the start nodes, in their order; [b] leaves button b out, [0] none. Copies of the last node
  /// fill the last group.
  std::array<std::vector<start_group>, 5> cosines;
  start_map near;
};

}  // namespace nonlin_bpm_mod
