// What the pre-command of an item printed and how it ended, which the item itself does not tell.
//
// The plug-in starts a pre-command by popen(), reads the stream and waits by pclose(). This program
// defines both: they do what the C library's do, and note for the calling thread what was read and
// how the command ended.
#ifndef MONITOR_PRE_COMMAND_H
#define MONITOR_PRE_COMMAND_H

#include <string>

// Forgets what was noted for this thread.
void forget_pre_command();

// The beginning of what the last pre-command on this thread printed, as far as items read it.
std::string pre_command_output();

// Why the last pre-command on this thread failed: "it ended with exit status 127". Empty if it did
// not fail, or if there was none.
std::string pre_command_trouble();

#endif
