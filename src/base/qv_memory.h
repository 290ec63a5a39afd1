/**
 * @file qv_memory.h
 * Zeroed allocation on top of the platform's memory functions, for the base layer's own sources.
 */
#ifndef QV_BASE_QV_MEMORY_H
#define QV_BASE_QV_MEMORY_H

#include <limits.h>
#include <stddef.h>
#include <string.h>

#include "hal/hal_memory.h"

/**
 * Returns a block of `size` bytes, all zero, from HAL_Malloc, or NULL when there is no memory.
 * The caller releases it with HAL_Free. `size` must not be 0.
 */
static inline void* qv_zalloc(size_t size) {
    // HAL_Malloc cannot be asked for more, where size_t is wider.
    const bool fits = size <= ULONG_MAX;
    void* const block = fits ? HAL_Malloc(static_cast<unsigned long>(size)) : nullptr;
    if (block != nullptr) {
        memset(block, 0, size);
    }
    return block;
}

#endif  // QV_BASE_QV_MEMORY_H
