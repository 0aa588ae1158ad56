/* stuck_process FILE NAME: starts a process with the name NAME whose command line cannot be read.
 *
 * This program mounts a file system on FILE that does not answer. One thread of the process reads a
 * page of FILE through /proc/self/mem and holds the memory lock of the process during that read.
 * Another thread maps memory and waits for this lock, and from then on every reader of the command
 * line waits, too.
 *
 * Prints the PID of the process when its memory lock is held. The next D state of its main thread
 * is the wait for it. After a byte on standard input the file system answers, and everything
 * continues. At the end of the input the process is killed. Exit code 2: the kernel does not allow
 * the mount. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <linux/fuse.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

static const char kRole[] = "stuck";

/* The process itself. */

static void* hold_memory_lock(void* page) {
  char byte;
  const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  if (pread(memory, &byte, 1, (off_t)(uintptr_t)page) < 0) return NULL;
  close(memory);
  return NULL;
}

/* Returns only on failure. */
static int be_stuck(const char* path) {
  pthread_t thread;
  struct stat status;
  char byte;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0 || fstat(file, &status) != 0) return 1;
  void* const page = mmap(NULL, 1, PROT_READ, MAP_PRIVATE, file, 0);
  if (page == MAP_FAILED || pthread_create(&thread, NULL, hold_memory_lock, page) != 0) return 1;
  /* The file system sends this byte when the read of the page has begun. */
  if (read(STDIN_FILENO, &byte, 1) != 1) return 1;
  if (mmap(NULL, 1, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) == MAP_FAILED) return 1;
  for (;;) pause();
}

/* The file system. Its root is a file of one byte. */

static void answer(int fuse, uint64_t request, int error, const void* body, size_t size) {
  struct fuse_out_header header = {(uint32_t)(sizeof header + size), error, request};
  struct iovec parts[2] = {{&header, sizeof header}, {(void*)body, size}};
  if (writev(fuse, parts, 2) < 0) perror("stuck_process: answer");
}

/* Handles one request. Returns the number of a read, which stays unanswered, and 0 otherwise. */
static uint64_t serve(int fuse) {
  static char request[FUSE_MIN_READ_BUFFER + 65536];
  if (read(fuse, request, sizeof request) < (ssize_t)sizeof(struct fuse_in_header)) return 0;
  const struct fuse_in_header* const header = (const struct fuse_in_header*)request;
  struct fuse_init_out init = {.major = 7, .minor = 31, .max_write = 4096};
  struct fuse_attr_out attributes = {.attr_valid = UINT32_MAX};
  struct fuse_open_out opened = {0};
  attributes.attr.ino = FUSE_ROOT_ID;
  attributes.attr.mode = S_IFREG | 0444;
  attributes.attr.nlink = 1;
  attributes.attr.size = 1;
  switch (header->opcode) {
    case FUSE_INIT:
      answer(fuse, header->unique, 0, &init, sizeof init);
      return 0;
    case FUSE_GETATTR:
      answer(fuse, header->unique, 0, &attributes, sizeof attributes);
      return 0;
    case FUSE_OPEN:
      answer(fuse, header->unique, 0, &opened, sizeof opened);
      return 0;
    case FUSE_READ:
      return header->unique;
    case FUSE_FORGET:
    case FUSE_BATCH_FORGET:
    case FUSE_INTERRUPT:
      return 0; /* no answer is expected */
    default:
      answer(fuse, header->unique, -ENOSYS, NULL, 0);
      return 0;
  }
}

static int mount_on(const char* path) {
  char options[128];
  const int fuse = open("/dev/fuse", O_RDWR | O_CLOEXEC);
  snprintf(options, sizeof options, "fd=%d,rootmode=100444,user_id=0,group_id=0", fuse);
  if (fuse < 0 || mount("stuck_process", path, "fuse", 0, options) != 0) {
    perror("stuck_process: no file system of its own");
    exit(2);
  }
  return fuse;
}

static void serve_until_input_ends(int fuse, int go, pid_t pid) {
  uint64_t held = 0;
  for (;;) {
    struct pollfd ready[2] = {{fuse, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    char byte;
    if (poll(ready, 2, -1) < 0 && errno != EINTR) return;
    if (ready[1].revents != 0) {
      if (read(STDIN_FILENO, &byte, 1) != 1) return;
      answer(fuse, held, 0, "", 1);
    }
    if ((ready[0].revents & POLLIN) == 0) continue;
    const uint64_t asked = serve(fuse);
    if (asked == 0) continue;
    held = asked;
    printf("%d\n", pid);
    if (fflush(stdout) != 0 || write(go, "", 1) != 1) return;
  }
}

int main(int argc, char** argv) {
  int go[2];
  if (argc == 3 && strcmp(argv[1], kRole) == 0) return be_stuck(argv[2]);
  if (argc != 3) return 1;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int fuse = mount_on(argv[1]);
  if (pipe2(go, O_CLOEXEC) != 0) return 1;
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(go[0], STDIN_FILENO);
    execl("/proc/self/exe", argv[2], kRole, argv[1], (char*)NULL);
    _exit(127);
  }
  serve_until_input_ends(fuse, go[1], pid);
  kill(pid, SIGKILL);
  umount2(argv[1], MNT_DETACH);
  return 0;
}
