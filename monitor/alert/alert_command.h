// An alert's command: one run.
#ifndef MONITOR_ALERT_COMMAND_H
#define MONITOR_ALERT_COMMAND_H

#include "alert/alert_message.h"
#include "item/alert.h"
#include "proc/wake.h"

// Runs the command, with no shell, and waits until it has ended. Sent if it exits with status 0.
//
// It gets the JSON object on its standard input, which it need not read. Its environment is PATH
// (the system's usual folders, in which a command without "/" is looked up), HOME, LANG, TZ and
// TMPDIR where the monitor has them, MIRT_MONITOR_COMMAND, by which it is found again, and the
// message's variables. It runs in a session of its own with no descriptor but the first three. What
// it prints goes to the log line by line, within the limits. After the alert's timeout it is killed
// with all that it has started. What it leaves behind when it ends in time is left alone.
Delivery run_alert_command(const Alert& alert, const AlertMessage& message, const Wake& stop,
                           const AlertLimits& limits);

#endif
