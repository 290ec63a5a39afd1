// The same work on qv_btree and on the maps that people would otherwise use.
//
// PEER/KEYS/ENTRIES is the life of a map: build, look up, walk, copy, remove, clear. Every phase is
// timed on its own and becomes a counter, in nanoseconds for each entry or lookup. PEER/words/TEXT
// counts the words of real texts, and PEER/timers/ENTRIES is a queue of timers.

#include <benchmark/benchmark.h>
#include <gnu/libc-version.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
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

namespace {

// At least so many operations are timed at once, or so many entries updated in one life.
constexpr size_t at_once = 10000;
constexpr size_t in_all = 1000000;

using Numbers = std::vector<uint32_t>;

// The time of some work, in nanoseconds.
template <typename Work>
double time_of(const Work& work) {
    // A large request gathers what was released, so that each phase meets a tidy heap.
    std::free(std::malloc(100000));
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start)
        .count();
}

// --- One life of a map -----------------------------------------------------------------------

template <typename Peer, typename = void>
struct HasLowerBound : std::false_type {};
template <typename Peer>
struct HasLowerBound<Peer, std::void_t<decltype(&Peer::lower_bound)>> : std::true_type {};

template <typename Peer, typename Kind>
class Life {
public:
    explicit Life(size_t entries) : numbers_(entries), spread_(entries) {
        std::iota(spread_.begin(), spread_.end(), 0U);
        std::shuffle(spread_.begin(), spread_.end(), random_);
        std::vector<double> weights;
        for (size_t rank = 1; rank <= entries; ++rank) {
            weights.push_back(1 / static_cast<double>(rank));
        }
        zipf_ = {weights.begin(), weights.end()};
    }

    // Keys are allocated in the order of the first insertion.
    void live(bool in_random_order) {
        std::iota(numbers_.begin(), numbers_.end(), 0U);
        const auto shuffle = [&](auto& values) {
            if (in_random_order) {
                std::shuffle(values.begin(), values.end(), random_);
            }
        };
        shuffle(numbers_);
        std::vector<std::unique_ptr<typename Kind::Key>> storage;
        std::vector<void*> keys;
        for (const uint32_t number : numbers_) {
            storage.push_back(std::make_unique<typename Kind::Key>());
            keys.push_back(Kind::make(*storage.back(), 2 * size_t{number} + 1));
        }
        const std::string order = in_random_order ? ", random" : ", ascending";
        for (size_t updated = 0; updated < at_once; updated += numbers_.size()) {
            Peer map(Kind::compare);
            const auto build = [&] {
                for (void* key : keys) {
                    map.insert(key, key);
                }
            };
            timed("insert" + order, numbers_.size(), build);
            if (in_random_order) {
                if (updated == 0) {
                    look_up(map);
                }
                walk_and_copy(map);
            }
            shuffle(numbers_);
            each("remove" + order, Keys<Kind>(numbers_, 1), [&](void* key) { map.remove(key); });
            if (in_random_order) {
                build();
                timed("clear", numbers_.size(), [&] { map.clear(); });
            }
            shuffle(keys);
        }
    }

    void report(benchmark::State& state) const {
        for (const auto& [name, total] : totals_) {
            state.counters[name] = total.time / total.operations;
        }
    }

private:
    void look_up(const Peer& map) {
        Numbers sought(std::max(at_once, numbers_.size()));
        const auto find = [&](const std::string& name, size_t offset) {
            each(name, Keys<Kind>(sought, offset),
                 [&](const void* key) { benchmark::DoNotOptimize(map.find(key)); });
        };
        for (size_t i = 0; i < sought.size(); ++i) {
            sought[i] = static_cast<uint32_t>(i % numbers_.size());
        }
        find("find, ascending", 1);
        std::generate(sought.begin(), sought.end(), [&] { return spread_[zipf_(random_)]; });
        find("find, Zipf", 1);
        std::uniform_int_distribution<uint32_t> even(0, static_cast<uint32_t>(numbers_.size()) - 1);
        std::generate(sought.begin(), sought.end(), [&] { return even(random_); });
        find("find, random", 1);
        find("find absent, random", 0);
        if constexpr (HasLowerBound<Peer>::value) {
            each("lower bound, random", Keys<Kind>(sought, 0),
                 [&](const void* key) { benchmark::DoNotOptimize(map.lower_bound(key)); });
        }
    }

    void walk_and_copy(const Peer& map) {
        uintptr_t sum = 0;
        timed("walk", numbers_.size(), [&] {
            map.walk([&](void* key, void* value) {
                sum += reinterpret_cast<uintptr_t>(key) ^ reinterpret_cast<uintptr_t>(value);
            });
        });
        benchmark::DoNotOptimize(sum);
        std::unique_ptr<Peer> copy;
        timed("copy", numbers_.size(), [&] { copy = std::make_unique<Peer>(map); });
    }

    template <typename Work>
    void each(const std::string& name, const Keys<Kind>& keys, const Work& work) {
        timed(name, static_cast<size_t>(keys.end() - keys.begin()),
              [&] { std::for_each(keys.begin(), keys.end(), work); });
    }

    template <typename Work>
    void timed(const std::string& name, size_t operations, const Work& work) {
        totals_[name].time += time_of(work);
        totals_[name].operations += static_cast<double>(operations);
    }

