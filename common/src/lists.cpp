#include "lists.h"

#include <cstdlib>

#include "debug_log.h"

namespace {

/// The link (a head or a node's `next`) that leads to the first node equal to `key`, or else the last, null link.
list_t **find_link(list_t **head, list_compare_t compare, const void *key) {
    list_t **link = head;
    while (*link != nullptr && compare((*link)->value, key) != 0)
        link = &(*link)->next;
    return link;
}

list_t **find_end(list_t **head) {
    list_t **link = head;
    while (*link != nullptr)
        link = &(*link)->next;
    return link;
}

/// The link that leads to the last node of a list that is not empty.
list_t **find_tail(list_t **head) {
    list_t **link = head;
    while ((*link)->next != nullptr)
        link = &(*link)->next;
    return link;
}

list_t *insert_at(list_t **link, void *value) {
    list_t *node = list_new_node(value);
    if (node == nullptr)
        return nullptr;
    node->next = *link;
    *link = node;
    return node;
}

/// Unlinks and frees the node that `link` leads to.
///
/// @return its value
void *remove_at(list_t **link) {
    list_t *node = *link;
    void *value = node->value;
    *link = node->next;
    std::free(node);
    return value;
}

bool is_empty(list_t **head) {
    return head == nullptr || *head == nullptr;
}

bool null_pointers(const char *caller, const void *list, list_compare_t compare, const void *key) {
    if (list != nullptr && compare != nullptr && key != nullptr)
        return false;
    WL_LOG_AS(caller, 3, "Null pointers passed %p %p %p", list, reinterpret_cast<void *>(compare), key);
    return true;
}

}  // namespace

list_t *list_new_node(void *value) {
    auto *node = static_cast<list_t *>(std::calloc(1, sizeof(list_t)));
    if (node != nullptr)
        node->value = value;
    return node;
}

list_t *list_insert_head(list_t **head, void *value) {
    return head != nullptr ? insert_at(head, value) : nullptr;
}

list_t *list_insert_tail(list_t **head, void *value) {
    return head != nullptr ? insert_at(find_end(head), value) : nullptr;
}

int list_length(const list_t *first) {
    int count = 0;
    for (; first != nullptr; first = first->next)
        count++;
    return count;
}

int list_delete_node(list_t **head, list_t *node) {
    list_t **link = head;
    while (!is_empty(link) && *link != node)
        link = &(*link)->next;
    if (is_empty(link)) {
        WL_LOG(3, "Delete Error");
        return -1;
    }
    (void)remove_at(link);
    return 0;
}

int list_delete_tail_node(list_t **head) {
    if (is_empty(head)) {
        WL_LOG(3, "lists.c: Tail node delete error: List was empty");
        return -1;
    }
    std::free(remove_at(find_tail(head)));
    return 0;
}

int list_delete_val(list_t **head, const void *value) {
    list_t **link = head;
    while (!is_empty(link) && (*link)->value != value)
        link = &(*link)->next;
    if (is_empty(link)) {
        WL_LOG(3, "Value not found");
        return -1;
    }
    (void)remove_at(link);
    return 0;
}

int list_delete_value(list_t **head, list_compare_t compare, const void *key) {
    if (head == nullptr) {
        WL_LOG(3, "Null head pointer passed");
        return -1;
    }
    list_t **link = find_link(head, compare, key);
    if (*link == nullptr) {
        WL_LOG(7, "Value not found");
        return -1;
    }
    std::free(remove_at(link));
    return 0;
}

int list_delete_multiple_values(list_t **head, list_compare_t compare, const void *key, list_free_t free_value) {
    if (head == nullptr || key == nullptr) {
        WL_LOG(3, "Null head pointer passed");
        return -1;
    }
    for (list_t **link = find_link(head, compare, key); *link != nullptr; link = find_link(link, compare, key)) {
        void *value = remove_at(link);
        if (free_value != nullptr)
            free_value(value);
    }
    WL_LOG(7, "Reached end of list");
    return 0;
}

void list_free(list_t **head) {
    (void)list_free_with_free_func(head, std::free);
}

void list_free_without_payload_freeing(list_t **head) {
    (void)list_free_with_free_func(head, nullptr);
}

list_t **list_free_with_free_func(list_t **head, list_free_t free_value) {
    while (!is_empty(head)) {
        void *value = remove_at(head);
        if (value != nullptr && free_value != nullptr)
            free_value(value);
    }
    return head;
}

int list_insert_sorted_order(int order, list_t **head, list_compare_t compare, void *value) {
    if (head == nullptr || compare == nullptr || value == nullptr) {
        WL_LOG(3, "Null pointers passed");
        return -1;
    }
    if (order != LIST_ASCENDING && order != LIST_DESCENDING) {
        WL_LOG(3, "Invalid sort order[%d] ", order);
        return -1;
    }
    list_t **link = head;
    for (; *link != nullptr; link = &(*link)->next) {
        const int difference = compare((*link)->value, value);
        if (order == LIST_ASCENDING ? difference >= 0 : difference <= 0)
            break;
    }
    (void)insert_at(link, value);
    return 0;
}

int list_insert_without_duplication(list_t **head, list_compare_t compare, void *value,
                                    void (*update)(void *stored, void *value)) {
    if (null_pointers(__func__, head, compare, value))
        return -1;
    list_t **link = find_link(head, compare, value);
    if (*link == nullptr) {
        (void)insert_at(link, value);
        return 0;
    }
    if (update != nullptr)
        update((*link)->value, value);
    return LIST_ALREADY_PRESENT;
}

int list_search_element(list_t **head, list_compare_t compare, const void *key) {
    if (null_pointers(__func__, head, compare, key))
        return -1;
    return *find_link(head, compare, key) != nullptr ? LIST_FOUND : LIST_NOT_FOUND;
}

list_t *list_get_element(list_t *first, list_compare_t compare, const void *key) {
    if (null_pointers(__func__, first, compare, key))
        return nullptr;
    return *find_link(&first, compare, key);
}

list_t *list_get_tail_node(list_t **head) {
    if (is_empty(head)) {
        WL_LOG(3, "lists.c: Tail node get error: List was empty");
        return nullptr;
    }
    return *find_tail(head);
}

list_t *list_reverse(list_t **head) {
    if (head == nullptr)
        return nullptr;
    list_t *reversed = nullptr;
    for (list_t *node = *head; node != nullptr;) {
        list_t *next = node->next;
        node->next = reversed;
        reversed = node;
        node = next;
    }
    *head = reversed;
    return reversed;
}

void list_qsort(list_t *first, int (*compare)(const void *node, const void *other_node)) {
    if (first == nullptr)
        return;
    const auto count = static_cast<size_t>(list_length(first));
    auto *sorted = static_cast<list_t *>(std::malloc(count * sizeof(list_t)));
    if (sorted == nullptr) {
        WL_LOG(3, "list_qsort: malloc failed !");
        return;
    }
    list_t *copy = sorted;
    for (const list_t *node = first; node != nullptr; node = node->next)
        *copy++ = *node;
    std::qsort(sorted, count, sizeof(list_t), compare);
    copy = sorted;
    for (list_t *node = first; node != nullptr; node = node->next, copy++) {
        node->cleanup_value = copy->cleanup_value;
        node->value = copy->value;
    }
    std::free(sorted);
}
