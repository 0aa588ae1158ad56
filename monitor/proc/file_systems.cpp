#include "proc/file_systems.h"

#include <mntent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <string_view>

namespace {

// ZFS file systems have no device node.
bool is_local(const mntent& mount) {
  return std::string_view(mount.mnt_fsname).substr(0, 5) == "/dev/" ||
         std::string_view(mount.mnt_type) == "zfs";
}

}  // namespace

std::vector<std::string> local_file_systems() {
  std::map<dev_t, std::string> folders;
  struct stat about {};
  if (stat("/", &about) == 0) folders.emplace(about.st_dev, "/");
  const std::unique_ptr<FILE, int (*)(FILE*)> mounts(setmntent("/proc/self/mounts", "re"),
                                                     endmntent);
  mntent mount{};
  char text[8192];
  while (mounts && getmntent_r(mounts.get(), &mount, text, sizeof text)) {
    const std::string folder = mount.mnt_dir;
    if (!is_local(mount) || !hasmntopt(&mount, "rw")) continue;
    if (stat(folder.c_str(), &about) != 0 || !S_ISDIR(about.st_mode)) continue;
    // A file system can be mounted several times. Takes the shortest path.
    std::string& known = folders.emplace(about.st_dev, folder).first->second;
    if (folder.size() < known.size()) known = folder;
  }
  std::vector<std::string> all;
  all.reserve(folders.size());
  for (const auto& [device, folder] : folders) all.push_back(folder);
  std::sort(all.begin(), all.end());
  return all;
}
