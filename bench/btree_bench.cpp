// The same work on our map and on those that people would otherwise use.
//
// One benchmark is one life of a map: build, look up, walk, copy, remove, clear. Every phase is
// timed on its own and becomes a counter, in nanoseconds for each entry. Names read
// PEER/KEYS/ORDER/ENTRIES.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "peers.h"
#include "pointer_chase.h"

namespace {

// --- Keys ------------------------------------------------------------------------------------

template <typename T>
int32_t sign_of_difference(const T& a, const T& b) {
    return int32_t{a > b} - int32_t{a < b};
}

// In each kind, key number n sorts by n. A stored key is an object of its own on the heap; a probe
// is another one.

struct InPointer {
    static constexpr const char* name = "in-pointer";
    struct Key {};
    static int32_t compare(const void* a, const void* b) {
        return sign_of_difference(reinterpret_cast<uintptr_t>(a), reinterpret_cast<uintptr_t>(b));
    }
    static void* make(Key& /*key*/, size_t n) { return reinterpret_cast<void*>(n); }
    static void* own(void* key) { return key; }
    static void disown(void* /*key*/) {}
};

struct BoxedKeys {
    using Key = int64_t;
    static int32_t compare(const void* a, const void* b) {
        return sign_of_difference(*static_cast<const Key*>(a), *static_cast<const Key*>(b));
    }
    static void* make(Key& key, size_t n) { return &(key = static_cast<Key>(n)); }
    static void* own(void* key) { return new Key(*static_cast<Key*>(key)); }
    static void disown(void* key) { delete static_cast<Key*>(key); }
};

struct Boxed : BoxedKeys {
    static constexpr const char* name = "boxed";
};

// Each key allocated right before its insertion, which puts it beside its entry in memory. All
// others are allocated before the first insertion, which then is measured without that.
struct BoxedBeside : BoxedKeys {
    static constexpr const char* name = "boxed-beside";
};

// As people often write it.
struct BoxedBranching : BoxedKeys {
    static constexpr const char* name = "boxed-branching";
    static int32_t compare(const void* a, const void* b) {
        const Key left = *static_cast<const Key*>(a);
        const Key right = *static_cast<const Key*>(b);
        if (left < right) {
            return -1;
        }
        return left == right ? 0 : 1;
    }
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
    static void* own(void* key) { return new Key(*static_cast<Key*>(key)); }
    static void disown(void* key) { delete static_cast<Key*>(key); }
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

// --- One life of a map -----------------------------------------------------------------------

size_t released = 0;

void release(void* object) {
    released += object != nullptr ? 1 : 0;
}

bool visit(void* key, void* value, void* sum) {
    *static_cast<uintptr_t*>(sum) +=
        reinterpret_cast<uintptr_t>(key) ^ reinterpret_cast<uintptr_t>(value);
    return false;
}

template <typename Peer, typename = void>
struct HasLowerBound : std::false_type {};
template <typename Peer>
struct HasLowerBound<Peer, std::void_t<decltype(&Peer::lower_bound)>> : std::true_type {};

template <typename Peer, typename Kind>
void life(benchmark::State& state, bool random_order, size_t entries) {
    std::mt19937 random(1);
    std::vector<uint32_t> numbers(entries);
    std::iota(numbers.begin(), numbers.end(), 0U);
    const auto next_order = [&]() -> const std::vector<uint32_t>& {
        if (random_order) {
            std::shuffle(numbers.begin(), numbers.end(), random);
        }
        return numbers;
    };
    const auto count = [&](const char* name, double value) {
        auto& counter = state.counters[name];
        counter.value += value;
        counter.flags = benchmark::Counter::kAvgIterations;
    };
    const auto timed = [&](const char* name, const auto& work) {
        // A large request gathers what was released, so that each phase meets a tidy heap.
        std::free(std::malloc(100000));
        const auto start = std::chrono::steady_clock::now();
        work();
        const std::chrono::duration<double, std::nano> time =
            std::chrono::steady_clock::now() - start;
        count(name, time.count() / static_cast<double>(entries));
    };
    std::vector<void*> owned;
    const auto own = [&](const Keys<Kind>& keys, const auto& use) {
        for (void* key : keys) {
            owned.push_back(Kind::own(key));
            use(owned.back());
        }
    };
    const auto build = [&](Peer& map) {
        for (void* key : owned) {
            map.insert(key, key);
        }
    };
    const auto disown_all = [&] {
        std::for_each(owned.begin(), owned.end(), Kind::disown);
        owned.clear();
    };
    owned.reserve(entries);

    for (auto _ : state) {
        Peer map(Kind::compare, release);
        const Keys<Kind> stored(next_order(), 1);
        if constexpr (std::is_same_v<Kind, BoxedBeside>) {
            own(stored, [&](void* key) { map.insert(key, key); });
        } else {
            own(stored, [](void* /*key*/) {});
            timed("insert", [&] { build(map); });
        }
        {
            const Keys<Kind> probes(next_order(), 1);
            timed("find", [&] {
                for (const void* key : probes) {
                    benchmark::DoNotOptimize(map.find(key));
                }
            });
        }
        if constexpr (std::is_same_v<Peer, Ours>) {
            const PointerChase chase(map.handle(), Keys<Kind>(next_order(), 1));
            timed("find limit", [&] { benchmark::DoNotOptimize(chase.run()); });
            count("levels", chase.levels());
        }
        {
            const Keys<Kind> probes(next_order(), 0);
            timed("find absent", [&] {
                for (const void* key : probes) {
                    benchmark::DoNotOptimize(map.find(key));
                }
            });
            if constexpr (HasLowerBound<Peer>::value) {
                timed("lower bound", [&] {
                    for (const void* key : probes) {
                        benchmark::DoNotOptimize(map.lower_bound(key));
                    }
                });
            }
        }
        uintptr_t sum = 0;
        timed("walk", [&] { map.walk([&](void* key, void* value) { visit(key, value, &sum); }); });
        timed("foreach", [&] { map.visit(visit, &sum); });
        benchmark::DoNotOptimize(sum);
        {
            std::unique_ptr<Peer> copy;
            timed("copy", [&] { copy = std::make_unique<Peer>(map); });
        }
        {
            const Keys<Kind> probes(next_order(), 1);
            timed("remove", [&] {
                for (const void* key : probes) {
                    map.remove(key);
                }
            });
        }
        build(map);
        const auto before = static_cast<double>(mallinfo2().uordblks);
        timed("clear", [&] { map.clear(); });
        count("bytes",
              (before - static_cast<double>(mallinfo2().uordblks)) / static_cast<double>(entries));
        disown_all();
        benchmark::DoNotOptimize(released);
    }
}

template <typename Peer>
void register_peer(const std::string& peer) {
    const auto add = [&](const char* kind, auto* function, size_t entries, bool random_order) {
        const std::string name = peer + '/' + kind + '/' + (random_order ? "random" : "ascending") +
                                 '/' + std::to_string(entries);
        benchmark::RegisterBenchmark(name.c_str(), function, random_order, entries)
            ->Iterations(static_cast<int64_t>(std::max<size_t>(1, 1000000 / entries)));
    };
    for (const bool random_order : {true, false}) {
        for (const size_t entries : {1000U, 30000U, 1000000U}) {
            add(Boxed::name, life<Peer, Boxed>, entries, random_order);
            add(String::name, life<Peer, String>, entries, random_order);
            add(InPointer::name, life<Peer, InPointer>, entries, random_order);
        }
    }
    if constexpr (!std::is_same_v<Peer, Tsearch>) {
        add(Boxed::name, life<Peer, Boxed>, 10000000, true);
    }
    if constexpr (std::is_same_v<Peer, Ours>) {
        add(BoxedBeside::name, life<Peer, BoxedBeside>, 1000000, true);
        add(BoxedBranching::name, life<Peer, BoxedBranching>, 1000, true);
    }
}

}  // namespace

int main(int argc, char** argv) {
    register_peer<Ours>("qv_btree");
    register_peer<StdMap>("std::map");
#ifdef QV_BENCH_BOOST
    register_peer<BoostAvl>("Boost AVL");
#else
    std::fputs("Boost is not installed: its AVL map is left out\n", stderr);
#endif
#ifdef QV_BENCH_ABSL
    register_peer<AbslBtree>("Abseil B-tree");
#else
    std::fputs("Abseil is not installed: its B-tree is left out\n", stderr);
#endif
    register_peer<Tsearch>("tsearch");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
