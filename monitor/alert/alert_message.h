// A message of an alert, the result of its delivery, and the limits.
#ifndef MONITOR_ALERT_MESSAGE_H
#define MONITOR_ALERT_MESSAGE_H

#include <chrono>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

struct AlertMessage {
  std::string json;  // one object: a command's standard input, a webhook's body
  // "MIRT_..." and its value, for the environment of a command. Other names are left out, and a
  // value ends at its first NUL.
  std::vector<std::pair<std::string, std::string>> variables;
};

// The result of one attempt to deliver a message.
struct Delivery {
  enum class Result {
    kSent,
    kFailed,  // permanently
    kRetry,   // may succeed later
  };
  Result result = Result::kSent;
  std::string error{};  // the reason of the failure
};

// The limits of one channel of an alert.
struct AlertLimits {
  size_t most_queued = 100;
  size_t most_queued_bytes = size_t{4} << 20;

  // The output of one command run that goes to the log. The rest is read and discarded.
  size_t most_output_bytes = size_t{16} << 10;
  size_t most_output_lines = 100;

  // For one webhook attempt: time to connect, between two parts of the answer, and in total.
  std::chrono::milliseconds to_connect{5000};
  std::chrono::milliseconds to_answer{10000};
  std::chrono::milliseconds overall{30000};
  // The wait between attempts; it doubles up to the longest. A message as old as `give_up` has
  // failed.
  std::chrono::milliseconds first_pause{1000};
  std::chrono::milliseconds longest_pause{std::chrono::minutes(5)};
  std::chrono::milliseconds give_up{std::chrono::hours(1)};
};

// The current status of one channel of one alert.
struct AlertStatus {
  std::string name;        // the alert's name
  const char* way = "";    // "command" or "webhook"
  unsigned long sent = 0;  // number of messages, like the counts below
  unsigned long failed = 0;
  unsigned long dropped = 0;  // because the queue was full or memory was short
  size_t queued = 0;          // not delivered yet, the one under way included
  bool failing = false;       // the last attempt failed
  std::string last_error{};   // the reason; kept after later successes
};

#endif
