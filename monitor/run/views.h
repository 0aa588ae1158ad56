// Slots as others may see them.
#ifndef MONITOR_VIEWS_H
#define MONITOR_VIEWS_H

#include <memory>

#include "alert/silences.h"
#include "output/reporter.h"
#include "run/slot.h"
#include "state/snapshot.h"

// Keeps what this answer says for views and history.
void keep_answer(Slot& slot, const Answer& answer);

// Keeps that the instance has gone blind.
void keep_blindness(Slot& slot, const std::string& detail, WallTime time);

// The slot's view, the one made before if nothing has changed since.
std::shared_ptr<const WatchView> view_of(Slot& slot, const Silences& silences);

#endif
