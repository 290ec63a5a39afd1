// A platform's memory functions for blocks of one size without any header: what a packing allocator
// is worth. Map and node records are of one size on 64-bit machines. For one thread; memory once
// taken is kept for further blocks.

#include <qv/base/qv_btree.h>  // which declares the two functions, with their linkage

#include <cstdlib>
#include <new>

// A use of a block after its release would go unseen in a pool: so the block is poisoned where
// AddressSanitizer is at work.
#if defined(__SANITIZE_ADDRESS__)
#define QV_WITH_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QV_WITH_ASAN 1
#endif
#endif
#ifdef QV_WITH_ASAN
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) static_cast<void>(address)
#define ASAN_UNPOISON_MEMORY_REGION(address, size) static_cast<void>(address)
#endif

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
        ASAN_UNPOISON_MEMORY_REGION(block, block_size);
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
    ASAN_POISON_MEMORY_REGION(ptr, block_size);
}
