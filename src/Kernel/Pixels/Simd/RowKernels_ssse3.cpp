#define RV_SIMD ssse3
#define RV_VECTOR_BYTES 16
#include "Kernel/Pixels/Simd/RowKernels_inl.h"
