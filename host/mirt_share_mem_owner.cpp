// Decides whose shared memory this process may map.
#include <pwd.h>
#include <unistd.h>

#include <cstdio>

#include "mirt_host.h"

namespace {

constexpr uid_t kRoot = 0;
constexpr char kSystemUser[] = "daemon";
constexpr size_t kLookupSize = 4096;  // on the stack; longer /etc/passwd entries are not found

bool is_system_user(uid_t user) {
  char buffer[kLookupSize];
  passwd record{};
  passwd* found = nullptr;
  return getpwnam_r(kSystemUser, &record, buffer, sizeof buffer, &found) == 0 && found != nullptr &&
         record.pw_uid == user;
}

// "alice (1000)", or "1000" if the user has no name.
void print_user(uid_t user, char* text, size_t size) {
  char buffer[kLookupSize];
  passwd record{};
  passwd* found = nullptr;
  if (getpwuid_r(user, &record, buffer, sizeof buffer, &found) == 0 && found != nullptr) {
    snprintf(text, size, "%s (%u)", record.pw_name, user);
  } else {
    snprintf(text, size, "%u", user);
  }
}

}  // namespace

int32_t mirt_host_check_owner(uint32_t owner, char* why, size_t whySize) {
  const uid_t self = geteuid();
  if (owner == kRoot || owner == self || is_system_user(owner)) return 0;
  char name[64], third[24] = "";
  print_user(owner, name, sizeof name);
  if (self != kRoot) snprintf(third, sizeof third, " or user %u", self);
  snprintf(why, whySize, "belongs to user %s, expected root%s %s%s", name,
           self != kRoot ? "," : " or", kSystemUser, third);
  return -1;
}
