// The two levels of row_kernels_impl.h.
#pragma once

#include "row_kernels.h"

namespace zeva {

extern const RowKernels kSse41Kernels;
extern const RowKernels kAvx2Kernels;

}  // namespace zeva
