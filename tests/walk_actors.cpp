#include "walk_actors.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "proc_fixture.h"

namespace {

// Starts a program whose input and output is the other end of this socket. Returns 0 on failure.
pid_t start_program(const std::string& program, std::vector<std::string> arguments, int& socket) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return 0;
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  pid_t pid = 0;
  const int error = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  socket = ends[0];
  return error == 0 ? pid : 0;
}

}  // namespace

const std::string ActorLog::kLetters = "abc";

std::string ActorLog::name(char letter) const {
  return "walk-actor-" + std::to_string(getpid()) + '-' + letter;
}

void ActorLog::note(pid_t pid, uint64_t before, uint64_t after, char letter) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto latest = std::find_if(stays_.rbegin(), stays_.rend(),
                                   [pid](const Stay& stay) { return stay.pid == pid; });
  if (latest != stays_.rend() && latest->had_left == UINT64_MAX) {
    latest->began_to_leave = before;
    latest->had_left = after;
  }
  if (letter != '\0') stays_.push_back({pid, letter, before, after, UINT64_MAX, UINT64_MAX});
}

bool ActorLog::could_be(pid_t pid, const std::string& letters, uint64_t begin, uint64_t end) const {
  return std::any_of(stays_.begin(), stays_.end(), [&](const Stay& stay) {
    return stay.pid == pid && letters.find(stay.letter) != std::string::npos && stay.came < end &&
           begin < stay.had_left;
  });
}

std::vector<pid_t> ActorLog::always(const std::string& letters, uint64_t begin,
                                    uint64_t end) const {
  std::vector<pid_t> pids;
  for (const Stay& stay : stays_) {
    if (letters.find(stay.letter) != std::string::npos && stay.was_there < begin &&
        end < stay.began_to_leave) {
      pids.push_back(stay.pid);
    }
  }
  return pids;
}

void Actor::act(unsigned int chance) {
  const char letter = ActorLog::kLetters[chance / 16 % ActorLog::kLetters.size()];
  const char command[2] = {chance % 2 == 0 ? 'e' : 'r', letter};
  const bool starts = pid_ == 0;
  if (!starts && chance % 16 == 0) return end();
  const uint64_t before = log_.tick();
  if (starts) pid_ = start_program(WALK_ACTOR_PATH, {log_.name(letter)}, socket_);
  ASSERT_TRUE(pid_ != 0 && (starts || write(socket_, command, sizeof command) == sizeof command));
  char answer;
  ASSERT_EQ(read(socket_, &answer, 1), 1);
  log_.note(pid_, before, log_.tick(), letter);
}

void Actor::end() {
  if (pid_ == 0) return;
  const uint64_t before = log_.tick();
  close(socket_);
  EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
  log_.note(pid_, before, log_.tick(), '\0');
  pid_ = 0;
}

StuckProcess::StuckProcess() : name_("stuck-" + std::to_string(getpid())) {
  char path[] = "/tmp/stuck-process-XXXXXX";
  close(mkstemp(path));
  file_ = path;
  if (!enter_private_namespace()) return;
  keeper_ = start_program(STUCK_PROCESS_PATH, {"stuck_process", file_, name_}, socket_);
  char pid[32] = "";
  if (keeper_ != 0 && read(socket_, pid, sizeof pid - 1) > 0) pid_ = atoi(pid);
}

StuckProcess::~StuckProcess() {
  close(socket_);
  if (keeper_ != 0) waitpid(keeper_, nullptr, 0);
  unlink(file_.c_str());
}

void StuckProcess::let_go() {
  EXPECT_EQ(write(socket_, "", 1), 1);
}
