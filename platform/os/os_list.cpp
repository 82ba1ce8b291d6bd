#include "platform/os/os.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

// The element follows its node in memory, aligned for whatever it is.
struct alignas(max_align_t) DListNode {
    DListNode *prev, *next;
};

struct DList {
    DListNode *head, *tail;
    size_t size, element_size;
    LMutex mutex;
};

DList *adt_dlist_create(size_t element_size)
{
    if (element_size == 0 || element_size > SIZE_MAX - sizeof(DListNode) || os_fault_point("adt_dlist_create"))
        return nullptr;
    auto list = static_cast<DList *>(std::calloc(1, sizeof(DList)));
    if (list == nullptr)
        return nullptr;
    list->element_size = element_size;
    if (!os_mutex_init(&list->mutex, 1)) {
        std::free(list);
        return nullptr;
    }
    return list;
}

void adt_dlist_destroy(DList *list)
{
    if (list == nullptr)
        return;
    for (DListNode *node = list->head; node != nullptr;) {
        DListNode *next = node->next;
        std::free(node);
        node = next;
    }
    os_mutex_destroy(&list->mutex);
    std::free(list);
}

void adt_dlist_lock(DList *list)
{
    if (list != nullptr)
        os_mutex_lock(&list->mutex);
}

void adt_dlist_unlock(DList *list)
{
    if (list != nullptr)
        os_mutex_unlock(&list->mutex);
}

void adt_dlist_set_rank(DList *list, int rank, const char *name)
{
    if (list != nullptr)
        os_mutex_set_rank(&list->mutex, rank, name);
}

size_t adt_dlist_size(const DList *list)
{
    return list == nullptr ? 0 : list->size;
}

int adt_dlist_empty(const DList *list)
{
    return adt_dlist_size(list) == 0;
}

static DListNode *node_create(const DList *list, const void *element)
{
    if (os_fault_point("adt_dlist_insert"))
        return nullptr;
    auto node = static_cast<DListNode *>(std::malloc(sizeof(DListNode) + list->element_size));
    if (node != nullptr)
        std::memcpy(node + 1, element, list->element_size);
    return node;
}

static void link_between(DList *list, DListNode *prev, DListNode *node, DListNode *next)
{
    node->prev = prev;
    node->next = next;
    (prev == nullptr ? list->head : prev->next) = node;
    (next == nullptr ? list->tail : next->prev) = node;
    list->size++;
}

DListNode *adt_dlist_insert(DList *list, DListNode *before, const void *element)
{
    if (list == nullptr || element == nullptr)
        return nullptr;
    DListNode *node = node_create(list, element);
    if (node != nullptr)
        link_between(list, before == nullptr ? list->tail : before->prev, node, before);
    return node;
}

DListNode *adt_dlist_push_back(DList *list, const void *element)
{
    return adt_dlist_insert(list, nullptr, element);
}

DListNode *adt_dlist_push_front(DList *list, const void *element)
{
    return adt_dlist_insert(list, adt_dlist_head(list), element);
}

DListNode *adt_dlist_erase(DList *list, DListNode *node)
{
    if (list == nullptr || node == nullptr)
        return nullptr;
    DListNode *next = node->next;
    (node->prev == nullptr ? list->head : node->prev->next) = next;
    (next == nullptr ? list->tail : next->prev) = node->prev;
    list->size--;
    std::free(node);
    return next;
}

DListNode *adt_dlist_head(const DList *list)
{
    return list == nullptr ? nullptr : list->head;
}

DListNode *adt_dlist_tail(const DList *list)
{
    return list == nullptr ? nullptr : list->tail;
}

DListNode *adt_dlist_next(const DListNode *node)
{
    return node == nullptr ? nullptr : node->next;
}

DListNode *adt_dlist_prev(const DListNode *node)
{
    return node == nullptr ? nullptr : node->prev;
}

void *adt_dlist_data(DListNode *node)
{
    return node == nullptr ? nullptr : node + 1;
}
