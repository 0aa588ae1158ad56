// The silences that are in effect.
#ifndef MONITOR_SILENCES_H
#define MONITOR_SILENCES_H

#include <optional>
#include <string>
#include <vector>

#include "item/silence.h"
#include "text/json_text.h"

// For one thread. There is at most one silence for each pattern.
class Silences {
 public:
  static constexpr size_t kMost = 1000;

  Silences() = default;
  explicit Silences(std::vector<Silence> silences) : all_(std::move(silences)) {}

  // Adds it, or replaces the one with the same pattern. False if there are already kMost.
  bool add(Silence silence);
  // Removes and returns the silence with exactly this pattern; nothing if there is none.
  std::optional<Silence> remove(const std::string& pattern);
  // Removes and returns the silences that have ended.
  std::vector<Silence> expire(WallTime now);

  // The silence that applies to the instance at this time; if there are several, the one that lasts
  // longest. Null if there is none. The pointer is valid until the next change.
  const Silence* matching(const std::string& instance, WallTime now) const;
  bool matches(const std::string& instance, WallTime now) const {
    return matching(instance, now) != nullptr;
  }

  // In the order in which they were added.
  const std::vector<Silence>& list() const { return all_; }

 private:
  std::vector<Silence> all_;
};

// {"pattern": "database.*", "until": "2026-03-01T10:15:30.250+01:00", "reason": "", "since": ...}
Json json_of(const Silence& silence);
// Nothing if it is not a valid object of this form.
std::optional<Silence> silence_of(const Json& json);

#endif
