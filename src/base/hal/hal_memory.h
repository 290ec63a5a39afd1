/**
 * @file hal_memory.h
 * The two memory functions that a platform supplies to the base layer.
 *
 * The library declares and calls them; the platform, or the program, defines them with C linkage.
 * Neither may use the map that called it, throw an exception or call longjmp(). Several threads
 * that use different maps, or copy from the same one, call them at the same time.
 */
#ifndef QV_BASE_HAL_MEMORY_H
#define QV_BASE_HAL_MEMORY_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Returns a writable block of at least `size` bytes, aligned for a structure of pointers, or NULL
 * when there is no memory. `size` is never 0. The content of the block does not matter.
 */
void* HAL_Malloc(unsigned long size);

/** Takes back one block that HAL_Malloc returned. The library never passes NULL. */
void HAL_Free(void* ptr);

#ifdef __cplusplus
}
#endif

#endif /* QV_BASE_HAL_MEMORY_H */
