// Collects the state that is kept over a restart, and restores it.
#ifndef MONITOR_MEMORY_H
#define MONITOR_MEMORY_H

#include <list>

#include "alert/silences.h"
#include "alert/state_store.h"
#include "run/alarm_desk.h"
#include "run/slot.h"

// The state to save.
SavedState memory_of(const std::list<Slot>& slots, const Silences& silences);

// Restores the state. Raised alarms are still raised and send no new alert; counts continue. Alarms
// of instances that are no longer configured are logged and dropped.
void remember(const SavedState& state, std::list<Slot>& slots, AlarmDesk& desk);

#endif
