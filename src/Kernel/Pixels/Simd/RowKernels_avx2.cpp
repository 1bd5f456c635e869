#define RV_SIMD avx2
#define RV_VECTOR_BYTES 32
#include "Kernel/Pixels/Simd/RowKernels_inl.h"
