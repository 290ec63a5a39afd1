/**
 * @file qv_memory.h
 * Zeroed allocation on top of the platform's memory functions.
 */
#ifndef QV_BASE_QV_MEMORY_H
#define QV_BASE_QV_MEMORY_H

#include <limits.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "hal/hal_memory.h"

/**
 * Returns a block of `size` bytes, all zero, from HAL_Malloc, or NULL when there is no memory.
 * The caller releases it with HAL_Free. `size` must not be 0.
 */
static inline void* qv_zalloc(size_t size) {
#if SIZE_MAX > ULONG_MAX
    /* Where long has 32 bits and pointers 64, HAL_Malloc cannot be asked for this. */
    if (size > ULONG_MAX) {
        return NULL;
    }
#endif
    /* The mask changes no value: it shows the compiler that the value fits. A cast would do so too,
     * but none compiles without a warning in both C and C++. */
    void* block = HAL_Malloc(size & ULONG_MAX);
    if (block != NULL) {
        memset(block, 0, size);
    }
    return block;
}

#endif /* QV_BASE_QV_MEMORY_H */
