#ifndef SORVANIC_PLATFORM_KERNEL_LIST_H
#define SORVANIC_PLATFORM_KERNEL_LIST_H

namespace kernel {

/// A link of a circular doubly linked list, and the head of one. An empty list's head points
/// at itself. A zero-filled head is not a list yet: init_list_head makes it one.
struct list_head {
    list_head* next;
    list_head* prev;
};

inline void init_list_head(list_head* head)
{
    head->next = head;
    head->prev = head;
}

inline bool list_empty(const list_head* head)
{
    return head->next == head;
}

/// Links `entry` at the end of the list, before `head`.
inline void list_add_tail(list_head* entry, list_head* head)
{
    entry->prev = head->prev;
    entry->next = head;
    head->prev->next = entry;
    head->prev = entry;
}

/// Unlinks `entry`; its own pointers are left dangling.
inline void list_del(list_head* entry)
{
    entry->prev->next = entry->next;
    entry->next->prev = entry->prev;
}

} // namespace kernel

#endif
