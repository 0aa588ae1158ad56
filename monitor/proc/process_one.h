// The duties of a program that is process 1, for example in a container.
#ifndef MONITOR_PROCESS_ONE_H
#define MONITOR_PROCESS_ONE_H

// The kernel gives every process without a parent to process 1, which must take its exit status, or
// it stays a zombie. If this is process 1, the program continues in a child, which is the only
// process that returns from here. Process 1 itself passes signals on to the child, takes exit
// statuses, and ends with the status of the child. So the program never has children that it did
// not start. False, with errno set, if no child can be started: the program is still process 1.
// Call it before any thread starts.
bool continue_below_process_one();

#endif
