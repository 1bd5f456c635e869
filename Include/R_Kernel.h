/// The whole public interface of the kernel.
#ifndef R_KERNEL_H
#define R_KERNEL_H

#include "R_Bitmap.h"
#include "R_Colour.h"
#include "R_Files.h"
#include "R_Geometry.h"
#include "R_Lists.h"
#include "R_Modules.h"
#include "R_Rows.h"
#include "R_Services.h"
#include "R_Status.h"
#include "R_Threads.h"
#include "R_Types.h"

#endif
