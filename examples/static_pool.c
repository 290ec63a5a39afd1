/* A program with memory functions of its own: a static pool of equal blocks, which runs out. It
 * runs on microcontrollers unchanged; examples/boards has what two of them need besides. */

#include <qv/base/hal/hal_memory.h>
#include <qv/base/qv_btree.h>
#include <stdio.h>

#define BLOCKS 50

/* A map and an entry take five pointers each; where a pointer has 16 bits, an entry takes 11 bytes.
 */
typedef union block_u {
    union block_u* next;
    void* record[6];
} block_t;

static block_t pool[BLOCKS];
static size_t used;
static block_t* released;

void* HAL_Malloc(unsigned long size) {
    block_t* block = released;
    if (size > sizeof(block_t)) {
        return NULL;
    }
    if (block != NULL) {
        released = block->next;
        return block;
    }
    return used < BLOCKS ? &pool[used++] : NULL;
}

void HAL_Free(void* ptr) {
    block_t* block = ptr;
    block->next = released;
    released = block;
}

static int32_t compare(const void* a, const void* b) {
    return (*(const int*)a > *(const int*)b) - (*(const int*)a < *(const int*)b);
}

int main(void) {
    static int keys[BLOCKS];
    int sum = 0;
    qv_btree_node_t* node;
    qv_btree_t* map = qv_btree_new(compare, NULL, NULL);
    for (int i = 0; i < BLOCKS; ++i) {
        keys[i] = i * 7 % BLOCKS;
        qv_btree_insert(map, &keys[i], &keys[i]);
    }
    printf("%d entries, then the pool was empty\n", (int)qv_btree_size(map));

    qv_btree_remove_until(map, &keys[1]);
    for (node = qv_btree_first_node(map); node != NULL; node = qv_btree_next_node(node)) {
        sum += *(int*)qv_btree_node_key(node);
    }
    printf("%d from %d on, their sum is %d\n", (int)qv_btree_size(map),
           *(int*)qv_btree_first(map, NULL), sum);

    qv_btree_insert(map, &keys[0], &keys[0]);
    printf("%d after one more, in a block that was released\n", (int)qv_btree_size(map));
    qv_btree_free(map);
    return 0;
}
