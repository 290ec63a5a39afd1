/* A program with its own platform layer: a static arena, which runs out. */

#include <qv/base/hal/hal_memory.h>
#include <qv/base/qv_btree.h>
#include <stdio.h>

#define ARENA_POINTERS 500

static void* arena[ARENA_POINTERS];
static size_t used;

void* HAL_Malloc(unsigned long size) {
    const size_t pointers = (size + sizeof(void*) - 1) / sizeof(void*);
    if (pointers > ARENA_POINTERS - used) {
        return NULL;
    }
    used += pointers;
    return &arena[used - pointers];
}

void HAL_Free(void* ptr) {
    (void)ptr;
}

static int32_t compare(const void* a, const void* b) {
    return (*(const int*)a > *(const int*)b) - (*(const int*)a < *(const int*)b);
}

int main(void) {
    int keys[ARENA_POINTERS];
    size_t stored = 0;
    qv_btree_t* map = qv_btree_new(compare, NULL, NULL);
    for (int i = 0; i < ARENA_POINTERS; ++i) {
        keys[i] = i;
        qv_btree_insert(map, &keys[i], &keys[i]);
        stored += qv_btree_size(map) > stored;
    }
    printf("%d entries, then the arena was full\n", (int)stored);
    return stored > 10 && stored < ARENA_POINTERS && qv_btree_size(map) == stored &&
                   qv_btree_find(map, &keys[stored - 1]) == &keys[stored - 1] &&
                   qv_btree_find(map, &keys[stored]) == NULL
               ? 0
               : 1;
}
