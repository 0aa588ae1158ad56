// Named shared memory: POSIX shared memory, mapped once in each process.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

#include "kelv_log.h"
#include "mirt_host.h"

namespace {

constexpr size_t kMaxName = 255;

// One mapping of this process. It is never unmapped, because users keep pointers into it.
struct Mapping {
  char path[kMaxName + 1];
  void* address;
  uint32_t size;
  Mapping* next;
};

std::mutex g_mappings_mutex;
Mapping* g_mappings = nullptr;

int open_segment(const char* path) {
  const int created = shm_open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0660);
  // With the sysctl fs.protected_regular the kernel refuses O_CREAT for another user's segment in a
  // sticky directory, even for root.
  return created < 0 && errno == EACCES ? shm_open(path, O_RDWR | O_CLOEXEC, 0) : created;
}

// Each lock is one byte of the segment's file. It belongs to the open file description, not to the
// process: it lasts until it is released or the last descriptor and mapping are gone.
constexpr off_t kSizing = 0;  // exclusive: held to size the segment and to decide whether it is new
constexpr off_t kAttached = 1;  // shared: held by every process that has the segment mapped

// Owns one descriptor. The mapping and the second lock continue after close().
class Segment {
 public:
  explicit Segment(const char* path) : descriptor_(open_segment(path)) {}
  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;
  ~Segment() {
    if (descriptor_ < 0) return;
    lock(kSizing, F_UNLCK);
    close(descriptor_);
  }
  int get() const { return descriptor_; }

  bool lock(off_t byte, short type) const {
    struct flock range = range_of(byte, type);
    int locked;
    do {
      locked = fcntl(descriptor_, F_OFD_SETLKW, &range);
    } while (locked != 0 && errno == EINTR);
    return locked == 0;
  }

  // True if another process has the segment mapped.
  bool is_shared() const {
    struct flock range = range_of(kAttached, F_WRLCK);
    return fcntl(descriptor_, F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
  }

 private:
  static struct flock range_of(off_t byte, short type) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = byte;
    range.l_len = 1;
    return range;
  }

  int descriptor_;
};

int32_t refuse(const char* path, const char* why, int error) {
  KELV_LOG(PID_CTRL_MIRTCORE, DBG_LOG_ERROR, "Shared memory '%s': %s%s%s.", path, why,
           error != 0 ? ": " : "", error != 0 ? strerrordesc_np(error) : "");
  return -1;
}

bool is_all_zero(const void* memory, size_t size) {
  const char* const bytes = static_cast<const char*>(memory);
  return std::all_of(bytes, bytes + size, [](char byte) { return byte == 0; });
}

// Opens, sizes and maps the segment. Allocates its pages at once: a full file system must cause an
// error here, not a SIGBUS at the first store.
int32_t map_segment(const char* path, uint32_t size, void*& address, bool& created) {
  const Segment segment(path);
  if (segment.get() < 0) return refuse(path, "cannot be opened", errno);
  struct stat status {};
  if (fstat(segment.get(), &status) != 0) return refuse(path, "cannot be examined", errno);
  char why[160];
  // Check before locking, because another user could hold the lock forever.
  if (mirt_host_check_owner(status.st_uid, why, sizeof why) != 0) return refuse(path, why, 0);
  if (!segment.lock(kSizing, F_WRLCK)) return refuse(path, "cannot be locked", errno);
  // Again, because the previous holder of the lock may have sized the segment.
  if (fstat(segment.get(), &status) != 0) return refuse(path, "cannot be examined", errno);
  if (status.st_size == 0) {
    int error;
    do {
      error = posix_fallocate(segment.get(), 0, size);
    } while (error == EINTR);
    if (error != 0) return refuse(path, "cannot be sized", error);
  } else if (status.st_size != static_cast<off_t>(size)) {
    snprintf(why, sizeof why, "has %lld bytes, expected %u", static_cast<long long>(status.st_size),
             size);
    return refuse(path, why, 0);
  }
  void* const mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, segment.get(), 0);
  if (mapped == MAP_FAILED) return refuse(path, "cannot be mapped", errno);
  // An all-zero segment that no other process has mapped counts as new: its creator died before it
  // wrote anything, so the next process has to initialise it.
  created = status.st_size == 0 || (!segment.is_shared() && is_all_zero(mapped, size));
  segment.lock(kAttached, F_RDLCK);
  address = mapped;
  return 0;
}

const Mapping* find_mapping(const char* path) {
  const Mapping* mapping = g_mappings;
  while (mapping != nullptr && strcmp(mapping->path, path) != 0) mapping = mapping->next;
  return mapping;
}

}  // namespace

int32_t MIRT_InitShareMem(void** address, const char* name, uint32_t size, bool* isCreate) {
  if (address == nullptr || name == nullptr || isCreate == nullptr || size == 0) return -1;
  char path[kMaxName + 1];
  const int length = snprintf(path, sizeof path, "/%s", name);
  if (length < 0 || static_cast<size_t>(length) >= sizeof path) return -1;

  const std::lock_guard<std::mutex> lock(g_mappings_mutex);
  if (const Mapping* const mapping = find_mapping(path)) {
    if (mapping->size != size) return refuse(path, "is mapped with another size", 0);
    *address = mapping->address;
    *isCreate = false;
    return 0;
  }
  auto* const mapping = new (std::nothrow) Mapping{};
  if (mapping == nullptr) return refuse(path, "cannot be kept", ENOMEM);
  const int32_t mapped = map_segment(path, size, mapping->address, *isCreate);
  if (mapped != 0) {
    delete mapping;
    return mapped;
  }
  memcpy(mapping->path, path, sizeof path);
  mapping->size = size;
  mapping->next = g_mappings;
  g_mappings = mapping;
  *address = mapping->address;
  return 0;
}
