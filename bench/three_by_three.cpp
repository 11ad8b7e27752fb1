// The inverse of the linear answers at a table's nodes, in place of LAPACK's, whose last bits are its
// builder's choice: for programs that compare bits.
#include <cstddef>

#include "linear_algebra.hpp"

namespace linear_algebra {

// A table asks for nothing but three by three.
bool invert_matrix(std::span<double> a, int /*n*/) {
  const double m00 = a[4] * a[8] - a[5] * a[7];
  const double m01 = a[5] * a[6] - a[3] * a[8];
  const double m02 = a[3] * a[7] - a[4] * a[6];
  const double determinant = (a[0] * m00 + a[1] * m01) + a[2] * m02;
  const double inverse[] = {m00, a[2] * a[7] - a[1] * a[8], a[1] * a[5] - a[2] * a[4],
                            m01, a[0] * a[8] - a[2] * a[6], a[2] * a[3] - a[0] * a[5],
                            m02, a[1] * a[6] - a[0] * a[7], a[0] * a[4] - a[1] * a[3]};
  for (std::size_t i = 0; i < 9; ++i) a[i] = inverse[i] / determinant;
  return determinant != 0;
}

}  // namespace linear_algebra
