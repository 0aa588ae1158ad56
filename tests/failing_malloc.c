/* Loaded before the C library: allocation MIRT_FAIL_AT from the beginning of main() on fails, and
 * all later ones if MIRT_FAIL_ALWAYS is set. Without MIRT_FAIL_AT, writes their number to
 * descriptor MIRT_COUNT_TO at the end. */
#define _GNU_SOURCE
#include <errno.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

static atomic_long allocations, fail_at = -1;
static int always, armed;

/* The program calls it at the beginning of main(). */
int close_range(unsigned int from, unsigned int to, int flags) {
  const char* const at = getenv("MIRT_FAIL_AT");
  always = getenv("MIRT_FAIL_ALWAYS") != NULL;
  fail_at = at == NULL ? -1 : atol(at);
  armed = 1;
  return (int)syscall(SYS_close_range, from, to, flags);
}

static int fails(void) {
  if (!armed) return 0;
  const long number = ++allocations;
  if (fail_at < 0 || (number != fail_at && !(always && number > fail_at))) return 0;
  errno = ENOMEM;
  return 1;
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

__attribute__((destructor)) static void tell(void) {
  const char* const path = getenv("MIRT_COUNT_TO");
  FILE* const file = path == NULL ? NULL : fopen(path, "we");
  if (file == NULL) return;
  fprintf(file, "%ld\n", (long)allocations);
  fclose(file);
}
