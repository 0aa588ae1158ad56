#include "proc/file_systems.h"

#include <mntent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string_view>

namespace {

constexpr char kMounts[] = "/proc/self/mounts";

// ZFS file systems have no device node.
bool is_local(const mntent& mount) {
  return std::string_view(mount.mnt_fsname).substr(0, 5) == "/dev/" ||
         std::string_view(mount.mnt_type) == "zfs";
}

}  // namespace

FileSystems local_file_systems() {
  FileSystems found;
  std::map<dev_t, std::string> folders;
  struct stat about {};
  const auto leave_out = [&](const std::string& path) {
    found.left_out.push_back(path + ": " + std::strerror(errno));
  };
  const auto look_at = [&](const std::string& path) {
    const bool done = stat(path.c_str(), &about) == 0;
    if (!done) leave_out(path);
    return done;
  };
  if (look_at("/")) folders.emplace(about.st_dev, "/");
  const std::unique_ptr<FILE, int (*)(FILE*)> mounts(setmntent(kMounts, "re"), endmntent);
  if (!mounts) leave_out(kMounts);
  mntent mount{};
  char text[8192];
  while (mounts && getmntent_r(mounts.get(), &mount, text, sizeof text)) {
    const std::string folder = mount.mnt_dir;
    if (!is_local(mount) || !hasmntopt(&mount, "rw")) continue;
    if (!look_at(folder) || !S_ISDIR(about.st_mode)) continue;
    // A file system can be mounted several times. Takes the shortest path.
    std::string& known = folders.emplace(about.st_dev, folder).first->second;
    if (folder.size() < known.size()) known = folder;
  }
  if (mounts && std::ferror(mounts.get()) != 0) leave_out(kMounts);
  for (const auto& [device, folder] : folders) found.folders.push_back(folder);
  std::sort(found.folders.begin(), found.folders.end());
  return found;
}
