// The silences in force.
#ifndef MONITOR_SILENCES_H
#define MONITOR_SILENCES_H

#include <optional>
#include <string>
#include <vector>

#include "item/silence.h"
#include "text/json_text.h"

// Belongs to one thread. Of each pattern there is one silence at most.
class Silences {
 public:
  static constexpr size_t kMost = 1000;

  Silences() = default;
  explicit Silences(std::vector<Silence> silences) : all_(std::move(silences)) {}

  // A silence of the same pattern is replaced. False if there are kMost already.
  bool add(Silence silence);
  // Removes the silence of exactly this pattern, which is given back; nothing if there is none.
  std::optional<Silence> remove(const std::string& pattern);
  // Removes those whose time is up, and gives them back.
  std::vector<Silence> expire(WallTime now);

  // The silence of an instance at this time: of several, the one that lasts longest. Null if there
  // is none. Valid until the next change.
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
// Nothing if it is not such an object.
std::optional<Silence> silence_of(const Json& json);

#endif
