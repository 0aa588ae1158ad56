// The heartbeat table as an onlooker sees it.
#ifndef MONITOR_HEARTBEAT_TABLE_H
#define MONITOR_HEARTBEAT_TABLE_H

#include <optional>
#include <string>

#include "mirt_agent_heart.h"

// The shared table, mapped for reading only: looking at it makes nothing and changes nothing.
class HeartbeatTable {
 public:
  // Nothing, with `error` saying why, if there is no table, it has another size, or it belongs to
  // somebody who is not trusted: he could cut it short, which kills whoever has it mapped.
  static std::optional<HeartbeatTable> open(std::string& error);

  // A copy, no field of which is half of an old and half of a new value.
  MIRT_AGENT_HEART_INFO_SET_S read() const;

  // Has its maker come to the end? If not, the next process that attaches makes it anew.
  static bool is_made(const MIRT_AGENT_HEART_INFO_SET_S& table);

  // Why what was read is no table to show; empty if it is one.
  static std::string fault(const MIRT_AGENT_HEART_INFO_SET_S& table);

 private:
  explicit HeartbeatTable(const MIRT_AGENT_HEART_INFO_SET_S* shared) : shared_(shared) {}

  const MIRT_AGENT_HEART_INFO_SET_S* shared_;  // mapped until the process ends
};

#endif
