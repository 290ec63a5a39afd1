/* What a map is used for, in C11; docs/recipes.md explains each part. */

#include <assert.h>
#include <limits.h>
#include <qv/base/qv_btree.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Comparators. */

static int32_t compare_ints(const void* a, const void* b) {
    const int left = *(const int*)a;
    const int right = *(const int*)b;
    return (left > right) - (left < right);
}

static int32_t compare_strings(const void* a, const void* b) {
    return strcmp((const char*)a, (const char*)b);
}

static int32_t compare_numbers_in_pointers(const void* a, const void* b) {
    const uintptr_t left = (uintptr_t)a;
    const uintptr_t right = (uintptr_t)b;
    return (left > right) - (left < right);
}

/* What finds a comparator that breaks its laws, and a key that was changed while it was stored. */

static int32_t compare_strings_checked(const void* a, const void* b) {
    const int32_t answer = compare_strings(a, b);
    const int32_t opposite = compare_strings(b, a);
    assert((answer < 0) == (opposite > 0) && (answer > 0) == (opposite < 0));
    (void)opposite; /* Unused where assertions are off. */
    return answer;
}

static void assert_ascending(const qv_btree_t* map) {
    qv_btree_node_t* node = qv_btree_first_node(map);
    qv_btree_node_t* next = node;
    while (next != NULL && (next = qv_btree_next_node(node)) != NULL) {
        assert(compare_strings(qv_btree_node_key(node), qv_btree_node_key(next)) < 0);
        node = next;
    }
}

/* A map of strings to structures, both owned by the map. */

typedef struct {
    int stock;
    double price;
} article_t;

/* Adds an article. Returns false, and keeps nothing, when the name is stored already or there is
 * no memory. */
static bool add_article(qv_btree_t* shop, const char* name, int stock, double price) {
    article_t* article = malloc(sizeof(article_t));
    char* key = malloc(strlen(name) + 1);
    const size_t before = qv_btree_size(shop);
    if (article != NULL && key != NULL && qv_btree_find_node(shop, name) == NULL) {
        article->stock = stock;
        article->price = price;
        qv_btree_insert(shop, strcpy(key, name), article);
    }
    if (qv_btree_size(shop) == before) { /* It did not grow: both are still ours. */
        free(key);
        free(article);
        return false;
    }
    return true;
}

/* Counting. */

/* Counts a word. Returns false, and counts nothing, when there is no memory. */
static bool count_word(qv_btree_t* counts, const char* word) {
    int* count = qv_btree_find(counts, word);
    if (count != NULL) {
        ++*count; /* The value is updated in place: no other search, no destructor. */
        return true;
    }
    char* key = malloc(strlen(word) + 1);
    count = malloc(sizeof(int));
    const size_t before = qv_btree_size(counts);
    if (key != NULL && count != NULL) {
        *count = 1;
        qv_btree_insert(counts, strcpy(key, word), count);
    }
    if (qv_btree_size(counts) == before) {
        free(key);
        free(count);
        return false;
    }
    return true;
}

/* Removing while walking. */

static void remove_sold_out(qv_btree_t* shop) {
    qv_btree_node_t* node = qv_btree_first_node(shop);
    while (node != NULL) {
        const article_t* article = qv_btree_node_value(node);
        node = article->stock == 0 ? qv_btree_remove_node(shop, node) : qv_btree_next_node(node);
    }
}

/* Removes all entries below a key, whether it is stored or not. No stored key is NULL. */
static void remove_below(qv_btree_t* map, const void* key) {
    const void* first = qv_btree_low_bound(map, key);
    if (first != NULL) {
        qv_btree_remove_until(map, first);
    } else {
        qv_btree_clear(map);
    }
}

/* A visitor that ends the walk. */

static bool is_cheap(void* name, void* value, void* found) {
    const article_t* article = value;
    if (article->price >= 1.0) {
        return false;
    }
    *(const char**)found = name;
    return true;
}

/* Ranges. */

static qv_btree_node_t* lower_bound(qv_btree_t* map, const void* key) {
    const void* first = qv_btree_low_bound(map, key);
    return first != NULL ? qv_btree_find_node(map, first) : NULL;
}

static int count_with_prefix(qv_btree_t* shop, const char* prefix) {
    int count = 0;
    qv_btree_node_t* node = lower_bound(shop, prefix);
    while (node != NULL && strncmp(qv_btree_node_key(node), prefix, strlen(prefix)) == 0) {
        ++count;
        node = qv_btree_next_node(node);
    }
    return count;
}

/* Bounds. */

static qv_btree_node_t* upper_bound(qv_btree_t* map, const void* key) {
    qv_btree_node_t* equal = qv_btree_find_node(map, key);
    return equal != NULL ? qv_btree_next_node(equal) : lower_bound(map, key);
}

static _Thread_local const void* noted; /* the last smaller key that was met */

static int32_t compare_strings_and_note(const void* a, const void* b) {
    const int32_t answer = compare_strings(a, b);
    if (answer > 0) {
        noted = b;
    }
    return answer;
}

