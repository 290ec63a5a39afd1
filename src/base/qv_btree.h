/**
 * @file qv_btree.h
 * An ordered map of opaque keys to opaque values: a threaded AVL binary tree behind a flat
 * interface of free functions, for C99 and C++11.
 */
#ifndef QV_BASE_QV_BTREE_H
#define QV_BASE_QV_BTREE_H

#include <stdbool.h>
#include <stddef.h>

#include "basictypes.h"
#include "hal/hal_memory.h" /* so that a program's own definitions get the right linkage and types */

#ifdef __cplusplus
extern "C" {
#endif

/**
 * An ordered map.
 *
 * This contract holds for every function below; what a function promises besides is said there.
 *
 * **Comparator.** For as long as keys are stored, the comparator must order them as one total
 * order. It gives three answers: less than 0, 0, or greater than 0. The answer for the same two
 * keys is always the same, the answer for the two keys exchanged is the opposite, and the order is
 * transitive. A key must not change its place in that order while it is stored. Breaking one of
 * these laws is undefined.
 *
 * The map itself never dereferences a key or a value. So NULL is a key like any other to a
 * comparator that can order it (but see qv_btree_first(), qv_btree_low_bound() and
 * qv_btree_remove_until()), and NULL is a value like any other.
 *
 * **Keys of another kind.** A key that is only sought need not be of the kind that is stored: it
 * always is the comparator's first argument, and is used for nothing else. But the comparator must
 * give it one place in the order of the stored keys: first come those for which it answers greater
 * than 0, then those for which it answers 0, then those for which it answers less than 0. Where a
 * sought key equals several stored keys, the first of these on the way from the root is found;
 * qv_btree_low_bound() returns the smallest of them.
 *
 * **Ownership.** The map hands each key that it drops to the key destructor, and each value to the
 * value destructor: what it no longer stores and, where an equal key is stored already, a key that
 * it never stored. A NULL that was a key or a value is handed over like any other. Where a
 * destructor is NULL, objects of that kind stay the caller's. When one entry or all of them are
 * removed, the key's destructor runs before the value's. When an equal key arrives, the stored
 * value's destructor runs before that of the key that is dropped.
 *
 * **Callbacks** run on the caller's thread, inside the call that caused them. A comparator,
 * destructor or copy function may call qv_btree_size() and qv_btree_empty() on the map that called
 * it (in copying and assigning: on both maps), and no other function of this header. A visitor may
 * do all that does not change its map. HAL_Malloc() and HAL_Free() must not use the map at all.
 * None of these functions may leave by an exception or longjmp().
 *
 * **Nodes.** An entry stays in the node it was created in. A node pointer stays valid, and leads to
 * the same entry, across every insertion, every overwriting of its key or value and every removal
 * of other entries, until that entry is removed or the map is cleared, assigned to or released.
 * Using the pointer after that is undefined.
 *
 * **Exhausted memory.** qv_btree_new() and qv_btree_copy() return NULL where there is no memory for
 * the map itself. An insertion that gets no memory for its node changes nothing, calls nothing but
 * the comparator, and leaves key and value with the caller. A copy or an assignment leaves such an
 * entry out and goes on, and nobody owns its duplicates: compare the sizes of the two maps.
 *
 * An insertion lets qv_btree_size() grow by one for a new entry. It leaves the size as it is in two
 * cases, which differ in who owns key and value: an equal key was found, or the entry was refused.
 * So look the key up first. When it is known to be absent, an unchanged size means that there was
 * no memory:
 *
 *     size_t before = qv_btree_size(map);
 *     qv_btree_insert(map, key, value);    // key is not yet stored
 *     if (qv_btree_size(map) == before) {  // no memory: key and value are still ours
 *         free(key);
 *         free(value);
 *     }
 *
 * An entry below the 40th level of the tree is refused in the same way. A map of fewer than
 * 267,914,295 entries refuses none, in whatever order it was built.
 *
 * **Costs** are given for a map of n entries. They bound the number of comparator calls and of all
 * other steps. One search is O(log n). The node of an entry that was just inserted, or of a lower
 * bound, takes a second search.
 *
 * **Threads.** A map has no lock. Lookups, visits, node navigation, qv_btree_size(),
 * qv_btree_empty(), and copying or assigning from a map write nothing in it and may run in parallel
 * with each other; every other call on a map must be serialized against all calls on the same map.
 * There is no state outside the maps. Calls that run in parallel, on different maps or from one,
 * call HAL_Malloc() and HAL_Free() at the same time.
 *
 * **NULL.** Every function accepts a NULL map and then returns its neutral result (NULL, false, 0,
 * and true from qv_btree_empty()) or does nothing.
 *
 * **Assertions.** What an assertion catches is undefined in a library that was built with `NDEBUG`,
 * as release builds are.
 *
 * **const.** Some lookups take a `const qv_btree_t*`, others a `qv_btree_t*`; none of them changes
 * the map.
 */
typedef struct qv_btree_s qv_btree_t;

/** One entry of a map. It belongs to the map; see the rules for nodes at ::qv_btree_t. */
typedef struct qv_btree_node_s qv_btree_node_t;

/**
 * @name Lifecycle and counters
 * @{
 */

/**
 * Creates an empty map, which the caller releases with qv_btree_free(). It allocates once.
 *
 * `key_compare` orders the keys; `key_dtor` and `value_dtor` release the keys and the values that
 * the map no longer stores, and either may be NULL. All three are fixed for the life of the map.
 * Returns NULL when `key_compare` is NULL or there is no memory.
 */
qv_btree_t* qv_btree_new(qv_comparator_pt key_compare, qv_dtor_pt key_dtor, qv_dtor_pt value_dtor);

/** Clears the map as qv_btree_clear() does, then releases the map itself. O(n). */
void qv_btree_free(qv_btree_t* t);

/**
 * Removes every entry; the map stays usable. O(n), without a comparator call.
 *
 * Entries are removed in ascending order of their keys. For each one the key destructor runs, then
 * the value destructor, then the node is released, before the next entry is removed. Inside the
 * destructors the size is still that of the full map; it drops to 0 at the end.
 */
void qv_btree_clear(qv_btree_t* t);

/** Returns the number of entries; 0 for NULL. O(1). */
size_t qv_btree_size(const qv_btree_t* t);

/** Returns whether the map has no entry; true for NULL. O(1). */
bool qv_btree_empty(const qv_btree_t* t);

/** @} */

/**
 * @name Node navigation
 *
 * An ordered walk needs no memory, no comparator call and O(n) steps in all:
 *
 *     qv_btree_node_t* node;
 *     for (node = qv_btree_first_node(map); node != NULL; node = qv_btree_next_node(node)) {
 *         use(qv_btree_node_key(node), qv_btree_node_value(node));
 *     }
 *
 * An entry that is inserted during a walk is met if its key is greater than that of the current
 * node.
 * @{
 */

/** Returns the node with the smallest key; NULL for an empty or NULL map. O(log n). */
qv_btree_node_t* qv_btree_first_node(const qv_btree_t* t);

/** Returns the node with the largest key; NULL for an empty or NULL map. O(log n). */
qv_btree_node_t* qv_btree_last_node(const qv_btree_t* t);

/**
 * Returns the node with the next larger key; NULL after the last. O(1) on average over a walk,
 * O(log n) at worst. `node` must not be NULL: that is caught by an assertion.
 */
qv_btree_node_t* qv_btree_next_node(qv_btree_node_t* node);

/** Returns the key stored in `node`, whose owner stays the same. NULL for NULL. O(1). */
void* qv_btree_node_key(qv_btree_node_t* node);

/** Returns the value stored in `node`, whose owner stays the same. NULL for NULL. O(1). */
void* qv_btree_node_value(qv_btree_node_t* node);

/** @} */

/**
 * @name Lookup and visiting
 *
 * None of these allocates, changes the map or calls a destructor. The owner of what they return
 * stays the same. The comparator is called from the root downwards, with the caller's `key` as its
 * first argument and a stored key as its second. `key` may be of another kind: see ::qv_btree_t.
 * @{
 */

/** Returns the node whose key equals `key`, or NULL when there is none. O(log n). */
qv_btree_node_t* qv_btree_find_node(const qv_btree_t* t, const void* key);

/**
 * Returns the value stored under `key`, or NULL when there is none. O(log n). An absent key and one
 * that is stored with a NULL value give the same result: only qv_btree_find_node() distinguishes
 * them.
 */
void* qv_btree_find(qv_btree_t* t, const void* key);

/**
 * Returns the value of the entry with the smallest key and, unless `key` is NULL, stores that key
 * in `*key`. For an empty or NULL map it returns NULL and sets `*key` to NULL; where NULL is stored
 * as a key or a value, that looks the same. O(log n), without a comparator call.
 */
void* qv_btree_first(qv_btree_t* t, void** key);

/**
 * Returns the smallest stored key (not its value) that is not less than `key`, or NULL when every
 * stored key is smaller. O(log n): the search continues to the left of an equal key, down to a
 * missing child. With the keys 10, 20 and 30: 5 gives 10, 20 gives 20, 21 gives 30, 31 gives NULL.
 *
 * To walk from there, find the node of the result:
 *
 *     void* first = qv_btree_low_bound(map, key);
 *     qv_btree_node_t* node = first != NULL ? qv_btree_find_node(map, first) : NULL;
 *
 * Where NULL is stored as a key, a NULL result may be that key or mean that there is none.
 */
void* qv_btree_low_bound(qv_btree_t* t, const void* key);

/**
 * Calls `func(key, value, user_data)` for the entries in ascending order of their keys until it
 * returns true or there are no more. O(n), without a comparator call.
 *
 * `func` may look up in the map, walk over it, visit it and copy from it; it must not insert,
 * remove, clear or assign to it. It must not be NULL when the map has entries: that is caught by an
 * assertion.
 */
void qv_btree_foreach(qv_btree_t* t, qv_key_value_pt func, void* user_data);

/** @} */

/**
 * @name Insertion
 *
 * O(log n), at most one allocation. The comparator is called from the root downwards with the new
 * key as its first argument and a stored key as its second. Where an equal key is stored already,
 * the entry keeps its node and nothing is allocated. Nothing is returned: see "Exhausted memory" at
 * ::qv_btree_t.
 *
 * Where there is a destructor, never pass the very key or value that is stored: it would be
 * released while it is stored. (Objects whose references are counted may be passed again, each time
 * with a reference of its own.)
 * @{
 */

/**
 * Stores `value` under `key`. Over an equal key the **stored key stays**: the stored value goes to
 * the value destructor, `value` takes its place, then `key` itself goes to the key destructor.
 */
void qv_btree_insert(qv_btree_t* t, void* key, void* value);

/**
 * Stores `value` under `key`. Over an equal key the **new key stays**: the stored value goes to the
 * value destructor, `value` takes its place, then the stored key goes to the key destructor and
 * `key` takes its place.
 */
void qv_btree_replace(qv_btree_t* t, void* key, void* value);

/** @} */

/**
 * @name Removal
 *
 * O(log n) for each entry removed: one search, and no allocation. The entry is unlinked and the
 * tree is balanced; then the key destructor and the value destructor run, while qv_btree_size()
 * still counts the entry; then its node is released and the size drops by one. No other entry
 * changes its node.
 * @{
 */

/**
 * Removes the entry whose key equals `key`. Returns false, having changed nothing, when there is
 * none. `key` may be the stored key itself: it is not used after the search. It may be of another
 * kind: see ::qv_btree_t.
 */
bool qv_btree_remove(qv_btree_t* t, const void* key);

/**
 * Removes as qv_btree_remove() does, but searches with `key_compare` in place of the map's own
 * comparator: for a `key` that only `key_compare` can place in the order of the stored keys, such
 * as a name where records are stored. `key_compare` must not be NULL when the map has entries: that
 * is caught by an assertion.
 */
bool qv_btree_remove_cmp(qv_btree_t* t, const void* key, qv_comparator_pt key_compare);

/**
 * Removes the entry in `node`, a node of `t`, and returns the node with the next larger key, or
 * NULL after the last entry and when `t` or `node` is NULL. The comparator is called with stored
 * keys only, to find the way from the root to the entry. Removing while walking:
 *
 *     while (node != NULL) {
 *         node = unwanted(node) ? qv_btree_remove_node(map, node) : qv_btree_next_node(node);
 *     }
 */
qv_btree_node_t* qv_btree_remove_node(qv_btree_t* t, qv_btree_node_t* node);

/**
 * Removes every entry whose key sorts before `key`, provided that `key` itself is stored; its own
 * entry stays. Returns false, having removed nothing, when it is not stored. O((m + 1) log n) for m
 * entries removed, in ascending order, each one as by qv_btree_remove().
 *
 * With the keys 1 to 10: 6 removes 1 to 5 and returns true, 1 removes nothing and returns true, 11
 * removes nothing and returns false.
 *
 * First `key` is searched for, then each removed key: only the first of these searches passes `key`
 * to the comparator. `key` may be of another kind: where it equals several stored keys, all entries
 * before the first of these on the way from the root are removed, equal ones among them. An entry
 * whose key is a NULL pointer is never removed: the call stops there and returns true.
 */
bool qv_btree_remove_until(qv_btree_t* t, const void* key);

/** @} */

/**
 * @name Copying
 *
 * A copy function makes the duplicate that the receiving map stores; with NULL in its place the two
 * maps share the pointer. The source's entries are taken in ascending order, each one's key copied
 * before its value, and go through qv_btree_insert(): O(n log n) with its comparator calls for the
 * source's n entries. The source is only read.
 *
 * An entry for which there is no memory is left out and the next one follows: see "Exhausted
 * memory" at ::qv_btree_t. What a copy function returns is stored as it is: NULL as well.
 * @{
 */

/**
 * Returns a new map with the comparator and the entries of `tree`, which the caller releases with
 * qv_btree_free(); NULL when `tree` is NULL or there is no memory for the map itself, and then no
 * copy function is called.
 *
 * The new map takes over the key destructor of `tree` only with a `key_copy`, and its value
 * destructor only with a `value_copy`: it never releases what it shares with `tree`. Once `tree`
 * has released that, the new map may only be cleared or released. Where `tree` has no destructor,
 * the new map has none either, and the duplicates belong to the caller.
 */
qv_btree_t* qv_btree_copy(const qv_btree_t* tree, qv_copy_pt key_copy, qv_copy_pt value_copy);

/**
 * Clears `tree` as qv_btree_clear() does, in O(m) for its m entries, then fills it with the entries
 * of `other`; a NULL `other` leaves it empty. Where there is no memory, the old entries are gone
 * nevertheless. Does nothing when both are the same map or `tree` is NULL.
 *
 * `tree` keeps its own comparator and destructors. It places the entries by its own comparator: of
 * keys that it finds equal, the first stays with the last value, the others go to its destructors
 * as qv_btree_insert() describes, and the size is smaller than that of `other`. Objects shared by
 * two maps that both have a destructor for them would be released twice: to share, use maps without
 * that destructor.
 */
void qv_btree_assign(qv_btree_t* tree, const qv_btree_t* other, qv_copy_pt key_copy,
                     qv_copy_pt value_copy);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* QV_BASE_QV_BTREE_H */
