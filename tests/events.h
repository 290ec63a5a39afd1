// A log of all that a map calls, in order. The including file supplies the map's source.
//
// Keys and values are integers in place of pointers. A log reads like "compare 5,3; allocate":
//
//   compare 5,3              the comparator, with the new or searched key and a stored key
//   allocate, refuse         HAL_Malloc with and without memory
//   release 5 at size 1      HAL_Free of the node with key 5, and the map's size at that time
//   release map              HAL_Free of the map itself
//   drop key 5 at size 1     the key destructor
//   drop value 50 at size 1  the value destructor
//   copy key 5               the copy function for keys, which returns 1005
//   copy value 50            the copy function for values, which returns 150
#ifndef QV_TESTS_EVENTS_H
#define QV_TESTS_EVENTS_H

#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <string>

#define EXPECT_EVENTS(action, expected) EXPECT_EQ(events_of([&] { action; }), expected)

using Int = std::intptr_t;

inline std::string event_log;
inline bool logs_comparisons = true;
inline int refuse_in = 0;  // The refuse_in-th allocation from now on gets no memory.
inline const qv_btree_t* observed = nullptr;  // The map whose size is logged.
inline std::set<void*> live_blocks;
inline std::function<void()> inside_key_dtor = [] {};

inline void* ptr(Int n) {
    return reinterpret_cast<void*>(n);
}

inline Int num(const void* p) {
    return reinterpret_cast<Int>(p);
}

inline std::string event(const std::string& what, Int of) {
    return what + std::to_string(of) + "; ";
}

inline std::string event(const std::string& what, Int of, const std::string& more, Int number) {
    return what + std::to_string(of) + event(more, number);
}

inline std::string sized(const std::string& what, Int of, size_t size) {
    return event(what, of, " at size ", static_cast<Int>(size));
}

// What the action calls, without the last "; ".
inline std::string events_of(const std::function<void()>& action) {
    event_log.clear();
    action();
    return event_log.substr(0, event_log.size() - (event_log.empty() ? 0 : 2));
}

inline int32_t compare(const void* a, const void* b) {
    if (logs_comparisons) {
        event_log += event("compare ", num(a), ",", num(b));
    }
    const Int difference = num(a) - num(b);  // Neighbours give 1 and -1, others the extremes.
    return difference < -1  ? INT32_MIN
           : difference > 1 ? INT32_MAX
                            : static_cast<int32_t>(difference);
}

inline void key_dtor(void* key) {
    event_log += sized("drop key ", num(key), qv_btree_size(observed));
    inside_key_dtor();
}

inline void value_dtor(void* value) {
    event_log += sized("drop value ", num(value), qv_btree_size(observed));
}

inline void* key_copy(void* key) {
    event_log += event("copy key ", num(key));
    return ptr(num(key) + 1000);
}

inline void* value_copy(void* value) {
    event_log += event("copy value ", num(value));
    return ptr(num(value) + 100);
}

void* HAL_Malloc(unsigned long size) {
    const bool refused = refuse_in > 0 && --refuse_in == 0;
    event_log += refused ? "refuse; " : "allocate; ";
    return refused ? nullptr : std::memset(*live_blocks.insert(std::malloc(size)).first, 42, size);
}

void HAL_Free(void* ptr) {
    event_log += ptr == observed ? "release map; "
                                 : sized("release ", num(static_cast<qv_btree_node_t*>(ptr)->key),
                                         qv_btree_size(observed));
    if (live_blocks.erase(ptr) == 0) {
        std::abort();
    }
    std::free(ptr);
}

#endif  // QV_TESTS_EVENTS_H