/* The map's comparator is compare_strings_and_note. */
static qv_btree_node_t* node_before(qv_btree_t* map, const char* key) {
    noted = NULL;
    qv_btree_low_bound(map, key); /* passes an equal key, and ends next to the entry before */
    return noted != NULL ? qv_btree_find_node(map, noted) : NULL;
}

static qv_btree_node_t* floor_of(qv_btree_t* map, const char* key) {
    qv_btree_node_t* equal = qv_btree_find_node(map, key);
    return equal != NULL ? equal : node_before(map, key);
}

/* The other direction. */

static int32_t compare_downwards(const void* a, const void* b) {
    return compare_strings(b, a);
}

/* Returns whether there was memory. */
static bool print_downwards(const qv_btree_t* shop) {
    qv_btree_t* falling = qv_btree_new(compare_downwards, NULL, NULL);
    qv_btree_assign(falling, shop, NULL, NULL); /* The keys and values stay the shop's. */
    const bool complete = falling != NULL && qv_btree_size(falling) == qv_btree_size(shop);
    qv_btree_node_t* node = complete ? qv_btree_first_node(falling) : NULL;
    for (; node != NULL; node = qv_btree_next_node(node)) {
        printf(" %s", (const char*)qv_btree_node_key(node));
    }
    qv_btree_free(falling);
    return complete;
}

/* Moving. */

/* Moves an entry between maps without destructors. Returns false, and changes nothing, when it is
 * not in the first map, is in the second one already, or there is no memory. */
static bool move_entry(qv_btree_t* from, qv_btree_t* to, const void* key) {
    qv_btree_node_t* node = qv_btree_find_node(from, key);
    const size_t before = qv_btree_size(to);
    if (node != NULL && qv_btree_find_node(to, key) == NULL) {
        qv_btree_insert(to, qv_btree_node_key(node), qv_btree_node_value(node));
    }
    if (qv_btree_size(to) == before) {
        return false;
    }
    qv_btree_remove_node(from, node);
    return true;
}

/* A set: a map whose values are NULL. */

static size_t count_distinct(int* numbers, size_t count) {
    qv_btree_t* set = qv_btree_new(compare_ints, NULL, NULL);
    for (size_t i = 0; i < count; ++i) {
        qv_btree_insert(set, &numbers[i], NULL);
    }
    const size_t distinct = qv_btree_size(set);
    qv_btree_free(set);
    return distinct;
}

/* A multimap: the key has two parts, and the second one distinguishes equal first ones. */

typedef struct {
    const char* customer;
    int number;
} order_t;

static int32_t compare_orders(const void* a, const void* b) {
    const order_t* left = a;
    const order_t* right = b;
    const int by_customer = strcmp(left->customer, right->customer);
    return by_customer != 0 ? by_customer : compare_ints(&left->number, &right->number);
}

static int count_orders(qv_btree_t* orders, const char* customer) {
    const order_t first = {customer, INT_MIN};
    int count = 0;
    qv_btree_node_t* node = lower_bound(orders, &first);
    while (node != NULL &&
           strcmp(((const order_t*)qv_btree_node_key(node))->customer, customer) == 0) {
        ++count;
        node = qv_btree_next_node(node);
    }
    return count;
}

/* Copies. A copy function cannot refuse: NULL would be stored, and compared. */

static void* allocate_or_abort(size_t size) {
    void* memory = malloc(size);
    if (memory == NULL) {
        abort();
    }
    return memory;
}

static void* copy_string(void* string) {
    return strcpy(allocate_or_abort(strlen(string) + 1), string);
}

static void* copy_article(void* article) {
    return memcpy(allocate_or_abort(sizeof(article_t)), article, sizeof(article_t));
}

/* Returns a copy, or NULL when there is no memory for all of it. */
static qv_btree_t* copy_shop(const qv_btree_t* shop) {
    qv_btree_t* copy = qv_btree_new(compare_strings, free, free);
    qv_btree_node_t* node = qv_btree_first_node(shop);
    for (; copy != NULL && node != NULL; node = qv_btree_next_node(node)) {
        const article_t* article = qv_btree_node_value(node);
        if (!add_article(copy, qv_btree_node_key(node), article->stock, article->price)) {
            qv_btree_free(copy);
            copy = NULL;
        }
    }
    return copy;
}

