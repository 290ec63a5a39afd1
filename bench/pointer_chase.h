// The limit for a search: its node-to-node loads alone, each descent waiting for the one before.
#ifndef QV_BENCH_POINTER_CHASE_H
#define QV_BENCH_POINTER_CHASE_H

#include <qv/base/qv_btree.h>

#include <cstdint>
#include <vector>

class PointerChase {
public:
    // Notes the branches on the way to each key, with the map's own comparator.
    template <typename Keys>
    PointerChase(const qv_btree_t* map, const Keys& keys) : map_(map) {
        for (const void* key : keys) {
            note(key);
        }
    }

    // Walks all the ways again, without keys and comparisons.
    const void* run() const;

    // How many nodes a search meets on average, with one comparison each.
    double levels() const;

private:
    struct Way {
        uint64_t branches;  // to the right where a bit is set, the lowest first
        uint64_t steps;
    };

    void note(const void* key);

    const qv_btree_t* map_;
    std::vector<Way> ways_;
};

#endif  // QV_BENCH_POINTER_CHASE_H
