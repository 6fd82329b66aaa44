#include "dllists.h"

#include <cstdlib>

#include "debug_log.h"
#include "lists.h"

namespace {

/// Links an unlinked node before `next`; at the tail when that is null.
dllist_t *link_before(dllist_ctrl_t *ctrl, dllist_t *next, dllist_t *node) {
    node->next = next;
    node->prev = next != nullptr ? next->prev : ctrl->tail;
    (node->prev != nullptr ? node->prev->next : ctrl->head) = node;
    (next != nullptr ? next->prev : ctrl->tail) = node;
    ctrl->num_entries++;
    return node;
}

}  // namespace

void dllist_init(dllist_ctrl_t *ctrl) {
    *ctrl = {};
}

dllist_t *dllist_new_node(void *value) {
    auto *node = static_cast<dllist_t *>(std::calloc(1, sizeof(dllist_t)));
    if (node != nullptr)
        node->value = value;
    return node;
}

dllist_t *dllist_insert_tail(dllist_ctrl_t *ctrl, dllist_t *node) {
    return node != nullptr ? link_before(ctrl, nullptr, node) : nullptr;
}

dllist_t *dllist_insert_tail_new(dllist_ctrl_t *ctrl, void *value) {
    return dllist_insert_tail(ctrl, dllist_new_node(value));
}

dllist_t *dllist_insert_tail_recycle(dllist_ctrl_t *ctrl, dllist_t *node) {
    return dllist_insert_tail(ctrl, node);
}

dllist_t *dllist_delink_head(dllist_ctrl_t *ctrl) {
    dllist_t *node = ctrl->head;
    if (node == nullptr)
        return nullptr;
    ctrl->head = node->next;
    (ctrl->head != nullptr ? ctrl->head->prev : ctrl->tail) = nullptr;
    node->next = nullptr;
    ctrl->num_entries--;
    return node;
}

void dllist_delink_node(dllist_ctrl_t *ctrl, dllist_t *node) {
    if (node == nullptr || ctrl->num_entries == 0)
        return;
    if (node == ctrl->head) {
        (void)dllist_delink_head(ctrl);
        return;
    }
    (node->prev != nullptr ? node->prev->next : ctrl->head) = node->next;
    (node->next != nullptr ? node->next->prev : ctrl->tail) = node->prev;
    node->next = nullptr;
    node->prev = nullptr;
    ctrl->num_entries--;
}

void dllist_free(dllist_ctrl_t *ctrl) {
    while (dllist_t *node = dllist_delink_head(ctrl)) {
        std::free(node->value);
        std::free(node);
    }
}

dllist_t *dllist_insert_sorted_order(int order, dllist_ctrl_t *ctrl,
                                     int (*compare)(const void *value, const void *new_value), void *value) {
    if (order != LIST_ASCENDING && order != LIST_DESCENDING) {
        WL_LOG(3, "Invalid sort order[%d] ", order);
        return nullptr;
    }
    if (ctrl == nullptr || compare == nullptr || value == nullptr) {
        WL_LOG(3, "Null pointers passed");
        return nullptr;
    }
    dllist_t *next = ctrl->head;
    for (; next != nullptr; next = next->next) {
        const int difference = compare(next->value, value);
        if (order == LIST_ASCENDING ? difference >= 0 : difference <= 0)
            break;
    }
    dllist_t *node = dllist_new_node(value);
    return node != nullptr ? link_before(ctrl, next, node) : nullptr;
}

int dllist_num_entries(const dllist_ctrl_t *ctrl) {
    return ctrl != nullptr ? ctrl->num_entries : 0;
}
