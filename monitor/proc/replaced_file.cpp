#include "proc/replaced_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "proc/trusted_folder.h"

namespace {

constexpr char kNew[] = ".new-";

bool write_all(int fd, const std::string& text) {
  for (size_t written = 0; written < text.size();) {
    const ssize_t got = write(fd, text.data() + written, text.size() - written);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    written += static_cast<size_t>(got);
  }
  return true;
}

// Never opens an existing file, which may be another user's link.
UniqueFd create_new(int folder, const std::string& name) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  UniqueFd file(openat(folder, name.c_str(), kFlags, 0600));
  if (file.get() >= 0 || errno != EEXIST) return file;
  unlinkat(folder, name.c_str(), 0);  // left by a killed process with our PID
  return UniqueFd(openat(folder, name.c_str(), kFlags, 0600));
}

}  // namespace

FilePlace::FilePlace(const std::string& path)
    : name(path.substr(path.rfind('/') + 1)),  // npos + 1 is 0
      folder(open_trusted_folder(path.substr(0, path.size() - name.size()))) {}

std::string system_error(const char* what, int error) {
  return std::string(what) + ": " + std::strerror(error);
}

std::string replace_file(const std::string& path, const std::string& text, mode_t mode,
                         Durability durability) {
  const FilePlace place(path);
  const int folder = place.folder.get();
  if (folder < 0) return system_error("cannot open its folder", errno);
  const std::string fresh = place.name + kNew + std::to_string(getpid());
  const UniqueFd file = create_new(folder, fresh);
  if (file.get() < 0) return system_error("cannot create a new file in its folder", errno);
  const bool lasts = durability == Durability::kOnDisk;
  const bool is_written = write_all(file.get(), text) && fchmod(file.get(), mode) == 0 &&
                          (!lasts || fsync(file.get()) == 0) &&
                          renameat(folder, fresh.c_str(), folder, place.name.c_str()) == 0;
  if (!is_written) {
    std::string error = system_error("cannot write it", errno);
    unlinkat(folder, fresh.c_str(), 0);
    return error;
  }
  return !lasts || fsync(folder) == 0 ? "" : system_error("cannot sync its folder", errno);
}

void remove_file(const FilePlace& place) {
  if (place.folder.get() >= 0) unlinkat(place.folder.get(), place.name.c_str(), 0);
}

void remove_unfinished(const FilePlace& place) {
  const std::string beginning = place.name + kNew;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(
      fdopendir(fcntl(place.folder.get(), F_DUPFD_CLOEXEC, 0)), closedir);
  while (const dirent* const entry = folder ? readdir(folder.get()) : nullptr) {
    if (std::string(entry->d_name).compare(0, beginning.size(), beginning) == 0) {
      unlinkat(place.folder.get(), entry->d_name, 0);
    }
  }
}
