#include "run/recovery_answer.h"

#include "mirt_host.h"
#include "run/shell_command.h"
#include "text/log_lines.h"

namespace {

bool command_allows(const std::string& command, uint32_t limit_s) {
  const std::optional<int> code = run_shell_command(command, std::chrono::seconds(limit_s));
  if (!code) {
    log_line("warning", "recovery refused: the command did not end within " +
                            std::to_string(limit_s) + " s or could not be started");
  } else if (*code != 0) {
    log_line("event", "recovery refused: the command's exit code is " + std::to_string(*code));
  }
  return code == 0;
}

bool allows(const Recovery& recovery, uint32_t limit_s) {
  switch (recovery.redundancy) {
    case Recovery::Redundancy::kAllow:
      return true;
    case Recovery::Redundancy::kCommand:
      return command_allows(recovery.command, limit_s);
    default:
      return false;
  }
}

// On the thread of the item that asks. Refusal is an answer too, so that the log can tell it from a
// request that nobody answers. Called from C: nothing may be thrown through it.
int32_t answer(const MIRT_COMM_INFO_S* info, const void* /*payload*/, void* reply,
               uint32_t* replyLen, void* user) try {
  if (info->msgOPCode != MIRT_OP_EXECUT_FILTER_ERRRPT) return -1;
  const auto& recovery = *static_cast<const Recovery*>(user);
  *static_cast<unsigned char*>(reply) = allows(recovery, info->timeOut) ? 1 : 0;
  *replyLen = 1;
  return 0;
} catch (...) {
  return -1;
}

}  // namespace

bool answer_redundancy(const Recovery& recovery) {
  return mirt_host_set_request_handler(PID_CTRL_MIRTKERNELAGENT, answer,
                                       const_cast<Recovery*>(&recovery)) == 0;
}
