#include "row_kernels.h"

#if defined(__x86_64__)
#include "row_kernels_x86.h"
#endif

namespace zeva {

const RowKernels* row_kernels(CpuLevel level) {
#if defined(__x86_64__)
  if (level == CpuLevel::Avx2) return &kAvx2Kernels;
  if (level == CpuLevel::Sse41) return &kSse41Kernels;
#endif
  (void)level;
  return nullptr;
}

}  // namespace zeva
