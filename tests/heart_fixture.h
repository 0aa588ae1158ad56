// A private heartbeat table, written as supervised processes would.
#ifndef HEART_FIXTURE_H
#define HEART_FIXTURE_H

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "child.h"
#include "monitor_fixture.h"
#include "proc_fixture.h"

// The layout that all processes share. All ones: no process, no flow, a paused heartbeat.
struct HeartEntry {
  uint32_t process, module;
  uint64_t heartbeat;
  uint32_t flow, reserved;
};

constexpr char kTable[] = "/dev/shm/MIRT_AGENT_HEARTBEAT";

// The table and the lock file are private to the test; they exist before the test's folder does.
class HeartTest : public WithOwnHeartbeatFiles<MonitorTest> {
 protected:
  // A table with free entries only.
  HeartEntry* make_table() const {
    const int file = open(kTable, O_RDWR | O_CREAT | O_CLOEXEC, 0660);
    EXPECT_EQ(ftruncate(file, 1200), 0);
    auto* const entries =
        static_cast<HeartEntry*>(mmap(nullptr, 1200, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    close(file);
    std::fill_n(entries, 50, HeartEntry{~0U, 0xFFFF, 0, ~0U, 0});
    return entries;
  }

  const Child child_{{"supervised"}};  // called "cat" by the kernel
  const uint32_t process_ = static_cast<uint32_t>(child_.pid());
};

// The instance that watches module 77, which the child is to be.
inline const std::string kHeart =
    instance("heart", "ProcessHeartBeat", {{"ProcessName", "cat"}, {"ProcessMoudleId", "77"}});

inline std::string report_text(const std::string& item, const Params& params) {
  return "report = { item = '" + item + "', " + params_text(params) + " }\n";
}

#endif
