/* The public header stands alone as C11, and its types have the promised widths. */
#include "api/hx_camera.h"

_Static_assert(sizeof(unsigned long) == 8, "container sizes are 64 bits wide");
_Static_assert(sizeof(unsigned int) == 4, "exposure values are 32 bits wide");
_Static_assert(sizeof(bool) == 1, "lamp values are one byte wide");
_Static_assert(sizeof(const char*) == 8, "the name command stores 64 bits");
