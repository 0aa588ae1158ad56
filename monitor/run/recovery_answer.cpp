#include "run/recovery_answer.h"

#include <algorithm>
#include <chrono>

#include "mirt_host.h"
#include "proc/shell_command.h"
#include "run/recovery_budget.h"
#include "text/log_lines.h"
#include "text/number_text.h"

namespace {

using Clock = RecoveryBudget::Clock;

// Answers the questions of all items, on whichever thread.
class RecoveryDesk {
 public:
  explicit RecoveryDesk(const Recovery& recovery)
      : recovery_(recovery),
        budget_(recovery.at_most, std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(recovery.per_s))) {}

  bool allows(std::chrono::seconds limit);

 private:
  bool command_allows(std::chrono::seconds limit) const;
  void say_used_up() const;

  const Recovery recovery_;
  RecoveryBudget budget_;
};

bool RecoveryDesk::allows(std::chrono::seconds limit) {
  if (recovery_.redundancy == Recovery::Redundancy::kDeny) return false;
  // Taken before the command is asked: two questions at one time must not get one recovery each.
  const Clock::time_point now = Clock::now();
  if (!budget_.take(now)) {
    say_used_up();
    return false;
  }
  if (recovery_.redundancy == Recovery::Redundancy::kAllow || command_allows(limit)) return true;
  budget_.give_back(now);
  return false;
}

bool RecoveryDesk::command_allows(std::chrono::seconds limit) const {
  const std::optional<int> code = run_shell_command(recovery_.command, limit);
  if (!code) {
    log_line("warning", "recovery refused: the command did not end within " +
                            std::to_string(limit.count()) + " s or could not be started");
  } else if (*code != 0) {
    log_line("event", "recovery refused: the command's exit code is " + std::to_string(*code));
  }
  return code == 0;
}

void RecoveryDesk::say_used_up() const {
  const auto left = std::chrono::ceil<std::chrono::seconds>(budget_.next() - Clock::now()).count();
  log_line("warning", "recovery refused: the limit is " + std::to_string(recovery_.at_most) +
                          " in " + number_text(recovery_.per_s) +
                          " s, the next one is possible in " +
                          std::to_string(std::max<long>(left, 0)) + " s");
}

// On the thread of the item that asks. Refusal is an answer too, so that the log can tell it from a
// request that nobody answers. Called from C: nothing may be thrown through it.
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

}  // namespace

bool answer_redundancy(const Recovery& recovery) {
  static RecoveryDesk desk(recovery);  // there until the end, as items may be that still ask
  return mirt_host_set_request_handler(PID_CTRL_MIRTKERNELAGENT, answer, &desk) == 0;
}
