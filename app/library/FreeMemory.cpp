#include "library/FreeMemory.h"

#include <cstdlib> // defines __GLIBC__ where the C library is glibc

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace quillet {

void returnFreeMemory() {
#if defined(__GLIBC__)
    ::malloc_trim(0);
#endif
}

} // namespace quillet
