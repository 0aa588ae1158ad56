// Entries of the heartbeat table as JSON.
#ifndef MONITOR_HEARTBEAT_JSON_H
#define MONITOR_HEARTBEAT_JSON_H

#include <chrono>
#include <optional>

#include "mirt_agent_heart.h"
#include "text/json_text.h"

// One entry: module, process, name (of the process that has this id now), heartbeat, moved (since
// `before`, an earlier copy of the entry), flowid, paused. A value that does not exist is null;
// `moved` is null without an earlier copy.
Json heartbeat_json(const MIRT_AGENT_HEART_INFO_S* before, const MIRT_AGENT_HEART_INFO_S& now);

// Reads the table again and again, so that it can say what has moved. For one thread.
class HeartbeatReader {
 public:
  // {"error": null, "compared_with": time of the earlier copy, "entries": [...]}. The error says
  // why the table cannot be shown.
  Json read();

 private:
  using Clock = std::chrono::steady_clock;

  struct Copy {
    Clock::time_point time;
    WallTime wall_time;
    MIRT_AGENT_HEART_INFO_SET_S table;
  };

  void keep(const Copy& now);

  // Two copies, so that there is always one that is old enough to compare with.
  std::optional<Copy> older_, newer_;
};

#endif
