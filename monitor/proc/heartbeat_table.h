// Reads the heartbeat table without attaching.
#ifndef MONITOR_HEARTBEAT_TABLE_H
#define MONITOR_HEARTBEAT_TABLE_H

#include <optional>
#include <string>

#include "mirt_agent_heart.h"

// The shared table, mapped read-only. Does not create or change anything.
class HeartbeatTable {
 public:
  // Nothing, with the reason in `error`, if there is no table, its size is wrong, or its owner is
  // not trusted: an owner can truncate the file, which kills every process that has it mapped.
  static std::optional<HeartbeatTable> open(std::string& error);

  // Returns a copy. Each field is read atomically.
  MIRT_AGENT_HEART_INFO_SET_S read() const;

  // True if the table is initialised. If not, the next process that attaches initialises it.
  static bool is_made(const MIRT_AGENT_HEART_INFO_SET_S& table);

  // Why the table is not valid; empty if it is.
  static std::string fault(const MIRT_AGENT_HEART_INFO_SET_S& table);

 private:
  explicit HeartbeatTable(const MIRT_AGENT_HEART_INFO_SET_S* shared) : shared_(shared) {}

  const MIRT_AGENT_HEART_INFO_SET_S* shared_;  // mapped until the process ends
};

#endif
