// Needs the records, so the map's source is compiled into the benchmark here.

#include "pointer_chase.h"

#include "qv_btree.cpp"

void PointerChase::note(const void* key) {
    Way way = {0, 0};
    for (const qv_btree_node_t* node = map_->root;;) {
        const int32_t cmp = map_->key_compare(key, node->key);
        if (cmp == 0) {
            break;
        }
        way.branches |= uint64_t{cmp > 0 ? 1U : 0U} << way.steps++;
        node = cmp > 0 ? node->right : node->left;
    }
    ways_.push_back(way);
}

double PointerChase::levels() const {
    uint64_t nodes = 0;
    for (const Way way : ways_) {
        nodes += way.steps + 1;
    }
    return static_cast<double>(nodes) / static_cast<double>(ways_.size());
}

const void* PointerChase::run() const {
    // Zero, but the compiler cannot know: the next descent starts from what the last one found.
    const volatile uintptr_t unknown_zero = 0;
    const uintptr_t mask = unknown_zero;
    const qv_btree_node_t* node = map_->root;
    for (Way way : ways_) {
        const uintptr_t waited = reinterpret_cast<uintptr_t>(node) & mask;
        node = reinterpret_cast<qv_btree_node_t*>(reinterpret_cast<uintptr_t>(map_->root) | waited);
        for (; way.steps > 0; --way.steps, way.branches >>= 1) {
            // By arithmetic: a branch would be guessed, and the next load not wait for this one.
            node = qv_btree_select(uintptr_t{0} - (way.branches & 1), node->left, node->right);
        }
    }
    return node;
}
