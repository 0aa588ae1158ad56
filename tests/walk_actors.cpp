#include "walk_actors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "proc_fixture.h"

namespace {

// Starts a program with pipes as its input and output. Returns 0 on failure.
pid_t start_program(const std::string& program, std::vector<std::string> arguments, int& input,
                    int& output) {
  int in[2], out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return 0;
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  pid_t pid = 0;
  const int error = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  input = in[1];
  output = out[0];
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
  if (pid_ == 0) return start(letter);
  if (chance % 16 == 0) return end();
  tell(chance % 2 == 0 ? 'e' : 'r', letter);
}

bool Actor::await_answer() const {
  char answer;
  return read(answers_, &answer, 1) == 1;
}

void Actor::start(char letter) {
  const uint64_t before = log_.tick();
  pid_ = start_program(WALK_ACTOR_PATH, {log_.name(letter)}, commands_, answers_);
  ASSERT_TRUE(pid_ != 0 && await_answer());
  log_.note(pid_, before, log_.tick(), letter);
}

void Actor::tell(char command, char letter) {
  const char bytes[2] = {command, letter};
  const uint64_t before = log_.tick();
  ASSERT_TRUE(write(commands_, bytes, sizeof bytes) == sizeof bytes && await_answer());
  log_.note(pid_, before, log_.tick(), letter);
}

void Actor::end() {
  if (pid_ == 0) return;
  const uint64_t before = log_.tick();
  close(commands_);
  EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
  log_.note(pid_, before, log_.tick(), '\0');
  close(answers_);
  pid_ = 0;
}

StuckProcess::StuckProcess() : name_("stuck-" + std::to_string(getpid())) {
  char path[] = "/tmp/stuck-process-XXXXXX";
  const int file = mkstemp(path);
  close(file);
  file_ = path;
  int output = -1;
  if (!enter_private_namespace()) return;
  keeper_ = start_program(STUCK_PROCESS_PATH, {"stuck_process", file_, name_}, input_, output);
  char pid[32] = "";
  if (keeper_ != 0 && read(output, pid, sizeof pid - 1) > 0) pid_ = atoi(pid);
  close(output);
}

StuckProcess::~StuckProcess() {
  close(input_);
  if (keeper_ != 0) waitpid(keeper_, nullptr, 0);
  unlink(file_.c_str());
}

void StuckProcess::let_go() {
  EXPECT_EQ(write(input_, "", 1), 1);
}
