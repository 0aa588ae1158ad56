#include "run/recovery_answer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "item/signal_target.h"
#include "mirt_host.h"
#include "proc/shell_command.h"
#include "proc/thread_evidence.h"
#include "run/recovery_budget.h"
#include "text/log_lines.h"
#include "text/number_text.h"

namespace {

using Clock = RecoveryBudget::Clock;

constexpr char kAllowed[] = "allowed", kDenied[] = "denied", kSpared[] = "spared";
constexpr char kUsedUp[] = "used up", kRefusedByCommand[] = "refused by command";

thread_local const FI_RESULT_S* asking_result = nullptr;

// Answers the questions of all items, on any thread.
class RecoveryDesk {
 public:
  bool allows(std::chrono::seconds limit);
  void replace(std::shared_ptr<const Recovery> recovery);
  std::map<std::string, unsigned long> decisions() const;
  std::vector<Clock::time_point> taken() const { return budget_.taken(); }
  void add_taken(Clock::time_point time) { budget_.add_taken(time); }

 private:
  const char* decide(std::chrono::seconds limit);
  bool command_allows(const Recovery& recovery, std::chrono::seconds limit) const;
  void say_used_up(const Recovery& recovery) const;
  std::shared_ptr<const Recovery> recovery() const;

  mutable std::mutex mutex_;
  std::shared_ptr<const Recovery> recovery_;
  std::map<std::string, unsigned long> decisions_{
      {kAllowed, 0}, {kDenied, 0}, {kSpared, 0}, {kUsedUp, 0}, {kRefusedByCommand, 0}};
  RecoveryBudget budget_{1, Clock::duration::zero()};
};

std::shared_ptr<const Recovery> RecoveryDesk::recovery() const {
  const std::lock_guard lock(mutex_);
  return recovery_;
}

void RecoveryDesk::replace(std::shared_ptr<const Recovery> recovery) {
  const std::lock_guard lock(mutex_);
  recovery_ = std::move(recovery);
  budget_.set(recovery_->at_most, std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(recovery_->per_s)));
}

// Recovery does not help a frozen thread, or a thread whose wait a signal can end. Returns the
// reason if the asking item named such a thread, else an empty text.
std::string spared(const Recovery& recovery) {
  const int tid = asking_result ? asking_result->pid : 0;
  const std::optional<ThreadEvidence> evidence = tid > 0 ? evidence_of(tid) : std::nullopt;
  if (!evidence) return "";
  const auto& spare = recovery.spare;
  const bool is_spared = std::find(spare.begin(), spare.end(), evidence->suspected) != spare.end();
  if (!is_spared) return "";
  return "thread " + std::to_string(tid) + " is suspected to be " + evidence->suspected;
}

// From now on the signal can only reach the process of the thread that was judged. True, after it
// has been logged, if that thread has ended.
bool has_ended() {
  const int tid = asking_result ? asking_result->pid : 0;
  if (tid <= 0 || hold_signal_target(tid)) return false;
  log_line("warning",
           "recovery refused: thread " + std::to_string(tid) + ": " + std::strerror(errno));
  return true;
}

bool RecoveryDesk::allows(std::chrono::seconds limit) {
  const char* const decision = decide(limit);
  const std::lock_guard lock(mutex_);
  ++decisions_[decision];
  return decision == kAllowed;
}

std::map<std::string, unsigned long> RecoveryDesk::decisions() const {
  const std::lock_guard lock(mutex_);
  return decisions_;
}

const char* RecoveryDesk::decide(std::chrono::seconds limit) {
  const std::shared_ptr<const Recovery> configured = recovery();
  if (configured->redundancy == Recovery::Redundancy::kDeny) return kDenied;
  const std::string reason = spared(*configured);
  if (!reason.empty()) {
    log_line("warning", "recovery refused: " + reason);
    return kSpared;
  }
  if (has_ended()) return "ended";
  // Takes the recovery before the command runs, so that two simultaneous questions cannot both get
  // the last one.
  const Clock::time_point now = Clock::now();
  if (!budget_.take(now)) {
    say_used_up(*configured);
    return kUsedUp;
  }
  const bool allowed =
      configured->redundancy == Recovery::Redundancy::kAllow || command_allows(*configured, limit);
  if (allowed) return kAllowed;
  budget_.give_back(now);
  return kRefusedByCommand;
}

bool RecoveryDesk::command_allows(const Recovery& recovery, std::chrono::seconds limit) const {
  const std::optional<int> code = run_shell_command(recovery.command, limit);
  if (!code) {
    log_line("warning", "recovery refused: the command did not end within " +
                            std::to_string(limit.count()) + " s or could not be started");
  } else if (*code != 0) {
    log_line("event", "recovery refused: the command's exit status is " + std::to_string(*code));
  }
  return code == 0;
}

void RecoveryDesk::say_used_up(const Recovery& recovery) const {
  const auto left = std::chrono::ceil<std::chrono::seconds>(budget_.next() - Clock::now()).count();
  log_line("warning", "recovery refused: the limit is " + std::to_string(recovery.at_most) +
                          " in " + number_text(recovery.per_s) +
                          " s; the next one is possible in " +
                          std::to_string(std::max<long>(left, 0)) + " s");
}

// Runs on the thread of the item that asks. A refusal is also an answer, so that the log
// distinguishes it from an unanswered request. Called from C, so it must not throw.
int32_t answer(const MIRT_COMM_INFO_S* info, const void* /*payload*/, void* reply,
               uint32_t* replyLen, void* user) try {
  if (info->msgOPCode != MIRT_OP_EXECUT_FILTER_ERRRPT) return -1;
  auto& desk = *static_cast<RecoveryDesk*>(user);
  *static_cast<unsigned char*>(reply) = desk.allows(std::chrono::seconds(info->timeOut)) ? 1 : 0;
  *replyLen = 1;
  return 0;
} catch (...) {
  return -1;
}

RecoveryDesk& the_desk() {
  static RecoveryDesk desk;  // items may ask until the process ends
  return desk;
}

}  // namespace

std::map<std::string, unsigned long> recovery_decisions() {
  return the_desk().decisions();
}

std::vector<WallTime> recoveries_taken() {
  std::vector<WallTime> taken;
  const Clock::time_point now = Clock::now();
  const WallTime wall_now = std::chrono::system_clock::now();
  for (const Clock::time_point time : the_desk().taken()) {
    taken.push_back(wall_now - std::chrono::duration_cast<WallTime::duration>(now - time));
  }
  return taken;
}

void restore_recoveries(const std::vector<WallTime>& taken) {
  const Clock::time_point now = Clock::now();
  const WallTime wall_now = std::chrono::system_clock::now();
  for (const WallTime time : taken) {
    the_desk().add_taken(now - std::chrono::duration_cast<Clock::duration>(wall_now - time));
  }
}

void set_asking_result(const FI_RESULT_S* result) {
  forget_signal_target();
  asking_result = result;
}

bool answer_redundancy(std::shared_ptr<const Recovery> recovery) {
  the_desk().replace(std::move(recovery));
  static const bool is_set =
      mirt_host_set_request_handler(PID_CTRL_MIRTKERNELAGENT, answer, &the_desk()) == 0;
  return is_set;
}
