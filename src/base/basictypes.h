/**
 * @file basictypes.h
 * Callback types shared by the containers of the base layer.
 *
 * C and C++ callers use the same types: all of them have C linkage.
 */
#ifndef QV_BASE_BASICTYPES_H
#define QV_BASE_BASICTYPES_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Orders two keys: negative when `key` sorts before `stored_key`, zero when they are equal,
 * positive when `key` sorts after it. The key searched or inserted always comes first, the key
 * that the container holds second.
 */
typedef int32_t (*qv_comparator_pt)(const void* key, const void* stored_key);

/** Releases a key or a value that the container drops. */
typedef void (*qv_dtor_pt)(void* object);

/** Returns a duplicate of a key or a value. */
typedef void* (*qv_copy_pt)(void* object);

/** Visits one entry; `user_data` is the caller's own. True ends the walk. */
typedef bool (*qv_key_value_pt)(void* key, void* value, void* user_data);

#ifdef __cplusplus
}
#endif

#endif /* QV_BASE_BASICTYPES_H */
