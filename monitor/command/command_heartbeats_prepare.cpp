#include <grp.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "command/commands.h"
#include "mirt_agent_heart.h"
#include "proc/heartbeat_files.h"
#include "text/complaint.h"
#include "text/terminal_text.h"
#include "text/wording.h"

int command_heartbeats_prepare(const std::string& group) {
  if (geteuid() != 0) {
    complain("\"heartbeats prepare\" runs as user " + std::to_string(geteuid()) +
             ", expected root");
    return kExitFailed;
  }
  const struct group* const found = getgrnam(group.c_str());
  if (found == nullptr) {
    complain("--group is " + in_quotes(group) + ", expected the name of a group of this machine");
    return kExitUsage;
  }
  const std::vector<std::string> refusals = prepare_heartbeat_files(found->gr_gid);
  for (const std::string& refusal : refusals) complain(refusal);
  if (!refusals.empty()) return kExitFailed;
  for (const char* const path : {MIRT_AGENT_LOCK_FILE, kHeartbeatTableFile}) {
    std::printf("%s: owner root, group %s, mode 0660\n", path, printable(group).c_str());
  }
  return kExitOk;
}
