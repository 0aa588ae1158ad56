#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "command/commands.h"
#include "proc/heartbeat_table.h"
#include "status/heartbeat_json.h"
#include "text/complaint.h"
#include "text/json_text.h"
#include "text/terminal_text.h"

namespace {

constexpr std::chrono::seconds kBetweenReads{1};

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
    const Json fields = heartbeat_json(&before.array[i], now.array[i]);
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
