#include "config/config_trust.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include "proc/proc_file.h"
#include "text/wording.h"

namespace {

// In a user namespace, the kernel shows this number for users that have no number there.
constexpr uid_t kUnmapped = 65534;

std::string trusted_users() {
  const uid_t own = geteuid();
  return own == 0 ? "root" : "root or user " + std::to_string(own);
}

bool is_trusted(uid_t user) {
  return user == 0 || user == geteuid();
}

// "         0       1000          1": first inside, first outside, how many.
bool has_number(uid_t user) {
  std::istringstream map(read_proc_file("/proc/self/uid_map").value_or(""));
  unsigned long inside = 0, outside = 0, count = 0;
  while (map >> inside >> outside >> count) {
    if (user >= inside && user - inside < count) return true;
  }
  return false;
}

std::string owner_fault(const struct stat& about) {
  if (is_trusted(about.st_uid)) return "";
  return "is owned by user " + std::to_string(about.st_uid) + ", expected " + trusted_users();
}

std::string bits_fault(const struct stat& about, const char* command) {
  const bool by_all = (about.st_mode & S_IWOTH) != 0;
  if (!by_all && (about.st_mode & S_IWGRP) == 0) return "";
  char mode[8];
  std::snprintf(mode, sizeof mode, "%04o", about.st_mode & 07777U);
  const std::string who = by_all ? "everybody" : "its group";
  return "can be written by " + who + " (mode " + mode + "), expected only " + trusted_users() +
         " (" + command + ')';
}

std::string folder_fault(const std::string& folder) {
  struct stat about {};
  if (stat(folder.c_str(), &about) != 0) return "";  // opening the file then fails, too
  std::string fault = owner_fault(about);
  // An owner from outside the namespace has at least the rights of its root.
  if (!fault.empty() && about.st_uid == kUnmapped && !has_number(kUnmapped)) fault.clear();
  if (fault.empty() && (about.st_mode & S_ISVTX) == 0) fault = bits_fault(about, "chmod go-w");
  return fault.empty() ? "" : "is in " + in_quotes(folder) + ", which " + fault;
}

std::string real_path(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
  return real ? real.get() : "";
}

// Checks all folders above the file, from the root down. `path` is absolute.
std::string folders_fault(const std::string& path) {
  for (size_t slash = path.find('/'); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    std::string fault = folder_fault(path.substr(0, slash == 0 ? 1 : slash));
    if (!fault.empty()) return fault;
  }
  return "";
}

}  // namespace

std::string distrust(const struct stat& file, const std::string& path) {
  std::string fault = owner_fault(file);
  if (fault.empty()) fault = bits_fault(file, "chmod go-w");
  if (fault.empty()) fault = folders_fault(real_path(path));
  // Users who can write to the folder of a link can replace the link.
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  if (fault.empty()) fault = folders_fault(real_path(folder) + '/');
  return fault.empty() ? "" : fault + "; use --allow-writable-config to read it anyway";
}
