// Reads one module's entry of the heartbeat table without attaching.
#ifndef MONITOR_HEARTBEAT_ENTRY_H
#define MONITOR_HEARTBEAT_ENTRY_H

#include <cstdint>
#include <string>

#include "mirt_agent_heart.h"

// Copies the whole table from the shared memory, initialised or not. False, with `why`, if it
// cannot be read. Does not create, change or map anything, so a truncated table does no harm.
bool read_heartbeat_table(MIRT_AGENT_HEART_INFO_SET_S& table, std::string& why);

// Copies the module's entry from the shared memory. False, with `why`, if there is no readable
// table or no such entry.
bool read_heartbeat_entry(uint16_t module, MIRT_AGENT_HEART_INFO_S& entry, std::string& why);

#endif
