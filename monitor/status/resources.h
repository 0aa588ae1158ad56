// The resources of a running monitor that clients can read.
#ifndef MONITOR_RESOURCES_H
#define MONITOR_RESOURCES_H

#include <httplib.h>

#include <string>

#include "state/snapshot.h"

// One path and its text.
struct Resource {
  const char* path;
  const char* content_type;
  std::string (*text)(const Snapshot& snapshot, const httplib::Request& request);
  bool is_public = false;  // also for other machines
};

// The resource at this path; null if there is none.
const Resource* find_resource(const std::string& path);

constexpr char kJsonType[] = "application/json";

#endif
