// Whether an answer says what it seems to say.
//
// By their contract many items answer "nothing there" or "all is well" when they could not look.
// The examiner looks for itself, before and after the call, and never changes what the item sees.
#ifndef MONITOR_EXAMINER_H
#define MONITOR_EXAMINER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "item/item_table.h"
#include "item/params.h"
#include "item/process_library.h"
#include "item/state.h"
#include "mirt_interface.h"
#include "proc/cpu_wait.h"
#include "proc/heartbeat_entry.h"
#include "proc/stuck_processes.h"

// What all examiners share.
struct Surroundings {
  const ProcessLibrary* library = nullptr;  // null if the plug-in lacks these functions
  const StuckProcesses* stuck = nullptr;
  bool ignore_self = false;  // a pattern came from our own command line, which it matches
};

// What a heartbeat's owner did between the last two calls, as far as its heartbeat does not show
// it.
struct OwnerLook {
  bool has_moved = false;              // it is another process, or at work on something else
  std::chrono::nanoseconds waited{0};  // the longest that one of its threads wanted a processor
};

// Of one item instance. before() and after() run on the thread that calls the item; they read a few
// files under /proc, and search all processes only where the item found none.
class Examiner {
 public:
  // The parameters and the surroundings must outlive the examiner.
  Examiner(const ItemRow& item, const std::vector<Param>& params, const Surroundings& around)
      : item_(item), params_(params), around_(around) {}

  void before(const FI_CONTEXT_S& context);
  Finding after(const FI_CONTEXT_S& context, const FI_RESULT_S& result, double value);

  // After a call that found a heartbeat standing still.
  const OwnerLook& owner_look() const { return owner_look_; }

 private:
  Finding machine(const FI_CONTEXT_S& context, double value) const;
  Finding existence(double value) const;
  Finding pre_command() const;
  Finding process(const FI_CONTEXT_S& context, const FI_RESULT_S& result, double value);
  Finding processes(const std::vector<int>& pids) const;
  Finding one_process(int pid) const;
  Finding hung_threads(const FI_RESULT_S& result, double value);
  Finding heartbeat(const FI_CONTEXT_S& context, double value);
  Finding unchanged_heartbeat(const MIRT_AGENT_HEART_INFO_S& entry) const;
  void look_at_owner(const MIRT_AGENT_HEART_INFO_S& entry, bool stands_still);
  bool context_changed(const FI_CONTEXT_S& context, size_t length) const;
  Finding nothing_found() const;
  std::string search_trouble() const;
  std::vector<int> matches() const;
  bool still_matches();
  void remember(int pid);
  const std::string& name() const { return params_.front().value; }

  const ItemRow& item_;
  const std::vector<Param>& params_;
  const Surroundings& around_;
  std::string trouble_before_;
  char context_before_[16] = {};
  int known_pid_ = 0;              // a process that matched when it was last looked at
  std::string known_cmdline_;      // its command line then
  uint32_t owner_ = 0, flow_ = 0;  // of the heartbeat's entry, when it was last looked at
  std::vector<ThreadTimes> owner_times_;
  std::chrono::steady_clock::time_point looked_{};
  OwnerLook owner_look_;
};

#endif
