/* Lists the processes that use the most memory.
 *
 *     largest-processes [COUNT]
 */
#include <stdio.h>
#include <stdlib.h>

#include "mirt_process.h"

typedef const PROCESS_INFO_S* process_t;

static size_t count_of(const list_head* processes) {
  size_t count = 0;
  for (const list_head* node = processes->next; node != processes; node = node->next) ++count;
  return count;
}

/* Most memory first; for equal memory the lower PID first. */
static int by_memory(const void* left, const void* right) {
  const process_t a = *(const process_t*)left, b = *(const process_t*)right;
  if (a->rss != b->rss) return a->rss > b->rss ? -1 : 1;
  return a->pid < b->pid ? -1 : 1;
}

/* Returns an array of pointers into the list, which is unchanged. The caller frees only it. */
static process_t* sorted(const list_head* processes, size_t count) {
  process_t* const rows = calloc(count + 1, sizeof(process_t));
  if (rows == NULL) return NULL;
  size_t used = 0;
  for (const list_head* node = processes->next; node != processes; node = node->next) {
    rows[used++] = (process_t)node; /* the node is the record's first member */
  }
  qsort(rows, used, sizeof(process_t), by_memory);
  return rows;
}

int main(int argc, char** argv) {
  const long wanted = argc > 1 ? strtol(argv[1], NULL, 10) : 10;
  if (argc > 2 || wanted < 1) {
    fprintf(stderr, "usage: largest-processes [COUNT], COUNT at least 1\n");
    return 2;
  }
  list_head processes;
  if (GetAllProcessRssMem(&processes) != 0) {
    fprintf(stderr, "largest-processes: /proc cannot be read\n");
    return 1; /* there is no list to free */
  }
  const size_t count = count_of(&processes);
  process_t* const rows = sorted(&processes, count);
  for (size_t i = 0; rows != NULL && i < count && i < (size_t)wanted; ++i) {
    printf("%7d %6d MiB  %s\n", rows[i]->pid, rows[i]->rss, rows[i]->cmdline);
  }
  free(rows);
  FreeAllProcessList(&processes);
  return rows != NULL ? 0 : 1;
}
