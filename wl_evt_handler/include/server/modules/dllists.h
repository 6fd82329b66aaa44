/// Doubly linked lists with a count: the first-in first-out queue of the bandwidth jobs, and sorted rule lists.
///
/// A node taken out of a list is the caller's, who frees it with free() or queues it again. Values stay the caller's
/// until dllist_free. No lock: a list that two threads use is locked by its owner. Arguments are never null unless it
/// says so.
#pragma once

struct dllist_t {
    void *value;
    dllist_t *next;
    dllist_t *prev;
};

struct dllist_ctrl_t {
    dllist_t *head;   // null when the list is empty
    dllist_t *tail;   // null when the list is empty
    int num_entries;  // linked nodes
};

/// Makes the list empty, forgetting what it held.
void dllist_init(dllist_ctrl_t *ctrl);

/// @return a new unlinked node, to be freed with free(); null when memory is short
[[nodiscard]] dllist_t *dllist_new_node(void *value);

/// Links an unlinked node as the last; whatever links it carried are overwritten.
///
/// @param node  becomes the list's; null changes nothing
/// @return `node`
dllist_t *dllist_insert_tail(dllist_ctrl_t *ctrl, dllist_t *node);

/// Appends a value in a new node.
///
/// @return the node, the list's; null (the value stays out) when memory is short
[[nodiscard]] dllist_t *dllist_insert_tail_new(dllist_ctrl_t *ctrl, void *value);

/// Queues a node again that dllist_delink_head or dllist_delink_node gave back: dllist_insert_tail by a telling name.
dllist_t *dllist_insert_tail_recycle(dllist_ctrl_t *ctrl, dllist_t *node);

/// Unlinks the first node.
///
/// @return the node, now the caller's, its links cleared; null when the list is empty
[[nodiscard]] dllist_t *dllist_delink_head(dllist_ctrl_t *ctrl);

/// Unlinks a node, which becomes the caller's with its links cleared. Nothing happens when the list is empty or the
/// node null; a node of another list must not be passed.
void dllist_delink_node(dllist_ctrl_t *ctrl, dllist_t *node);

/// Empties a list: frees every node, and every value with free().
void dllist_free(dllist_ctrl_t *ctrl);

/// Inserts a value in a new node before the first node that does not sort before it; so a value goes before its equals.
///
/// @param order    1 ascending, 2 descending by `compare`
/// @param compare  called with a node's value and the new value; negative when the first sorts before the second
/// @return the new node, the list's; null (the value stays out) when memory is short, an argument is null or the order
///         is neither
[[nodiscard]] dllist_t *dllist_insert_sorted_order(int order, dllist_ctrl_t *ctrl,
                                                   int (*compare)(const void *value, const void *new_value),
                                                   void *value);

/// @return the number of linked nodes; 0 for null
int dllist_num_entries(const dllist_ctrl_t *ctrl);
