/* The platform's intrusive list: circular, doubly linked, with a head that holds no record. Plain C
 * can include this header. */
#ifndef KELV_LIST_H
#define KELV_LIST_H

#include <stdint.h>

typedef struct list_head {
  struct list_head *next, *prev;
} list_head;

/* The pointers of a removed node: unmapped addresses, so that any use of it crashes at once. */
#define KELV_LIST_POISON_NEXT ((uintptr_t)0x00100100)
#define KELV_LIST_POISON_PREV ((uintptr_t)0x00200200)

/* Makes node the head of an empty list, or a node outside any list. */
static inline void kelv_list_init(list_head* node) {
  node->next = node;
  node->prev = node;
}

static inline void __list_add(list_head* node, list_head* prev, list_head* next) {
  next->prev = node;
  node->next = next;
  node->prev = prev;
  prev->next = node;
}

static inline void kelv_list_add_tail(list_head* node, list_head* head) {
  __list_add(node, head->prev, head);
}

static inline void __list_del(list_head* prev, list_head* next) {
  next->prev = prev;
  prev->next = next;
}

static inline void kelv_list_del(list_head* node) {
  __list_del(node->prev, node->next);
  node->next = (list_head*)KELV_LIST_POISON_NEXT; /* NOLINT(performance-no-int-to-ptr) */
  node->prev = (list_head*)KELV_LIST_POISON_PREV; /* NOLINT(performance-no-int-to-ptr) */
}

#endif
