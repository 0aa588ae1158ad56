// The table of threads seen in D state.
#include <unistd.h>

#include "common_plugin.h"
#include "kelv_securec.h"
#include "proc_file.h"

thread_info_t* MIRT_Linux_Plugin::find_thread_info(thread_info_set_t* pThrInfoSet, pid_t pid,
                                                   pid_t tid) {
  if (pThrInfoSet == nullptr) return nullptr;
  for (unsigned int i = 0; i < pThrInfoSet->thread_info_unused; ++i) {
    thread_info_t& entry = pThrInfoSet->thread_info[i];
    if (entry.pid == pid && entry.tid == tid) return &entry;
  }
  return nullptr;
}

thread_info_t* MIRT_Linux_Plugin::alloc_thread_info(thread_info_set_t* pThrInfoSet, pid_t pid,
                                                    pid_t tid,
                                                    unsigned long voluntary_ctxt_switches,
                                                    unsigned long nonvoluntary_ctxt_switches) {
  if (pThrInfoSet == nullptr || pThrInfoSet->thread_info_unused >= kMaxThreadInfos) return nullptr;
  thread_info_t& entry = pThrInfoSet->thread_info[pThrInfoSet->thread_info_unused++];
  memset_s(&entry, sizeof entry, 0, sizeof entry);
  entry.pid = pid;
  entry.tid = tid;
  entry.first_voluntary_ctxt_switches = voluntary_ctxt_switches;
  entry.first_nonvoluntary_ctxt_switches = nonvoluntary_ctxt_switches;
  return &entry;
}

void MIRT_Linux_Plugin::del_thread_info(thread_info_set_t* pThrInfoSet, unsigned int delindex) {
  if (pThrInfoSet == nullptr || delindex >= pThrInfoSet->thread_info_unused) return;
  const unsigned int last = pThrInfoSet->thread_info_unused - 1;
  for (unsigned int i = delindex; i < last; ++i) {
    memcpy_s(&pThrInfoSet->thread_info[i], sizeof(thread_info_t), &pThrInfoSet->thread_info[i + 1],
             sizeof(thread_info_t));
  }
  memset_s(&pThrInfoSet->thread_info[last], sizeof(thread_info_t), 0, sizeof(thread_info_t));
  pThrInfoSet->thread_info_unused = last;
}

bool MIRT_Linux_Plugin::is_match_pid_tid(pid_t pid, pid_t tid) {
  return access(ProcPath<128>("/proc/%d/task/%d/status", pid, tid).get(), F_OK) == 0;
}

namespace {

bool stands_still(const thread_info_t& entry) {
  int stat = 0;
  unsigned long voluntary = 0, nonvoluntary = 0;
  return MIRT_Linux_Plugin::get_proc_status_info(entry.pid, entry.tid, stat, voluntary,
                                                 nonvoluntary) == 0 &&
         stat == 1 && voluntary == entry.first_voluntary_ctxt_switches &&
         nonvoluntary == entry.first_nonvoluntary_ctxt_switches;
}

}  // namespace

void MIRT_Linux_Plugin::clean_thread_info_set(thread_info_set_t* pThrInfoSet) {
  if (pThrInfoSet == nullptr) return;
  for (unsigned int i = 0; i < pThrInfoSet->thread_info_unused;) {
    const thread_info_t& entry = pThrInfoSet->thread_info[i];
    if (is_match_pid_tid(entry.pid, entry.tid) && stands_still(entry)) {
      ++i;
    } else {
      del_thread_info(pThrInfoSet, i);  // the next entry has moved to index i
    }
  }
}