    struct Total {
        double time = 0;
        double operations = 0;
    };

    std::mt19937 random_{1};
    Numbers numbers_;
    Numbers spread_;  // the ranks of Zipf's law over the keys
    std::discrete_distribution<uint32_t> zipf_;
    std::map<std::string, Total> totals_;
};

template <typename Peer, typename Kind>
void live(benchmark::State& state, size_t entries) {
    Life<Peer, Kind> life(entries);
    for (auto _ : state) {
        life.live(true);
        life.live(false);
    }
    life.report(state);
}

// --- A queue of timers -------------------------------------------------------------------------

// Each step removes the first timer and inserts it again with a later time.
template <typename Peer>
void run_timers(benchmark::State& state, size_t entries) {
    std::mt19937 random(1);
    std::uniform_int_distribution<int64_t> delay(1, 1000000);
    std::vector<int64_t> delays(in_all);
    std::generate(delays.begin(), delays.end(), [&] { return delay(random); });
    const auto count = static_cast<int64_t>(entries);
    for (auto _ : state) {
        std::vector<std::unique_ptr<int64_t>> timers;
        Peer map(Boxed::compare);
        for (int64_t id = 0; id < count; ++id) {  // The remainder keeps the times apart.
            timers.push_back(std::make_unique<int64_t>(delay(random) * count + id));
            map.insert(timers.back().get(), timers.back().get());
        }
        state.counters["step"] = time_of([&] {
                                     for (const int64_t after : delays) {
                                         auto* const timer =
                                             static_cast<int64_t*>(map.remove_first());
                                         *timer += after * count;
                                         map.insert(timer, timer);
                                     }
                                 }) /
                                 static_cast<double>(delays.size());
    }
}

// --- The words of real texts -------------------------------------------------------------------

struct Text {
    std::string name;
    std::vector<std::string> words;
};

// The words of all files below a folder whose names have an ending. The name of the result ends in
// the number of distinct words.
Text read_words(const std::string& name, const char* folder, const std::string& ending) {
    Text text;
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
                text.words.push_back(std::exchange(word, ""));
            }
        }
    }
    const std::set<std::string> distinct(text.words.begin(), text.words.end());
    text.name = name + '/' + std::to_string(distinct.size());
    return text;
}

// Counts each word, as the concordance does.
template <typename Peer>
void enter_words(benchmark::State& state, const Text& text) {
    std::vector<size_t> counts(text.words.size());
    for (auto _ : state) {
        Peer map([](const void* a, const void* b) -> int32_t {
            return static_cast<const std::string*>(a)->compare(*static_cast<const std::string*>(b));
        });
        state.counters["enter"] =
            time_of([&] {
                for (size_t i = 0; i < counts.size(); ++i) {
                    ++*static_cast<size_t*>(
                        map.enter(const_cast<std::string*>(&text.words[i]), &counts[i]));
                }
            }) /
            static_cast<double>(counts.size());
    }
}

// --- Registration ------------------------------------------------------------------------------

void add(const std::string& name, size_t iterations,
         const std::function<void(benchmark::State&)>& run) {
    benchmark::RegisterBenchmark(name.c_str(), run)  // NOLINT: older releases take no std::string.
        ->Iterations(static_cast<int64_t>(iterations));
}

template <typename Peer>
void add_peer(const std::string& peer, const std::vector<Text>& texts) {
    using State = benchmark::State;
    for (const size_t entries : {100U, 1000U, 10000U, 100000U, 1000000U}) {
        const std::string size = '/' + std::to_string(entries);
        const auto add_kind = [&](auto kind) {
            using Kind = decltype(kind);
            add(peer + '/' + Kind::name + size, in_all / std::max(entries, at_once),
                [entries](State& state) { live<Peer, Kind>(state, entries); });
        };
        add_kind(Boxed());
        if constexpr (std::is_same_v<Peer, QvBtree> || std::is_same_v<Peer, StdMap>) {
            add_kind(Branching());
            add_kind(String());
            add_kind(InPointer());
        }
        if constexpr (!std::is_same_v<Peer, Tsearch>) {
            add(peer + "/timers" + size, 1,
                [entries](State& state) { run_timers<Peer>(state, entries); });
        }
    }
    for (const Text& text : texts) {
        add(peer + "/words/" + text.name, 1,
            [&text](State& state) { enter_words<Peer>(state, text); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<Text> texts = {
        read_words("licences", "/usr/share/common-licenses", ""),
        read_words("C headers", "/usr/include", ".h"),
    };
    add_peer<QvBtree>("qv_btree", texts);
    add_peer<StdMap>("std::map", texts);
    benchmark::AddCustomContext("compiler", QV_BENCH_COMPILER);
    benchmark::AddCustomContext("glibc", gnu_get_libc_version());
#ifdef QV_BENCH_BOOST
    add_peer<BoostAvl>("Boost AVL", texts);
    benchmark::AddCustomContext("Boost", BOOST_LIB_VERSION);
#endif
#ifdef QV_BENCH_ABSL
    add_peer<AbslBtree>("Abseil B-tree", texts);
    benchmark::AddCustomContext("Abseil", std::to_string(ABSL_LTS_RELEASE_VERSION));
#endif
    add_peer<Tsearch>("tsearch", texts);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
