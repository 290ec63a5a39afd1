// The same work on our map and on those that people would otherwise use.
//
// One benchmark is one life of a map: build, look up, walk, copy, remove, clear. Every phase is
// timed on its own and becomes a counter, in nanoseconds for each entry. Names read
// PEER/KEYS/ORDER/ENTRIES. Another one enters the words of real texts; its names read
// PEER/words/TEXT/DISTINCT WORDS.
//
// Usage: btree_bench [--brief] [OPTION OF GOOGLE BENCHMARK]...; --brief leaves some phases out.

#include <benchmark/benchmark.h>
#include <gnu/libc-version.h>
#include <malloc.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "keys.h"
#include "peers.h"
#include "pointer_chase.h"

namespace {

bool brief = false;

size_t released = 0;

void release(void* object) {
    released += object != nullptr ? 1 : 0;
}

// --- One life of a map -----------------------------------------------------------------------

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
class Life {
public:
    Life(benchmark::State& state, bool random_order, size_t entries)
        : state_(state), random_order_(random_order), numbers_(entries) {
        std::iota(numbers_.begin(), numbers_.end(), 0U);
        owned_.reserve(entries);
    }

    void live() {
        Peer map(Kind::compare, release);
        insert(map);
        find(map);
        find_limit(map);
        find_absent(map);
        walk(map);
        copy(map);
        remove(map);
        if (!brief) {
            build(map);
            clear(map);
        }
        std::for_each(owned_.begin(), owned_.end(), Kind::disown);
        owned_.clear();
        benchmark::DoNotOptimize(released);
    }

private:
    void insert(Peer& map) {
        for (void* key : Keys<Kind>(next_order(), 1)) {
            owned_.push_back(Kind::own(key));
            if constexpr (std::is_same_v<Kind, BoxedBeside>) {
                map.insert(owned_.back(), owned_.back());
            }
        }
        if constexpr (!std::is_same_v<Kind, BoxedBeside>) {
            timed("insert", [&] { build(map); });
        }
    }

    void find(const Peer& map) {
        const Keys<Kind> probes(next_order(), 1);
        timed("find", [&] {
            for (const void* key : probes) {
                benchmark::DoNotOptimize(map.find(key));
            }
        });
    }

    void find_limit(const Peer& map) {
        if constexpr (std::is_same_v<Peer, Ours>) {
            const PointerChase chase(map.handle(), Keys<Kind>(next_order(), 1));
            timed("find limit", [&] { benchmark::DoNotOptimize(chase.run()); });
            count("levels", chase.levels());
        }
    }

    void find_absent(const Peer& map) {
        const Keys<Kind> probes(next_order(), 0);
        timed("find absent", [&] {
            for (const void* key : probes) {
                benchmark::DoNotOptimize(map.find(key));
            }
        });
        if constexpr (HasLowerBound<Peer>::value) {
            if (brief) {
                return;
            }
            timed("lower bound", [&] {
                for (const void* key : probes) {
                    benchmark::DoNotOptimize(map.lower_bound(key));
                }
            });
        }
    }

    void walk(const Peer& map) {
        uintptr_t sum = 0;
        timed("walk", [&] { map.walk([&](void* key, void* value) { visit(key, value, &sum); }); });
        if (!brief) {
            timed("foreach", [&] { map.visit(visit, &sum); });
        }
        benchmark::DoNotOptimize(sum);
    }

    void copy(const Peer& map) {
        std::unique_ptr<Peer> copy;
        timed("copy", [&] { copy = std::make_unique<Peer>(map); });
        if constexpr (std::is_same_v<Peer, Ours>) {
            if (numbers_.size() > 30000) {
                return;  // The notes would take more time to read than the keys.
            }
            // The comparator calls of a copy alone: noted in one, and repeated.
            qv_btree_t* const noting = qv_btree_new(note, nullptr, nullptr);
            qv_btree_assign(noting, map.handle(), nullptr, nullptr);
            qv_btree_free(noting);
            const volatile qv_comparator_pt compare = Kind::compare;
            timed("copy limit", [&] {
                for (const auto& keys : noted_) {
                    benchmark::DoNotOptimize(compare(keys.first, keys.second));
                }
            });
            noted_.clear();
        }
    }

    static int32_t note(const void* a, const void* b) {
        noted_.emplace_back(a, b);
        return Kind::compare(a, b);
    }

    void remove(Peer& map) {
        const Keys<Kind> probes(next_order(), 1);
        timed("remove", [&] {
            for (const void* key : probes) {
                map.remove(key);
            }
        });
    }

    void clear(Peer& map) {
        const auto before = static_cast<double>(mallinfo2().uordblks);
        timed("clear", [&] { map.clear(); });
        count("bytes", (before - static_cast<double>(mallinfo2().uordblks)) / entries());
    }

    void build(Peer& map) {
        for (void* key : owned_) {
            map.insert(key, key);
        }
    }

    template <typename Work>
    void timed(const char* name, const Work& work) {
        // A large request gathers what was released, so that each phase meets a tidy heap.
        std::free(std::malloc(100000));
        const auto start = std::chrono::steady_clock::now();
        work();
        const std::chrono::duration<double, std::nano> time =
            std::chrono::steady_clock::now() - start;
        count(name, time.count() / entries());
    }

