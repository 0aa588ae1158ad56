// What is known about the raised alarms of a watch, as one text.
#ifndef MONITOR_EVIDENCE_TEXT_H
#define MONITOR_EVIDENCE_TEXT_H

#include <string>

#include "state/snapshot.h"

// How the process ended, or where its thread hangs; empty if nothing is known. The text has no PID
// and does not change while the alarm lasts, so that it can be the value of a label: each other
// text would be a new series.
std::string evidence_text(const WatchView& watch);

#endif
