// Makes the views of slots for snapshots.
#ifndef MONITOR_VIEWS_H
#define MONITOR_VIEWS_H

#include <memory>

#include "alert/silences.h"
#include "output/reporter.h"
#include "run/slot.h"
#include "state/snapshot.h"

// Stores this answer in the slot, for views and history.
void keep_answer(Slot& slot, const Answer& answer);

// Stores that the instance is blind.
void keep_blindness(Slot& slot, const std::string& detail, WallTime time);

// The slot's view. Returns the previous view if nothing has changed.
std::shared_ptr<const WatchView> view_of(Slot& slot, const Silences& silences);

#endif
