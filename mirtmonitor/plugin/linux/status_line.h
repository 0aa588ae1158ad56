// The lines of /proc/<pid>/status that several readers use. A key may be anywhere in its line.
#ifndef STATUS_LINE_H
#define STATUS_LINE_H

#include <cstddef>
#include <cstring>

#include "kelv_securec.h"

constexpr char kNameKey[] = "Name:", kRssKey[] = "VmRSS:";

// "Name:\tapp_data" -> app_data, up to its first white space, truncated to fit. False for another
// line.
inline bool scan_name(const char* line, char* name, size_t size) noexcept {
  if (strstr(line, kNameKey) == nullptr) return false;
  sscanf_s(line, "%*s %s", name, static_cast<unsigned int>(size));
  return true;
}

// "VmRSS:\t    6652 kB" -> 6652; unchanged if there is no number. False for another line.
inline bool scan_rss_kb(const char* line, int& rss_kb) noexcept {
  if (strstr(line, kRssKey) == nullptr) return false;
  sscanf_s(line, "%*s %d", &rss_kb);
  return true;
}

#endif
