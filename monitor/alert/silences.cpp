#include "alert/silences.h"

#include <fnmatch.h>

#include <algorithm>
#include <utility>

namespace {

bool is_about(const Silence& silence, const std::string& instance) {
  return silence.pattern == instance || fnmatch(silence.pattern.c_str(), instance.c_str(), 0) == 0;
}

}  // namespace

bool Silences::add(Silence silence) {
  const auto same = std::find_if(all_.begin(), all_.end(), [&](const Silence& other) {
    return other.pattern == silence.pattern;
  });
  if (same != all_.end()) {
    *same = std::move(silence);
    return true;
  }
  if (all_.size() >= kMost) return false;
  all_.push_back(std::move(silence));
  return true;
}

std::optional<Silence> Silences::remove(const std::string& pattern) {
  const auto found = std::find_if(
      all_.begin(), all_.end(), [&](const Silence& silence) { return silence.pattern == pattern; });
  if (found == all_.end()) return std::nullopt;
  Silence removed = std::move(*found);
  all_.erase(found);
  return removed;
}

std::vector<Silence> Silences::expire(WallTime now) {
  const auto first = std::stable_partition(
      all_.begin(), all_.end(), [&](const Silence& silence) { return silence.until > now; });
  std::vector<Silence> expired(std::make_move_iterator(first), std::make_move_iterator(all_.end()));
  all_.erase(first, all_.end());
  return expired;
}

const Silence* Silences::matching(const std::string& instance, WallTime now) const {
  const Silence* longest = nullptr;
  for (const Silence& silence : all_) {
    if (silence.until <= now || !is_about(silence, instance)) continue;
    if (!longest || silence.until > longest->until) longest = &silence;
  }
  return longest;
}

Json json_of(const Silence& silence) {
  return {{"pattern", silence.pattern},
          {"until", iso8601(silence.until)},
          {"reason", silence.reason},
          {"since", iso8601(silence.since)}};
}

std::optional<Silence> silence_of(const Json& json) {
  const auto pattern = text_in(json, "pattern");
  const auto until = time_in(json, "until");
  const auto reason = text_in(json, "reason");
  const auto since = time_in(json, "since");
  if (!pattern || !until || !reason || !since) return std::nullopt;
  return Silence{*pattern, *until, *reason, *since};
}
