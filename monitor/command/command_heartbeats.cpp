#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "command/commands.h"
#include "proc/heartbeat_table.h"
#include "proc/proc_file.h"
#include "text/complaint.h"
#include "text/json_text.h"
#include "text/terminal_text.h"

namespace {

using Entry = MIRT_AGENT_HEART_INFO_S;

constexpr std::chrono::seconds kBetweenReads{1};

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

// One entry, in the order of the columns; null for an empty cell.
Json fields_of(const Entry& before, const Entry& now) {
  const std::string name = name_of(now);
  Json fields;
  fields["module"] = now.pid;
  fields["process"] = has_process(now) ? Json(now.processid) : Json();
  fields["name"] = name.empty() ? Json() : Json(name);
  fields["heartbeat"] = is_paused(now) ? Json() : Json(now.heartbeat);
  fields["moved"] = before.pid == now.pid && before.heartbeat != now.heartbeat;
  fields["flowid"] = now.flowid == MIRT_AGENT_HEART_NO_FLOW ? Json() : Json(now.flowid);
  fields["paused"] = is_paused(now);
  return fields;
}

std::string cell_text(const Json& value) {
  if (value.is_null()) return "-";
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  return value.is_string() ? printable(value.get<std::string>()) : json_text(value);
}

void print_row(const std::vector<std::string>& cells) {
  std::printf("%s\n",
              joined_cells({right(cells[0], 6), right(cells[1], 10), left(cells[2], 15),
                            right(cells[3], 20), left(cells[4], 5), right(cells[5], 10), cells[6]})
                  .c_str());
}

void print_fields(const Json& fields) {
  std::vector<std::string> cells;
  for (const Json& value : fields) cells.push_back(cell_text(value));
  print_row(cells);
}

void print_table(const MIRT_AGENT_HEART_INFO_SET_S& before, const MIRT_AGENT_HEART_INFO_SET_S& now,
                 bool json) {
  if (!json) print_row({"MODULE", "PROCESS", "NAME", "HEARTBEAT", "MOVED", "FLOW", "PAUSED"});
  for (size_t i = 0; i < MIRT_AGENT_HEART_MAX; ++i) {
    if (now.array[i].pid == MIRT_AGENT_HEART_FREE) continue;
    const Json fields = fields_of(before.array[i], now.array[i]);
    if (json) {
      std::printf("%s\n", json_text(fields).c_str());
    } else {
      print_fields(fields);
    }
  }
}

}  // namespace

int command_heartbeats(bool json) {
  std::string error;
  const std::optional<HeartbeatTable> table = HeartbeatTable::open(error);
  if (!table) {
    complain(error);
    return kExitFailed;
  }
  const MIRT_AGENT_HEART_INFO_SET_S before = table->read();
  std::this_thread::sleep_for(kBetweenReads);
  const MIRT_AGENT_HEART_INFO_SET_S now = table->read();
  error = HeartbeatTable::fault(now);
  if (!error.empty()) {
    complain(error);
    return kExitFailed;
  }
  print_table(before, now, json);
  return kExitOk;
}
