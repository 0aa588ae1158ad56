// How the pre-command of an item ended, which the item itself does not tell.
//
// The plug-in starts a pre-command by popen() and waits for it by pclose(). This program defines
// both: they do what the C library's do, and note the outcome for the calling thread.
#ifndef MONITOR_PRE_COMMAND_H
#define MONITOR_PRE_COMMAND_H

#include <string>

// Forgets what was noted for this thread.
void forget_pre_command();

// Why the last pre-command on this thread failed: "it ended with exit status 127". Empty if it did
// not fail, or if there was none.
std::string pre_command_trouble();

#endif
