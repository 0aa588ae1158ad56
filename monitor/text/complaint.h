// Problems of the program itself: its exit statuses, and its messages on standard error.
#ifndef MONITOR_COMPLAINT_H
#define MONITOR_COMPLAINT_H

#include <string>

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;  // an item failed, or something required is missing
constexpr int kExitUsage = 2;   // wrong command line or configuration

// The message if a pattern on the command line matches only this process.
constexpr char kOnlyMatchIsSelf[] = "the only match is this mirt-monitor process";

// Writes one line with the program's name to standard error.
void complain(const std::string& text);
// The same for a line that is complete.
void complain_plainly(const std::string& line);

// "cannot write standard output: No space left on device"
std::string output_trouble(int error);

// Reports that output was lost; error is the errno.
void complain_of_output(int error);

#endif
