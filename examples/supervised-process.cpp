// A supervised process: beats ten times a second as module MODULE, with flow id FLOW.
//
//     supervised-process MODULE FLOW
//
// SIGUSR1 simulates a hang: the loop still runs, but work and heartbeat stop. SIGUSR2 resumes them,
// SIGTERM ends the process.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>

#include "mirt_heartbeat_client.h"

namespace {

constexpr timespec kBeatInterval{0, 100000000};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: supervised-process MODULE FLOW\n");
    return 2;
  }
  sigset_t awaited;
  sigemptyset(&awaited);
  for (const int signal_number : {SIGUSR1, SIGUSR2, SIGTERM}) sigaddset(&awaited, signal_number);
  sigprocmask(SIG_BLOCK, &awaited, nullptr);

  mirt_heartbeat_t heartbeat;
  const auto module_id = static_cast<uint16_t>(strtoul(argv[1], nullptr, 10));
  if (mirt_heartbeat_attach(&heartbeat, module_id) != 0) return 1;
  mirt_heartbeat_set_flow(&heartbeat, static_cast<uint32_t>(strtoul(argv[2], nullptr, 10)));
  printf("process %d beats as module %u\n", getpid(), module_id);
  fflush(stdout);

  for (bool hangs = false;;) {
    if (!hangs) mirt_heartbeat_beat(&heartbeat);
    switch (sigtimedwait(&awaited, nullptr, &kBeatInterval)) {
      case SIGUSR1:
        hangs = true;
        break;
      case SIGUSR2:
        hangs = false;
        break;
      case SIGTERM:
        mirt_heartbeat_clear_flow(&heartbeat);
        return 0;
      default:
        break;
    }
  }
}
