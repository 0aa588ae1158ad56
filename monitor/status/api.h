// The JSON of the interface: docs/api.md describes it.
#ifndef MONITOR_API_H
#define MONITOR_API_H

#include <cstddef>

#include "state/snapshot.h"
#include "text/json_text.h"

// Everything but the histories; of these the last `recent` values, as "recent", unless that is 0.
Json status_json(const Snapshot& snapshot, size_t recent = 0);

// One watch with its whole history.
Json watch_json(const WatchView& watch);

// The watch with this name, or null.
const WatchView* find_watch(const Snapshot& snapshot, const std::string& name);

// The raised alarms: critical ones first, then the oldest first.
Json alarms_json(const Snapshot& snapshot);

// The threads that hang.
Json hung_json(const Snapshot& snapshot);

#endif
