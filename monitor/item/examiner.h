// Checks whether an item's result is meaningful.
//
// By design many items report "no process" or "no problem" if they could not read what they
// measure. The examiner checks this itself, before and after the call, and never changes the item's
// input.
#ifndef MONITOR_EXAMINER_H
#define MONITOR_EXAMINER_H

#include <array>
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

// Data that all examiners share.
struct Surroundings {
  const ProcessLibrary* functions = nullptr;  // null if the plug-in does not export these functions
  const StuckProcesses* stuck = nullptr;
  bool ignore_self = false;  // the pattern is in our own command line, so it matches this process
};

// What a heartbeat's owner did between the last two calls, beyond its heartbeat.
struct OwnerLook {
  bool has_moved = false;              // another process, or another flow id
  bool has_beaten = false;             // after the call that found it standing still
  std::chrono::nanoseconds waited{0};  // the longest wait of one of its threads for a processor
};

// Belongs to one item instance. before() and after() run on the thread that calls the item. They
// read a few files under /proc, and search all processes only if the item found none.
class Examiner {
 public:
  // The parameters and the surroundings must outlive the examiner.
  Examiner(const ItemRow& item, const std::vector<Param>& params, const Surroundings& around)
      : item_(item), params_(params), around_(around) {}

  // `end_is_known`: the process of the last answer has ended, so an item that finds none needs no
  // second search.
  void before(const FI_CONTEXT_S& context, bool end_is_known);
  Finding after(const FI_CONTEXT_S& context, const FI_RESULT_S& result, double value);

  // For a call that found an unchanged heartbeat.
  const OwnerLook& owner_look() const { return owner_look_; }

  // The process that the last answer was about: the one that the item follows, the one with the
  // highest value, or the owner of the heartbeat. 0 if there was none.
  int pid() const { return pid_; }

  // The item searched all processes and found nothing. It may have skipped a stuck one.
  bool found_nothing() const { return found_nothing_; }

  // The last after() searched all processes itself, which can take a tenth of a second.
  bool has_searched() const { return has_searched_; }

  // For how long the hung thread of the last answer has not run, in seconds.
  double standing_s() const;

 private:
  Finding look(const FI_CONTEXT_S& context, const FI_RESULT_S& result, double value);
  int process_of(const FI_CONTEXT_S& context, const FI_RESULT_S& result) const;
  Finding machine(const FI_CONTEXT_S& context, double value) const;
  Finding existence(double value);
  Finding pre_command() const;
  Finding process(const FI_CONTEXT_S& context, const FI_RESULT_S& result, double value);
  Finding known_process(bool is_handles);
  Finding processes(const std::vector<int>& pids) const;
  Finding one_process(int pid) const;
  Finding hung_threads(const FI_RESULT_S& result, double value);
  Finding heartbeat(const FI_CONTEXT_S& context, double value);
  Finding unchanged_heartbeat(const MIRT_AGENT_HEART_INFO_S& entry) const;
  void look_at_owner(const MIRT_AGENT_HEART_INFO_S& entry);
  void look_again(uint64_t judged);
  std::vector<ThreadTimes> times_of_owner() const;
  bool read_entry(MIRT_AGENT_HEART_INFO_S& entry, std::string& why) const;
  bool context_changed(const FI_CONTEXT_S& context, size_t length) const;
  Finding nothing_found();
  void note_standing(int tid);
  std::string search_trouble() const;
  std::vector<int> matches();
  std::vector<int> matches_of_group() const;
  bool still_matches();
  void remember(int pid);
  const std::string& name() const { return params_.front().value; }

  // A thread hangs once it has not run during this many calls.
  static constexpr size_t kCallsOfAHang = 11;

  const ItemRow& item_;
  const std::vector<Param>& params_;
  const Surroundings& around_;
  std::string trouble_before_;
  char context_before_[16] = {};
  int pid_ = 0;
  bool end_is_known_ = false;
  bool found_nothing_ = false;
  bool has_searched_ = false;
  int known_pid_ = 0;              // a process that matched at the last check
  std::string known_cmdline_;      // its command line at that check
  bool known_limit_ = false;       // it has a limit of open files
  uint32_t owner_ = 0, flow_ = 0;  // the heartbeat's entry at the last check
  std::vector<ThreadTimes> owner_times_, times_before_;
  std::chrono::steady_clock::time_point looked_{}, looked_before_{};
  OwnerLook owner_look_;
  std::array<std::chrono::steady_clock::time_point, kCallsOfAHang> begun_{};  // a ring
  size_t calls_ = 0;
  int standing_tid_ = 0;  // the thread that hangs
  std::chrono::steady_clock::time_point standing_since_{};
};

#endif
