// The instruction sets that the pixel kernels come in.
#pragma once

namespace zeva {

// In ascending order: a processor that has one has those before it, too. All give the same bytes.
enum class CpuLevel { Plain, Sse41, Avx2 };

// The best one that this processor and its operating system have.
CpuLevel best_cpu_level();

}  // namespace zeva
