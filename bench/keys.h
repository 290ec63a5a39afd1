// The kinds of keys that are measured. In each, key number n sorts by n.
#ifndef QV_BENCH_KEYS_H
#define QV_BENCH_KEYS_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

template <typename T>
int32_t sign_of_difference(const T& a, const T& b) {
    return int32_t{a > b} - int32_t{a < b};
}

struct Boxed {
    static constexpr const char* name = "boxed";
    using Key = int64_t;
    static int32_t compare(const void* a, const void* b) {
        return sign_of_difference(*static_cast<const Key*>(a), *static_cast<const Key*>(b));
    }
    static void* make(Key& key, size_t n) { return &(key = static_cast<Key>(n)); }
};

// As people often write it.
struct Branching {
    static constexpr const char* name = "branching";
    using Key = Boxed::Key;
    static int32_t compare(const void* a, const void* b) {
        const Key left = *static_cast<const Key*>(a);
        const Key right = *static_cast<const Key*>(b);
        if (left < right) {
            return -1;
        }
        return left == right ? 0 : 1;
    }
    static void* make(Key& key, size_t n) { return Boxed::make(key, n); }
};

struct String {
    static constexpr const char* name = "string";
    using Key = std::array<char, 24>;
    static int32_t compare(const void* a, const void* b) {
        return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
    }
    static void* make(Key& key, size_t n) {
        static_cast<void>(std::snprintf(key.data(), key.size(), "customer/%011zu", n));
        return key.data();
    }
};

struct InPointer {
    static constexpr const char* name = "in pointer";
    struct Key {};
    static int32_t compare(const void* a, const void* b) {
        return sign_of_difference(reinterpret_cast<uintptr_t>(a), reinterpret_cast<uintptr_t>(b));
    }
    static void* make(Key& /*key*/, size_t n) { return reinterpret_cast<void*>(n); }
};

// Keys 2n + offset in the order of the numbers n, side by side in memory in that order.
template <typename Kind>
class Keys {
public:
    Keys(const std::vector<uint32_t>& numbers, size_t offset)
        : storage_(numbers.size()), keys_(numbers.size()) {
        for (size_t i = 0; i < numbers.size(); ++i) {
            keys_[i] = Kind::make(storage_[i], 2 * size_t{numbers[i]} + offset);
        }
    }
    auto begin() const { return keys_.begin(); }
    auto end() const { return keys_.end(); }

private:
    std::vector<typename Kind::Key> storage_;
    std::vector<void*> keys_;
};

#endif  // QV_BENCH_KEYS_H
