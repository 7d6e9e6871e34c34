// The loops of kernels.inc built for AVX2; used only where the processor
// has it.
#include "kernels.h"

#include <cstddef>
#include <cstdint>

namespace arraylens::kernels::avx2 {
#include "kernels.inc"
} // namespace arraylens::kernels::avx2
