// One module's entry of the heartbeat table, as an onlooker reads it.
#ifndef MONITOR_HEARTBEAT_ENTRY_H
#define MONITOR_HEARTBEAT_ENTRY_H

#include <cstdint>
#include <string>

#include "mirt_agent_heart.h"

// Copies the module's entry out of the shared memory. False, with `why`, if there is no table that
// can be read, or no such entry. Creates and changes nothing, and maps nothing: a table that
// somebody cuts off does no harm.
bool read_heartbeat_entry(uint16_t module, MIRT_AGENT_HEART_INFO_S& entry, std::string& why);

#endif
