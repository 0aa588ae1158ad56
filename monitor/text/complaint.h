// What goes wrong with the program itself: its exit codes, and its messages on standard error.
#ifndef MONITOR_COMPLAINT_H
#define MONITOR_COMPLAINT_H

#include <string>

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;  // an item failed, or what is needed is not there
constexpr int kExitUsage = 2;   // the command line or the configuration is at fault

// What to say where a pattern of the command line matches nothing but the command that holds it.
constexpr char kOnlyMatchIsSelf[] = "the only match is this mirt-monitor itself";

// One line on standard error, with the program's name.
void complain(const std::string& text);

// "cannot write standard output: No space left on device"
std::string output_trouble(int error);

// The same as a complaint, of output that was lost for this reason (an errno).
void complain_of_output(int error);

#endif