    void count(const char* name, double value) {
        auto& counter = state_.counters[name];
        counter.value += value;
        counter.flags = benchmark::Counter::kAvgIterations;
    }

    const std::vector<uint32_t>& next_order() {
        if (random_order_) {
            std::shuffle(numbers_.begin(), numbers_.end(), random_);
        }
        return numbers_;
    }

    double entries() const { return static_cast<double>(numbers_.size()); }

    benchmark::State& state_;
    bool random_order_;
    std::mt19937 random_{1};
    std::vector<uint32_t> numbers_;
    std::vector<void*> owned_;
    static inline std::vector<std::pair<const void*, const void*>> noted_;
};

template <typename Peer, typename Kind>
void live(benchmark::State& state, bool random_order, size_t entries) {
    Life<Peer, Kind> life(state, random_order, entries);
    for (auto _ : state) {
        life.live();
    }
}

// --- The words of real texts -------------------------------------------------------------------

struct Text {
    std::string name;
    std::vector<std::string> words;
    size_t distinct;
};

// The words of all files below a folder whose names have an ending.
Text read_words(const std::string& name, const char* folder, const std::string& ending) {
    Text text = {name, {}, 0};
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path().extension() == ending) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    std::string word;
    for (const auto& file : files) {
        std::ifstream in(file);
        for (const char c : std::string(std::istreambuf_iterator<char>(in), {}) + '\n') {
            if (std::isalpha(static_cast<unsigned char>(c)) != 0) {
                word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            } else if (!word.empty()) {
                text.words.push_back(std::move(word));
                word.clear();
            }
        }
    }
    text.distinct = std::set<std::string>(text.words.begin(), text.words.end()).size();
    return text;
}

// Counts each word, as the concordance does.
template <typename Peer>
void enter_words(benchmark::State& state, const Text& text) {
    std::vector<size_t> counts(text.words.size());
    for (auto _ : state) {
        Peer map(
            [](const void* a, const void* b) -> int32_t {
                return static_cast<const std::string*>(a)->compare(
                    *static_cast<const std::string*>(b));
            },
            release);
        const auto start = std::chrono::steady_clock::now();
        for (size_t i = 0; i < counts.size(); ++i) {
            ++*static_cast<size_t*>(
                map.enter(const_cast<std::string*>(&text.words[i]), &counts[i]));
        }
        const std::chrono::duration<double, std::nano> time =
            std::chrono::steady_clock::now() - start;
        state.counters["enter"] = time.count() / static_cast<double>(counts.size());
    }
}

// --- Registration ------------------------------------------------------------------------------

template <typename Peer>
void register_peer(const std::string& peer, const std::vector<Text>& texts) {
    const auto add = [&](const char* kind, auto* function, size_t entries, bool random_order) {
        const std::string name = peer + '/' + kind + '/' + (random_order ? "random" : "ascending") +
                                 '/' + std::to_string(entries);
        benchmark::RegisterBenchmark(name.c_str(), function, random_order, entries)
            ->Iterations(static_cast<int64_t>(std::max<size_t>(1, 1000000 / entries)));
    };
    for (const size_t entries : {1000U, 30000U, 1000000U}) {
        for (const bool random_order : {true, false}) {
            add(Boxed::name, live<Peer, Boxed>, entries, random_order);
            add(String::name, live<Peer, String>, entries, random_order);
            add(InPointer::name, live<Peer, InPointer>, entries, random_order);
        }
        add(BoxedBranching::name, live<Peer, BoxedBranching>, entries, true);
    }
    if constexpr (!std::is_same_v<Peer, Tsearch>) {
        add(Boxed::name, live<Peer, Boxed>, 10000000, true);
    }
    if constexpr (std::is_same_v<Peer, Ours>) {
        add(BoxedBeside::name, live<Peer, BoxedBeside>, 1000000, true);
    }
    for (const Text& text : texts) {
        const std::string name = peer + "/words/" + text.name + '/' + std::to_string(text.distinct);
        benchmark::RegisterBenchmark(name.c_str(), enter_words<Peer>, text)->Iterations(1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<Text> texts;
    if (argc > 1 && std::strcmp(argv[1], "--brief") == 0) {
        brief = true;
        std::rotate(argv + 1, argv + 2, argv + argc);
        --argc;
    } else {
        texts = {read_words("licences", "/usr/share/common-licenses", ""),
                 read_words("C headers", "/usr/include", ".h")};
    }
    register_peer<Ours>("qv_btree", texts);
    register_peer<StdMap>("std::map", texts);
    benchmark::AddCustomContext("compiler", QV_BENCH_COMPILER);
    benchmark::AddCustomContext("glibc", gnu_get_libc_version());
    benchmark::AddCustomContext("Google Benchmark", QV_BENCH_BENCHMARK);
#ifdef QV_BENCH_BOOST
    register_peer<BoostAvl>("Boost AVL", texts);
    benchmark::AddCustomContext("Boost", BOOST_LIB_VERSION);
#else
    std::fputs("Boost is not installed: its AVL map is left out\n", stderr);
#endif
#ifdef QV_BENCH_ABSL
    register_peer<AbslBtree>("Abseil B-tree", texts);
    benchmark::AddCustomContext("Abseil", std::to_string(ABSL_LTS_RELEASE_VERSION));
#else
    std::fputs("Abseil is not installed: its B-tree is left out\n", stderr);
#endif
    register_peer<Tsearch>("tsearch", texts);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
