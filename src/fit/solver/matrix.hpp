// A matrix of the solver: row after row in one piece of memory, subscripts from 1.
#pragma once
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "bounded.hpp"

namespace solver {

/// Rows by columns, all zero when made. A subscript outside ends the run under the matrix's name.
struct matrix {
  matrix(std::string_view matrix_name, int n_rows, int n_columns)
      : name(matrix_name), rows(n_rows), columns(n_columns), item(size_of(n_rows, n_columns)) {}

  double& operator()(int row, int column) { return item[offset(row, column)]; }
  const double& operator()(int row, int column) const { return item[offset(row, column)]; }

  /// One row, its number checked once.
  std::span<double> row(int r) { return {&item[offset(r, 1)], static_cast<std::size_t>(columns)}; }
  std::span<const double> row(int r) const {
    return {&item[offset(r, 1)], static_cast<std::size_t>(columns)};
  }

  /// Gives it another shape; what it held is lost.
  void reshape(int n_rows, int n_columns) {
    rows = n_rows;
    columns = n_columns;
    item.assign(size_of(n_rows, n_columns), 0.0);
  }

  std::string_view name;
  int rows;
  int columns;
  std::vector<double> item;

 private:
  static std::size_t size_of(int n_rows, int n_columns) {
    return static_cast<std::size_t>(n_rows) * static_cast<std::size_t>(n_columns);
  }
  std::size_t offset(int row, int column) const {
    if (row < 1 || row > rows) util::subscript_error(name, row, 1, rows, 1);
    if (column < 1 || column > columns) util::subscript_error(name, column, 1, columns, 2);
    return size_of(row - 1, columns) + static_cast<std::size_t>(column - 1);
  }
};

}  // namespace solver
