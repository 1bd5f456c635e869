#define RV_SIMD base
#define RV_VECTOR_BYTES 8
#include "Kernel/Pixels/Simd/RowKernels_inl.h"
