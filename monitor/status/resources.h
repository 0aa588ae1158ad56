// What can be read of a running monitor, each under its own path.
#ifndef MONITOR_RESOURCES_H
#define MONITOR_RESOURCES_H

#include <httplib.h>

#include <string>

#include "state/snapshot.h"

// One path, and the text that stands there.
struct Resource {
  const char* path;
  const char* content_type;
  std::string (*text)(const Snapshot& snapshot, const httplib::Request& request);
};

// The resource at this path; null if there is none. Watches have paths of their own: see
// answer_watch().
const Resource* find_resource(const std::string& path);

constexpr char kJsonType[] = "application/json";
constexpr char kWatchPath[] = "/api/watch/";

#endif
