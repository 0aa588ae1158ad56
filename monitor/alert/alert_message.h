// What an alert tells, how it went, and what bounds it.
#ifndef MONITOR_ALERT_MESSAGE_H
#define MONITOR_ALERT_MESSAGE_H

#include <chrono>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

struct AlertMessage {
  std::string json;  // one object: a command's standard input, a webhook's body
  // "MIRT_..." and its value, for the environment of a command. Others are left out, and a value
  // ends at its first NUL, as all in an environment does.
  std::vector<std::pair<std::string, std::string>> variables;
};

// How one attempt to deliver a message went.
struct Delivery {
  enum class Result {
    kSent,
    kFailed,   // for good
    kRetry,    // may work later
    kStopped,  // the program ends
  };
  Result result = Result::kSent;
  std::string error{};  // why it failed
};

// The bounds of one way of an alert.
struct AlertLimits {
  size_t most_queued = 100;
  size_t most_queued_bytes = size_t{4} << 20;

  // What one run of a command may write into the log. More is read and thrown away.
  size_t most_output_bytes = size_t{16} << 10;
  size_t most_output_lines = 100;

  // Of one attempt at a webhook: until it is connected, between two pieces of the answer, and
  // overall.
  std::chrono::milliseconds to_connect{5000};
  std::chrono::milliseconds to_answer{10000};
  std::chrono::milliseconds overall{30000};
  // Between attempts: doubled each time up to the longest. A message as old as `give_up` has
  // failed.
  std::chrono::milliseconds first_pause{1000};
  std::chrono::milliseconds longest_pause{std::chrono::minutes(5)};
  std::chrono::milliseconds give_up{std::chrono::hours(1)};
};

// One way of one alert, as it is now.
struct AlertStatus {
  std::string name;        // of the alert
  const char* way = "";    // "command" or "webhook"
  unsigned long sent = 0;  // messages, as are those below
  unsigned long failed = 0;
  unsigned long dropped = 0;  // because too many waited, or memory was short
  size_t queued = 0;          // not delivered yet, the one under way included
  bool failing = false;       // the last attempt has failed
  std::string last_error{};   // why; stays when it works again
};

#endif
