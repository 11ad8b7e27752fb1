// The kernels for every processor of the family: two orbits at a time, which x86-64 and 64-bit ARM
// all have instructions for.
#include "gain_batch_kernel.hpp"

namespace gain_fit_mod {

const batch_kernels generic_kernels{.name = "generic",
                                    .chi_square = gain_kernels<2>::chi_square,
                                    .products = gain_kernels<2>::products};

}  // namespace gain_fit_mod
