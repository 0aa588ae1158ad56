#include "status/heartbeat_json.h"

#include <string>

#include "proc/heartbeat_entry.h"
#include "proc/heartbeat_table.h"
#include "proc/proc_file.h"

namespace {

using Entry = MIRT_AGENT_HEART_INFO_S;

// A process that beats does so within this time.
constexpr std::chrono::seconds kLeastBetweenCopies{1};

bool has_process(const Entry& entry) {
  return entry.processid != MIRT_AGENT_HEART_NO_PROCESS;
}

bool is_paused(const Entry& entry) {
  return entry.heartbeat == MIRT_AGENT_HEART_PAUSED;
}

// The short name of the process that now has the entry's process id; empty if there is none.
std::string name_of(const Entry& entry) {
  return has_process(entry) ? name_of_process(static_cast<int>(entry.processid)) : "";
}

}  // namespace

Json heartbeat_json(const Entry* before, const Entry& now) {
  const std::string name = name_of(now);
  Json fields = Json::object();
  fields["module"] = now.pid;
  fields["process"] = has_process(now) ? Json(now.processid) : Json();
  fields["name"] = name.empty() ? Json() : Json(name);
  fields["heartbeat"] = is_paused(now) ? Json() : Json(now.heartbeat);
  fields["moved"] =
      before ? Json(before->pid == now.pid && before->heartbeat != now.heartbeat) : Json();
  fields["flowid"] = now.flowid == MIRT_AGENT_HEART_NO_FLOW ? Json() : Json(now.flowid);
  fields["paused"] = is_paused(now);
  return fields;
}

Json HeartbeatReader::read() {
  Copy now{Clock::now(), std::chrono::system_clock::now(), {}};
  std::string error;
  if (read_heartbeat_table(now.table, error)) error = HeartbeatTable::fault(now.table);
  Json entries = Json::array();
  if (error.empty()) {
    keep(now);
    for (size_t i = 0; i < MIRT_AGENT_HEART_MAX; ++i) {
      if (now.table.array[i].pid == MIRT_AGENT_HEART_FREE) continue;
      entries.push_back(
          heartbeat_json(older_ ? &older_->table.array[i] : nullptr, now.table.array[i]));
    }
  }
  return {{"error", error.empty() ? Json() : Json(error)},
          {"compared_with", older_ ? Json(iso8601(older_->wall_time)) : Json()},
          {"entries", entries}};
}

void HeartbeatReader::keep(const Copy& now) {
  if (newer_ && now.time - newer_->time < kLeastBetweenCopies) return;
  older_ = newer_;
  newer_ = now;
}
