/* Loaded before the C library: allocations fail as the record in the file MIRT_FAULTS says, which
 * the test maps too, so that it can change the rule while the program runs. Nothing fails before
 * main().
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

/* The allocations first, first + step, ... fail, each with `length` - 1 after it; first 0: none. */
static struct rule {
  atomic_long number, failed;
  atomic_long first, step, length;
} none, *rule = &none;
static int armed;

/* The program calls it at the beginning of main(). */
int close_range(unsigned int from, unsigned int to, int flags) {
  const char* const path = getenv("MIRT_FAULTS");
  const int file = path == NULL ? -1 : open(path, O_RDWR | O_CLOEXEC);
  void* const map = mmap(NULL, sizeof none, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (map != MAP_FAILED) rule = map;
  if (file >= 0) close(file);
  armed = 1;
  return (int)syscall(SYS_close_range, from, to, flags);
}

static int fails(void) {
  if (!armed) return 0;
  const long number = ++rule->number, since = number - rule->first;
  if (rule->first != 0 && since >= 0 && since % rule->step < rule->length) {
    ++rule->failed;
    errno = ENOMEM;
    return 1;
  }
  return 0;
}

void* malloc(size_t size) {
  return fails() ? NULL : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  return fails() ? NULL : __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
  return fails() ? NULL : __libc_realloc(block, size);
}
