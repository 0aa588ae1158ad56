/* faults CALL ERROR N once|always SECONDS COMMAND...: runs a command in which a system call fails.
 *
 * CALL is the number of a system call, -1 for none. Calls are counted from the beginning of main(),
 * whose first action is to open /dev/null: a fault in the dynamic loader ends any program. The N-th
 * call, or each from then on, returns ERROR instead; ERROR 0 makes it transfer at most one byte.
 * Only the process itself has faults, not the processes that it starts.
 *
 * Writes one line to descriptor 3: wait status, number of calls, number of faults, processes that
 * outlived the command, file of the last fault ("-" if it has none). The wait status is -1 if
 * the command was still running after SECONDS. */
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

static long wanted_call, error, first;
static int always, armed;
static long calls, faults;
static char path[256] = "-";
static volatile sig_atomic_t expired;

static void expire(int number) {
  (void)number;
  expired = 1;
}

/* The command's calls of this kind, and those that open a file, stop for the tracer. */
static void run_command(int start, char** command) {
  struct sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (unsigned int)wanted_call, 1, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  struct sock_fprog program = {sizeof rules / sizeof *rules, rules};
  char byte;
  if (read(start, &byte, 1) == 1 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0) {
    execv(command[0], command);
  }
  perror(command[0]);
  _exit(126);
}

static void read_path(pid_t thread, unsigned long long address, char* text, size_t size) {
  for (size_t i = 0; i + sizeof(long) < size; i += sizeof(long)) {
    const long word = ptrace(PTRACE_PEEKDATA, thread, address + i, NULL);
    memcpy(text + i, &word, sizeof word);
    text[i + sizeof word] = '\0';
    if (memchr(&word, '\0', sizeof word) != NULL) return;
  }
}

static void inject(pid_t thread, struct user_regs_struct* registers) {
  ++faults;
  if (error == 0) {
    if (registers->rdx > 1) registers->rdx = 1;
  } else {
    registers->orig_rax = (unsigned long long)-1;
    registers->rax = (unsigned long long)-error;
  }
  ptrace(PTRACE_SETREGS, thread, NULL, registers);
}

/* The file of this call: by its name, or by its descriptor. */
static void name_file(pid_t thread, const struct user_regs_struct* registers, char* name,
                      size_t size) {
  char link[64];
  const int is_named = wanted_call == SYS_openat || wanted_call == SYS_newfstatat;
  if (is_named) read_path(thread, registers->rsi, name, size);
  if (is_named && *name != '\0') return;
  snprintf(link, sizeof link, "/proc/%d/fd/%lld", (int)thread, (long long)registers->rdi);
  const ssize_t length = readlink(link, name, size - 1);
  strcpy(name + (length > 0 ? length : 0), length > 0 ? "" : "-");
}

static void see_call(pid_t process, pid_t thread) {
  struct user_regs_struct registers;
  if (syscall(SYS_tgkill, process, thread, 0) != 0) return; /* of another process */
  if (ptrace(PTRACE_GETREGS, thread, NULL, &registers) != 0) return;
  if (registers.orig_rax == SYS_openat && !armed) {
    char opened[256] = "";
    read_path(thread, registers.rsi, opened, sizeof opened);
    armed = strcmp(opened, "/dev/null") == 0;
  }
  if (!armed || registers.orig_rax != (unsigned long long)wanted_call) return;
  ++calls;
  if (calls != first && !(always && calls > first)) return;
  name_file(thread, &registers, path, sizeof path);
  inject(thread, &registers);
}

/* One stop of a traced thread. */
static void go_on(pid_t process, pid_t thread, int status) {
  const int event = status >> 16, number = WSTOPSIG(status);
  if (event == PTRACE_EVENT_SECCOMP) see_call(process, thread);
  const int is_group_stop = event == PTRACE_EVENT_STOP && number != SIGTRAP;
  ptrace(is_group_stop ? PTRACE_LISTEN : PTRACE_CONT, thread, NULL, event != 0 ? 0 : number);
}

/* Follows the command to its end. */
static int status_of(pid_t process) {
  while (!expired) {
    int status;
    const pid_t thread = waitpid(-1, &status, __WALL);
    if (thread < 0) continue;
    if (WIFSTOPPED(status)) {
      go_on(process, thread, status);
    } else if (thread == process) {
      return status;
    }
  }
  return -1;
}

/* The processes that still run three seconds after the command. */
static int count_left(pid_t process) {
  int status;
  for (int tenths = 0; tenths < 30; usleep(100000), ++tenths) {
    pid_t thread;
    while ((thread = waitpid(-1, &status, __WALL | WNOHANG)) > 0) {
      if (WIFSTOPPED(status)) go_on(process, thread, status);
    }
    if (thread < 0) return 0;
  }
  return 1;
}

int main(int argc, char** argv) {
  int start[2];
  if (argc < 7 || pipe2(start, O_CLOEXEC) != 0 || fcntl(3, F_SETFD, FD_CLOEXEC) != 0) return 2;
  wanted_call = atol(argv[1]);
  error = atol(argv[2]);
  first = atol(argv[3]);
  always = strcmp(argv[4], "always") == 0;
  const struct sigaction on_alarm = {.sa_handler = expire};
  sigaction(SIGALRM, &on_alarm, NULL);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t process = fork();
  if (process == 0) run_command(start[0], argv + 6);
  const long options = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                       PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
  if (ptrace(PTRACE_SEIZE, process, NULL, options) != 0) return 77;
  if (write(start[1], "", 1) != 1) return 2;
  alarm((unsigned int)atoi(argv[5]));
  const int status = status_of(process);
  alarm(0);
  dprintf(3, "%d %ld %ld %d %s\n", status, calls, faults, status < 0 ? 0 : count_left(process),
          path);
  return 0;
}
