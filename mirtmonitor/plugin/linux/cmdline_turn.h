// Only one thread at a time reads the command line of a process.
#ifndef CMDLINE_TURN_H
#define CMDLINE_TURN_H

#include <sys/types.h>

struct CmdlinePlace;

// The right to read /proc/<pid>/cmdline. For this file the kernel takes the memory lock of the
// process, so a read can block for ever. Such a process must block one thread at most: a thread
// that finds another one in the file waits for it, and skips the process once the other one has
// been there for a second.
class CmdlineTurn {
 public:
  explicit CmdlineTurn(pid_t pid) noexcept : pid_(pid) {}
  CmdlineTurn& operator=(CmdlineTurn&&) = delete;  // neither copied nor moved
  ~CmdlineTurn();

  // Returns true if the file may be read as long as this object exists, and false if the process
  // has to be skipped. Calls meanwhile() repeatedly while it waits for another thread.
  template <typename Meanwhile>
  bool take(Meanwhile meanwhile) noexcept {
    Answer answer = ask();
    for (unsigned int asked = 1; answer == Answer::kWait; ++asked) {
      meanwhile();
      pause(asked);
      answer = ask();
    }
    return answer == Answer::kRead;
  }
  bool take() noexcept {
    return take([] {});
  }

 private:
  enum class Answer { kRead, kWait, kSkip };
  Answer ask() noexcept;
  static void pause(unsigned int asked) noexcept;

  pid_t pid_;
  CmdlinePlace* place_ = nullptr;  // locked by this object
};

#endif
