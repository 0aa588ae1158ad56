#include "recorded_system.h"

#include <dlfcn.h>

#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "kelv_cmd.h"
#include "kelv_log.h"
#include "kelv_process.h"
#include "kelv_time.h"
#include "mirt_comm.h"

// The functions that this program replaces.
#define NEXT(function) reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, #function))

static RecordedSystem*& g_system = RecordedSystem::current;

static std::string hex(const void* bytes, size_t size) {
  char text[256] = "";
  for (size_t i = 0; i < size; ++i) {
    snprintf(text + 2 * i, 3, "%02x", static_cast<const unsigned char*>(bytes)[i]);
  }
  return ' ' + std::string(text);
}

std::string RecordedSystem::take() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(trace_, "");
}

void RecordedSystem::note(const std::string& call) {
  const std::lock_guard<std::mutex> lock(mutex_);
  trace_ += call + '\n';
}

void kelvlog(unsigned int module, int level, const char* file, int line, const char* function,
             int /*reserved*/, const char* format, ...) {
  char text[4096];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  // A text may end with the line number of its record.
  if (char* const named = strstr(text, "line=")) named[atoi(named + 5) == line ? 5 : 0] = '\0';
  if (module != PID_CTRL_MIRTMONITOR || strcmp(file, "process_status.cpp") != 0) return;
  g_system->note(std::string(kelvlog_level_name(level)) + ' ' + function + ": " + text);
}

FILE* popen(const char* command, const char* mode) {
  g_system->note("popen " + std::string(mode) + ' ' + command);
  if (g_system->real_shells) return NEXT(popen)(command, mode);
  return g_system->popen ? g_system->popen(command) : fopen("/dev/null", "re");
}

int sigqueue(pid_t target, int number, const sigval value) noexcept {
  // The whole union, not only the number.
  g_system->note("sigqueue " + std::to_string(target) + (number == SIGUSR1 ? " SIGUSR1 " : " ? ") +
                 std::to_string(reinterpret_cast<uintptr_t>(value.sival_ptr)));
  return g_system->real_signals ? NEXT(sigqueue)(target, number, value) : g_system->answers.signal;
}

int kelv_cmd_exec(const char* command) {
  g_system->note("exec " + std::string(command));
  return g_system->answers.exec;
}

void kelv_10msleep(uint32_t n) {
  g_system->note("sleep " + std::to_string(n));
}

uint64_t kelv_get_jiffies() {
  return g_system->jiffies();
}

int kelv_process_status_check(pid_t pid, int* status) {
  *status = g_system->pid_status ? g_system->pid_status(pid) : KELV_PROCESS_STATUS_NORMAL;
  return *status < 0 ? -1 : 0;
}

int32_t MIRT_CommSendRequestMsg(MIRT_COMM_INFO_S* info, void* payload,
                                MIRT_COMM_RET_DATA_S* reply) {
  g_system->note("request" + hex(info, sizeof *info) + hex(payload, info->msgLen) +
                 hex(reply, sizeof *reply));
  if (g_system->real_framework) return NEXT(MIRT_CommSendRequestMsg)(info, payload, reply);
  if (g_system->answers.send != 0 || g_system->answers.reply < 0) return g_system->answers.send;
  *reply = {4, memset(malloc(4), 1, 4)};
  *static_cast<char*>(reply->buf) = static_cast<char>(g_system->answers.reply);
  return 0;
}
