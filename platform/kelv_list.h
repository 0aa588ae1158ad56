/* The platform's intrusive list: circular, doubly linked, with a head that holds no record. Plain C
 * can include this header. */
#ifndef KELV_LIST_H
#define KELV_LIST_H

#include <stdint.h>

typedef struct list_head {
  struct list_head *next, *prev;
} list_head;

/* The pointers of a removed node: unmapped addresses, so that any use of it crashes at once. */
#define KELV_LIST_POISON_NEXT 0x00100100UL
#define KELV_LIST_POISON_PREV 0x00200200UL

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
  /* Copied, since no cast of a number to a pointer is clean in C and in C++. */
  const uintptr_t next = KELV_LIST_POISON_NEXT, prev = KELV_LIST_POISON_PREV;
  __builtin_memcpy(&node->next, &next, sizeof next);
  __builtin_memcpy(&node->prev, &prev, sizeof prev);
}

#endif
