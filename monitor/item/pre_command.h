// Records what the pre-command of an item printed and how it ended, because the item does not
// report this.
//
// The plug-in starts a pre-command with popen(), reads the stream and waits with pclose(). This
// program defines both: they record, for the calling thread, what was read and how the command
// ended. The command gets the environment of all commands and no descriptor but the standard ones.
#ifndef MONITOR_PRE_COMMAND_H
#define MONITOR_PRE_COMMAND_H

#include <string>

// Clears the record of this thread.
void forget_pre_command();

// The part of the last pre-command's output on this thread that items read.
std::string pre_command_output();

// Why the last pre-command on this thread failed: "it ended with exit status 127". Empty if it
// succeeded or there was none.
std::string pre_command_trouble();

#endif