int main(void) {
    qv_btree_t* shop = qv_btree_new(compare_strings, free, free);
    if (!add_article(shop, "apple", 3, 0.5) || !add_article(shop, "apricot", 0, 1.5) ||
        !add_article(shop, "bread", 2, 3.25) || !add_article(shop, "pear", 0, 0.75)) {
        qv_btree_free(shop);
        return EXIT_FAILURE;
    }
    assert_ascending(shop);
    qv_btree_t* checked = qv_btree_new(compare_strings_checked, NULL, NULL);
    qv_btree_assign(checked, shop, NULL, NULL);
    qv_btree_free(checked);
    const char* cheap = "nothing";
    qv_btree_foreach(shop, is_cheap, &cheap);
    printf("%d begin with ap, the first cheap one is %s\n", count_with_prefix(shop, "ap"), cheap);
    printf("downwards:");
    if (!print_downwards(shop)) {
        return EXIT_FAILURE;
    }
    printf("\n");

    /* Sharing: the view releases nothing, and must not outlive the shop's own entries. */
    qv_btree_t* view = qv_btree_copy(shop, NULL, NULL);
    /* Duplicating: a map of its own. */
    qv_btree_t* archive = qv_btree_copy(shop, copy_string, copy_article);
    const bool complete = view != NULL && qv_btree_size(view) == qv_btree_size(shop) &&
                          archive != NULL && qv_btree_size(archive) == qv_btree_size(shop);
    qv_btree_t* backup = copy_shop(shop);
    if (!complete || backup == NULL) {
        return EXIT_FAILURE;
    }
    qv_btree_free(view);

    remove_sold_out(shop);
    printf("%d left of %d and %d\n", (int)qv_btree_size(shop), (int)qv_btree_size(archive),
           (int)qv_btree_size(backup));
    qv_btree_free(archive);
    qv_btree_free(backup);
    qv_btree_free(shop);

    int numbers[] = {3, 1, 3, 2, 1};
    order_t placed[] = {{"Ada", 7}, {"Grace", 2}, {"Ada", -3}};
    qv_btree_t* orders = qv_btree_new(compare_orders, NULL, NULL);
    for (int i = 0; i < 3; ++i) {
        qv_btree_insert(orders, &placed[i], NULL);
    }
    printf("%d distinct numbers, %d orders of Ada\n", (int)count_distinct(numbers, 5),
           count_orders(orders, "Ada"));
    qv_btree_free(orders);

    char names[3][8] = {"Ada", "Edsger", "Grace"};
    qv_btree_t* people = qv_btree_new(compare_strings_and_note, NULL, NULL);
    for (int i = 0; i < 3; ++i) {
        qv_btree_insert(people, names[i], NULL);
    }
    printf("after Ada comes %s, after Bob %s\n",
           (char*)qv_btree_node_key(upper_bound(people, "Ada")),
           (char*)qv_btree_node_key(upper_bound(people, "Bob")));
    printf("before Bob comes %s, before Ada %s\n",
           (char*)qv_btree_node_key(node_before(people, "Bob")),
           node_before(people, "Ada") == NULL ? "nobody" : "somebody");
    printf("two downwards from Hal:");
    qv_btree_node_t* node = floor_of(people, "Hal");
    for (int i = 0; i < 2 && node != NULL; ++i) {
        printf(" %s", (char*)qv_btree_node_key(node));
        node = node_before(people, qv_btree_node_key(node));
    }
    qv_btree_t* retired = qv_btree_new(compare_strings, NULL, NULL);
    const bool moved = move_entry(people, retired, "Ada");
    printf("\n%d retired, %d stay\n", moved ? (int)qv_btree_size(retired) : 0,
           (int)qv_btree_size(people));
    qv_btree_free(retired);
    qv_btree_free(people);

    const char* words[] = {"to", "be", "or", "not", "to", "be"};
    qv_btree_t* counts = qv_btree_new(compare_strings, free, free);
    for (int i = 0; i < 6; ++i) {
        if (!count_word(counts, words[i])) {
            return EXIT_FAILURE;
        }
    }
    printf("to: %d, not: %d\n", *(int*)qv_btree_find(counts, "to"),
           *(int*)qv_btree_find(counts, "not"));
    qv_btree_free(counts);

    int due[] = {30, 10, 20};
    const int now[] = {15, 20, 31};
    qv_btree_t* timers = qv_btree_new(compare_ints, NULL, NULL);
    for (int i = 0; i < 3; ++i) {
        qv_btree_insert(timers, &due[i], NULL);
    }
    printf("timers left:");
    for (int i = 0; i < 3; ++i) {
        remove_below(timers, &now[i]);
        printf(" %d", (int)qv_btree_size(timers));
    }
    printf("\n");
    qv_btree_free(timers);

    qv_btree_t* squares = qv_btree_new(compare_numbers_in_pointers, NULL, NULL);
    for (uintptr_t n = 1; n <= 9; ++n) {
        qv_btree_insert(squares, (void*)n, (void*)(n * n));
    }
    printf("7 squared is %d\n", (int)(uintptr_t)qv_btree_find(squares, (const void*)7));
    qv_btree_free(squares);
    return EXIT_SUCCESS;
}

/* It prints
```text recipes
2 begin with ap, the first cheap one is apple
downwards: pear bread apricot apple
2 left of 4 and 4
3 distinct numbers, 2 orders of Ada
after Ada comes Edsger, after Bob Edsger
before Bob comes Ada, before Ada nobody
two downwards from Hal: Grace Edsger
1 retired, 2 stay
to: 2, not: 1
timers left: 2 2 0
7 squared is 49
```
*/
