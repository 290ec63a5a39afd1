// The platform's memory functions over the standard allocator.

#include <qv/base/hal/hal_memory.h>

#include <stdlib.h>

void* HAL_Malloc(unsigned long size) {
    return malloc(size);
}

void HAL_Free(void* ptr) {
    free(ptr);
}
