#include "cpu_level.h"

namespace zeva {

CpuLevel best_cpu_level() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx2")) return CpuLevel::Avx2;
  if (__builtin_cpu_supports("sse4.1")) return CpuLevel::Sse41;
#endif
  return CpuLevel::Plain;
}

}  // namespace zeva
