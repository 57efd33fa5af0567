// libcommon's free list of the lean switch.

#include "platform/libcommon.h"

extern "C" {

void lstInit(LstList *list) { *list = {}; }

void lstAdd(LstList *list, void *record) {
    auto *node = static_cast<LstNode *>(record);
    *node = {.next = nullptr, .previous = list->last};
    (list->last == nullptr ? list->first : list->last->next) = node;
    list->last = node;
    list->count++;
}

void *lstGet(LstList *list) {
    LstNode *node = list->first;
    if (node == nullptr)
        return nullptr;
    list->first = node->next;
    (list->first == nullptr ? list->last : list->first->previous) = nullptr;
    list->count--;
    return node;
}

} // extern "C"
