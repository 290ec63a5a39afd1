// What a map calls, written as one text, such as "5?3 alloc ":
//
//   5?3             the comparator, with the new or searched key and a stored key
//   alloc, refuse   HAL_Malloc with and without memory
//   free-5          HAL_Free of the node with key 5; of an empty map it is free-0
//   k-5, v-50       the destructors for keys and values
//   k+5, v+50       the copy functions, which return the other number of 2n and 2n + 1
//   5=50            the visitor, with key and value
//
// Keys and values are integers in place of pointers. qv_btree.cpp must be included before.
#pragma once

#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>

using Int = intptr_t;

inline std::string events;
inline std::map<Int, int> references;                              // Destructors give one back.
inline size_t granted = SIZE_MAX;                                  // blocks, until one is refused
inline bool silent = false;                                        // No event, no refusal.
inline std::string (*suffix)() = [] { return std::string(" "); };  // of each event
inline std::function<void(Int)> inside_callback;

inline void* ptr(Int n) {
    return reinterpret_cast<void*>(n);
}

inline Int num(const void* p) {
    return reinterpret_cast<Int>(p);
}

template <typename... Parts>
void append(std::string& text, const Parts&... parts) {
    const auto add = [&text](const auto& part) {
        if constexpr (std::is_integral_v<std::decay_t<decltype(part)>>) {
            text += std::to_string(part);
        } else {
            text += part;
        }
    };
    (add(parts), ...);
    if (text.size() > 100000000) {
        throw std::length_error("endless: " + text.substr(0, 999));
    }
}

template <typename... Parts>
void log(const Parts&... parts) {
    silent ? void() : append(events, parts..., suffix());
}

// --- Callbacks ----------------------------------------------------------------------------------

template <char name>
void dtor(void* object) {
    log(name == 'k' ? "k-" : "v-", num(object));
    inside_callback(num(object));
    --references[num(object)];
}

template <char name>
void* copy_of(void* object) {
    log(name == 'k' ? "k+" : "v+", num(object));
    inside_callback(num(object));
    return ptr(num(object) ^ 1);
}

inline bool visit(void* key, void* value, void* last) {
    log(num(key), "=", num(value));
    inside_callback(num(key));
    return key == last;
}

// Not inline, as the map may only declare these. Each test is one file.
// NOLINTBEGIN(misc-definitions-in-headers)
void* HAL_Malloc(unsigned long size) {
    const bool refused = !silent && granted == 0;
    granted -= silent || refused ? 0 : 1;
    log(refused ? "refuse" : "alloc");
    return refused ? nullptr : std::memset(std::malloc(size), 42, size);
}

void HAL_Free(void* ptr) {
    log("free-", num(*static_cast<void**>(ptr)));
    std::free(ptr);
}
// NOLINTEND(misc-definitions-in-headers)
