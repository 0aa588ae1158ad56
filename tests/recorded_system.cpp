#include "recorded_system.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "kelv_cmd.h"
#include "kelv_log.h"
#include "kelv_process.h"
#include "kelv_time.h"
#include "mirt_comm.h"

namespace {

RecordedSystem* g_system = nullptr;

std::string hex(const void* bytes, size_t size) {
  std::string text(2 * size + 1, '\0');
  for (size_t i = 0; i < size; ++i) {
    snprintf(&text[2 * i], 3, "%02x", static_cast<const unsigned char*>(bytes)[i]);
  }
  text.pop_back();
  return text;
}

}  // namespace

// What this program has hidden by a definition of its own.
#define NEXT(function) reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, #function))

RecordedSystem::RecordedSystem() {
  g_system = this;
}

Trace RecordedSystem::take() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(trace_, {});
}

void RecordedSystem::note(std::string call) {
  const std::lock_guard<std::mutex> lock(mutex_);
  trace_.push_back(std::move(call));
}

std::string logged(const std::string& level, const std::string& function, const std::string& text) {
  return level + " 424 process_status.cpp " + function + ": " + text;
}

extern "C" {

void kelvlog(unsigned int module, int level, const char* file, int line, const char* function,
             int reserved, const char* format, ...) {
  char text[4096];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  EXPECT_EQ(reserved, 0);
  // A text that names its own line names that of the statement, which may take several.
  if (char* const named = strstr(text, "line=")) {
    const int distance = atoi(named + strlen("line=")) - line;
    if (distance >= 0 && distance < 4) strcpy(named, "line=OWN.");
  }
  g_system->note(std::string(kelvlog_level_name(level)) + ' ' + std::to_string(module) + ' ' +
                 file + ' ' + function + ": " + text);
}

FILE* popen(const char* command, const char* mode) {
  g_system->note("popen " + std::string(mode) + ' ' + command);
  if (g_system->real_shells) return NEXT(popen)(command, mode);
  return g_system->popen ? g_system->popen(command) : fopen("/dev/null", "re");
}

int pclose(FILE* stream) {
  g_system->note("pclose");
  return NEXT(pclose)(stream);  // which closes a stream of fopen() as well
}

int sigqueue(pid_t target, int number, const sigval value) noexcept {
  // All of the value, not only the number in it.
  g_system->note("sigqueue " + std::to_string(target) + (number == SIGUSR1 ? " SIGUSR1 " : " ? ") +
                 std::to_string(reinterpret_cast<uintptr_t>(value.sival_ptr)));
  return g_system->real_signals ? NEXT(sigqueue)(target, number, value) : g_system->signal_result;
}

int kelv_cmd_exec(const char* command) {
  g_system->note("exec " + std::string(command));
  return g_system->exec_result;
}

void kelv_10msleep(uint32_t n) {
  g_system->note("sleep " + std::to_string(n));
}

uint64_t kelv_get_jiffies() {
  return g_system->jiffies();
}

int kelv_process_status_check(pid_t pid, int* status) {
  if (g_system->process_status) return g_system->process_status(pid, status);
  *status = KELV_PROCESS_STATUS_NORMAL;
  return 0;
}

// Wider than the field that takes it.
uint32_t MIRT_CommGetLocalNid() {
  g_system->note("nid");
  return 0xabc01230;
}

int32_t MIRT_CommSendRequestMsg(MIRT_COMM_INFO_S* info, void* payload,
                                MIRT_COMM_RET_DATA_S* reply) {
  EXPECT_EQ(hex(reply, sizeof *reply), std::string(32, '0'));
  g_system->note("request " + hex(info, sizeof *info) + ' ' + hex(payload, info->msgLen));
  if (g_system->real_framework) return NEXT(MIRT_CommSendRequestMsg)(info, payload, reply);
  if (g_system->send_result != 0 || !g_system->reply) return g_system->send_result;
  *reply = {0, malloc(g_system->reply->size())};
  memcpy(reply->buf, g_system->reply->data(), g_system->reply->size());
  return 0;
}

void MIRT_CommFreeRetData(MIRT_COMM_RET_DATA_S* reply) {
  g_system->note("free reply");
  NEXT(MIRT_CommFreeRetData)(reply);
}

}  // extern "C"
