// What the monitor remembers over a restart: collected for the state file, and taken up again.
#ifndef MONITOR_MEMORY_H
#define MONITOR_MEMORY_H

#include <list>

#include "alert/silences.h"
#include "alert/state_store.h"
#include "run/alarm_desk.h"
#include "run/slot.h"

SavedState memory_of(const std::list<Slot>& slots, const Silences& silences);

// Alarms that were raised are raised still, and are not told again; counts go on. Alarms of
// instances that are not configured any more are said in the log and forgotten.
void remember(const SavedState& state, std::list<Slot>& slots, AlarmDesk& desk);

#endif
