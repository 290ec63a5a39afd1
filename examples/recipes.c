/* What a map is used for, in C99; docs/recipes.md explains each part. */

#include <qv/base/qv_btree.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* A map of strings to structures, both owned by the map. */

typedef struct {
    int stock;
    double price;
} article_t;

static int32_t compare_strings(const void* a, const void* b) {
    return strcmp((const char*)a, (const char*)b);
}

/* A copy function cannot refuse: NULL would be stored, and compared. */
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
    article_t* copy = allocate_or_abort(sizeof(article_t));
    *copy = *(const article_t*)article;
    return copy;
}

/* Detecting exhausted memory: true if the article is in the map afterwards. */
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

/* Removing while walking. */
static void remove_sold_out(qv_btree_t* shop) {
    qv_btree_node_t* node = qv_btree_first_node(shop);
    while (node != NULL) {
        const article_t* article = qv_btree_node_value(node);
        node = article->stock == 0 ? qv_btree_remove_node(shop, node) : qv_btree_next_node(node);
    }
}

/* A prefix range: enters at the lower bound and leaves at the first name without the prefix. */
static int count_with_prefix(qv_btree_t* shop, const char* prefix) {
    int count = 0;
    const void* first = qv_btree_low_bound(shop, prefix);
    qv_btree_node_t* node = first != NULL ? qv_btree_find_node(shop, first) : NULL;
    while (node != NULL && strncmp(qv_btree_node_key(node), prefix, strlen(prefix)) == 0) {
        ++count;
        node = qv_btree_next_node(node);
    }
    return count;
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

int main(void) {
    qv_btree_t* shop = qv_btree_new(compare_strings, free, free);
    if (!add_article(shop, "apple", 3, 0.5) || !add_article(shop, "apricot", 0, 1.5) ||
        !add_article(shop, "bread", 2, 3.25) || !add_article(shop, "pear", 0, 0.75)) {
        qv_btree_free(shop);
        return EXIT_FAILURE;
    }
    const char* cheap = "nothing";
    qv_btree_foreach(shop, is_cheap, &cheap);
    printf("%d begin with ap, the first cheap one is %s\n", count_with_prefix(shop, "ap"), cheap);

    /* Sharing: the view releases nothing, and must not outlive the shop's own entries. */
    qv_btree_t* view = qv_btree_copy(shop, NULL, NULL);
    /* Duplicating: a map of its own. */
    qv_btree_t* archive = qv_btree_copy(shop, copy_string, copy_article);
    if (qv_btree_size(view) != 4 || qv_btree_size(archive) != 4) {
        return EXIT_FAILURE; /* An entry without memory is left out. */
    }
    qv_btree_free(view);

    remove_sold_out(shop);
    printf("%d left of %d\n", (int)qv_btree_size(shop), (int)qv_btree_size(archive));
    qv_btree_free(archive);
    qv_btree_free(shop);
    return EXIT_SUCCESS;
}
