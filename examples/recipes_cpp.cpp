// What a map is used for, in C++17; docs/recipes.md explains each part.

#include <qv/base/qv_btree.h>

#include <iostream>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>
#include <thread>
#include <utility>

// A map that frees itself, for keys and values of any type.

struct FreeMap {
    void operator()(qv_btree_t* map) const { qv_btree_free(map); }
};
using Map = std::unique_ptr<qv_btree_t, FreeMap>;

template <typename T>
int32_t compare(const void* a, const void* b) {
    const T& left = *static_cast<const T*>(a);
    const T& right = *static_cast<const T*>(b);
    return int32_t{right < left} - int32_t{left < right};
}

template <typename T>
void destroy(void* object) {
    delete static_cast<T*>(object);
}

template <typename Key, typename Value>
Map make_map() {
    Map map(qv_btree_new(compare<Key>, destroy<Key>, destroy<Value>));
    return map ? std::move(map) : throw std::bad_alloc();
}

// Stores value under key, replacing both. When it throws, nothing has changed and nothing leaks.
template <typename Key, typename Value>
void store(const Map& map, Key key, Value value) {
    auto new_key = std::make_unique<Key>(std::move(key));
    auto new_value = std::make_unique<Value>(std::move(value));
    const bool stored = qv_btree_find_node(map.get(), new_key.get()) != nullptr;
    const size_t size = qv_btree_size(map.get());
    qv_btree_replace(map.get(), new_key.get(), new_value.get());
    if (!stored && qv_btree_size(map.get()) == size) {
        throw std::bad_alloc();
    }
    static_cast<void>(new_key.release());
    static_cast<void>(new_value.release());
}

// Entries in a for loop.

class Entries {
public:
    struct Iterator {
        qv_btree_node_t* node;
        qv_btree_node_t* operator*() const { return node; }
        bool operator!=(const Iterator& other) const { return node != other.node; }
        Iterator& operator++() {
            node = qv_btree_next_node(node);
            return *this;
        }
    };
    explicit Entries(const Map& map) : map_(map.get()) {}
    Iterator begin() const { return {qv_btree_first_node(map_)}; }
    static Iterator end() { return {nullptr}; }

private:
    const qv_btree_t* map_;
};

template <typename Key>
const Key& key_of(qv_btree_node_t* node) {
    return *static_cast<const Key*>(qv_btree_node_key(node));
}

template <typename Value>
Value& value_of(qv_btree_node_t* node) {
    return *static_cast<Value*>(qv_btree_node_value(node));
}

// A lock for readers and writers.

class PhoneBook {
public:
    void add(const std::string& name, const std::string& number) {
        const std::unique_lock<std::shared_mutex> lock(mutex_);
        store(numbers_, name, number);
    }

    // A copy: once the lock is gone, a writer may release what is stored.
    std::string number_of(const std::string& name) const {
        const std::shared_lock<std::shared_mutex> lock(mutex_);
        qv_btree_node_t* const node = qv_btree_find_node(numbers_.get(), &name);
        return node != nullptr ? value_of<std::string>(node) : "";
    }

private:
    mutable std::shared_mutex mutex_;
    Map numbers_ = make_map<std::string, std::string>();
};

int main() {
    const Map squares = make_map<int, long>();
    for (int i = 5; i > 0; --i) {
        store(squares, i, static_cast<long>(i) * i);
    }
    for (qv_btree_node_t* node : Entries(squares)) {
        std::cout << key_of<int>(node) << " squared is " << value_of<long>(node) << '\n';
    }

    PhoneBook book;
    std::thread writer([&] { book.add("Ada", "1815"); });
    while (book.number_of("Ada").empty()) {
        std::this_thread::yield();
    }
    writer.join();
    std::cout << "Ada has the number " << book.number_of("Ada") << '\n';
}

/* It prints
```text recipes_cpp
1 squared is 1
2 squared is 4
3 squared is 9
4 squared is 16
5 squared is 25
Ada has the number 1815
```
*/
