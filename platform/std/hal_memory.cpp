// The platform's memory functions over the standard allocator.

#include "hal/hal_memory.h"

#include <cstdlib>

void* HAL_Malloc(unsigned long size) {
    return std::malloc(size);
}

void HAL_Free(void* ptr) {
    std::free(ptr);
}
