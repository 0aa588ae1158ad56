// Readers of /proc files.
#include <cstring>

#include "common_plugin.h"
#include "kelv_securec.h"
#include "proc_file.h"
#include "status_line.h"

int MIRT_Linux_Plugin::read_file(const char* file_path, char* buf, unsigned int size,
                                 int readlinenum) {
  if (file_path == nullptr || buf == nullptr || size == 0) return -1;
  LineReader file(file_path);
  if (!file.is_open()) return -1;
  for (int line = 0; line < readlinenum; ++line) {
    memset_s(buf, size, 0, size);
    if (!file.next(buf, size - 1)) return -1;
  }
  return 0;
}

void MIRT_Linux_Plugin::change_cmdlie_to_str(char* buf, unsigned int size) {
  char* const last = buf + (size - 1);
  while (void* end = memchr(buf, '\0', static_cast<size_t>(last - buf))) {
    buf = static_cast<char*>(end);
    if (buf[1] == '\0') return;
    *buf++ = ' ';
  }
}

const char* MIRT_Linux_Plugin::get_items(const char* buffer, int ie) {
  if (buffer == nullptr) return nullptr;
  for (int item = 1; item < ie && *buffer != '\0'; ++item) {
    buffer += strcspn(buffer, " ");
    if (*buffer == ' ') ++buffer;
  }
  return buffer;
}

int MIRT_Linux_Plugin::get_procname_bypid(pid_t p, char* name, size_t size) {
  LineReader status(ProcPath<64>("/proc/%u/status", static_cast<unsigned int>(p)).get());
  if (!status.is_open() || name == nullptr) return -1;
  char line[256];
  return status.next_with(kNameKey, line, sizeof line) && scan_name(line, name, size) ? 0 : -1;
}

int MIRT_Linux_Plugin::get_cmdline_bypid(pid_t p, char* cmdline, size_t size) {
  if (cmdline == nullptr) return -1;
  const ProcPath<64> path("/proc/%u/cmdline", static_cast<unsigned int>(p));
  const auto room = static_cast<unsigned int>(size);
  if (read_file(path.get(), cmdline, room, 1) != 0) return -1;
  change_cmdlie_to_str(cmdline, room);
  return 0;
}

namespace {

bool begins_with(const char* line, const char* key) {
  return strncmp(line, key, strlen(key)) == 0;
}

// "voluntary_ctxt_switches:\t150" -> 150; the count is unchanged if there is no number.
void scan_count(const char* line, unsigned long& count) {
  unsigned long long value = count;
  sscanf_s(line, "%*s\t%llu", &value);
  count = value;
}

}  // namespace

int MIRT_Linux_Plugin::get_proc_status_info(pid_t pid, pid_t tid, int& stat,
                                            unsigned long& voluntary_ctxt_switches,
                                            unsigned long& nonvoluntary_ctxt_switches) {
  LineReader status(ProcPath<128>("/proc/%d/task/%d/status", pid, tid).get());
  if (!status.is_open()) return -1;
  char line[256];
  while (status.next(line, sizeof line - 1)) {
    if (begins_with(line, "State:")) {
      char state = '\0';
      sscanf_s(line, "%*s\t%c", &state, 1U);
      stat = state == 'D' ? 1 : 0;
      // Most threads are not in D state: reading stops at the third of about 60 lines.
      if (stat == 0) break;
    } else if (begins_with(line, "voluntary_ctxt_switches:")) {
      scan_count(line, voluntary_ctxt_switches);
    } else if (begins_with(line, "nonvoluntary_ctxt_switches:")) {
      scan_count(line, nonvoluntary_ctxt_switches);
    }
  }
  return 0;
}
