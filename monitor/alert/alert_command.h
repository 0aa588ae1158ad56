// Runs an alert's command.
#ifndef MONITOR_ALERT_COMMAND_H
#define MONITOR_ALERT_COMMAND_H

#include "alert/alert_message.h"
#include "item/alert.h"
#include "proc/wake.h"

// Runs the command without a shell and waits until it has ended. The message counts as sent if the
// exit status is 0.
//
// The command gets the JSON object on standard input and need not read it. Its environment contains
// PATH (the usual system directories, also used to find a command without "/"), HOME, LANG, TZ and
// TMPDIR if the monitor has them, MIRT_MONITOR_COMMAND, which marks its processes, and the
// message's variables. It runs in a new session with only the three standard descriptors. Its
// output goes to the log line by line, up to the limits. After the alert's timeout it is killed
// with all processes that it started. If it ends in time, processes that it started may continue.
Delivery run_alert_command(const Alert& alert, const AlertMessage& message, const Wake& stop,
                           const AlertLimits& limits);

#endif
