// The platform's memory functions for one size of block without any header: what a packing
// allocator is worth. Map and node records are of one size on 64-bit machines.

#include <cstdlib>
#include <new>

#include "hal/hal_memory.h"

namespace {

constexpr unsigned long block_size = 40;
constexpr unsigned long blocks_at_once = 4096;

struct FreeBlock {
    FreeBlock* next;
};

FreeBlock* released = nullptr;
char* fresh = nullptr;
char* fresh_end = nullptr;

}  // namespace

void* HAL_Malloc(unsigned long size) {
    if (size > block_size) {
        return nullptr;
    }
    if (released != nullptr) {
        FreeBlock* const block = released;
        released = block->next;
        return block;
    }
    if (fresh == fresh_end) {
        fresh = static_cast<char*>(std::malloc(block_size * blocks_at_once));
        fresh_end = fresh != nullptr ? fresh + block_size * blocks_at_once : nullptr;
        if (fresh == nullptr) {
            return nullptr;
        }
    }
    void* const block = fresh;
    fresh += block_size;
    return block;
}

void HAL_Free(void* ptr) {
    released = new (ptr) FreeBlock{released};
}
