// Makes sure that the signal of a recovery reaches the process that was judged.
//
// The plug-in sends the signal with sigqueue() to a thread's number, up to 40 s after it has asked
// whether it may. This program defines sigqueue(): the signal goes through a descriptor of the
// process that had the thread when the plug-in asked, so that a number that was reused is never
// hit.
#ifndef MONITOR_SIGNAL_TARGET_H
#define MONITOR_SIGNAL_TARGET_H

// Holds the process of this thread for the signals that the calling thread sends to `tid`. False,
// with errno set, if there is no such thread.
bool hold_signal_target(int tid);

// Releases the process.
void forget_signal_target();

#endif
