// The command line: for any words, at most one command is called, its options are within their
// limits, and the exit status is one of the documented ones. Here the commands do nothing.
#include <fcntl.h>

#include <cmath>
#include <iostream>
#include <vector>

#include "command/command_line.h"
#include "command/commands.h"
#include "fuzz_input.h"
#include "item/instance.h"

namespace {

constexpr int kCalled = 77;
int g_calls = 0;

int called(bool is_valid) {
  FUZZ_CHECK(is_valid);
  ++g_calls;
  return kCalled;
}

bool is_mode(const std::string& mode) {
  return mode == "exact" || mode == "prefix" || mode == "wildcard";
}

bool is_time(double seconds) {
  return seconds > 0.0 && seconds <= kMostSeconds;
}

// Standard output and standard error go nowhere while it exists.
class Quiet {
 public:
  Quiet() {
    static const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    for (const int fd : {1, 2}) FUZZ_CHECK(dup2(nowhere, fd) == fd);
  }
  Quiet& operator=(Quiet&&) = delete;  // neither copied nor moved
  ~Quiet() {
    std::cout.flush();
    fflush(stdout);
    for (const int fd : {1, 2}) dup2(kKept[fd], fd);
  }

 private:
  inline static const int kKept[] = {0, fcntl(1, F_DUPFD_CLOEXEC, 3), fcntl(2, F_DUPFD_CLOEXEC, 3)};
};

int result_of(std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  const int count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  const Quiet quiet;
  return run_command_line(count, arguments.data());
}

}  // namespace

int command_run(const RunOptions& options) {
  return called(!options.rounds || *options.rounds > 0);
}
int command_once(const OnceOptions& options) {
  return called((!options.rounds || (*options.rounds > 0 && options.every_s)) &&
                (!options.every_s || is_time(*options.every_s)));
}
int command_items() {
  return called(true);
}
int command_heartbeats(bool /*json*/) {
  return called(true);
}
int command_heartbeats_prepare(const std::string& /*group*/) {
  return called(true);
}
int command_status(const StatusOptions& options) {
  return called(!options.check || (!options.json && !options.watch));
}
int command_silence(const SilenceOptions& options) {
  return called(is_time(options.for_s));
}
int command_silences(const std::string& /*socket*/, bool /*json*/) {
  return called(true);
}
int command_unsilence(const std::string& /*pattern*/, const std::string& /*socket*/) {
  return called(true);
}
int command_check_config(const CheckOptions& /*options*/) {
  return called(true);
}
int command_ps(const PsOptions& options) {
  return called(options.sort == "pid" || options.sort == "rss" || options.sort == "cpu");
}
int command_match(const MatchOptions& options) {
  return called(is_mode(options.mode));
}
int command_init(const std::string& /*plugin*/) {
  return called(true);
}
int command_find(const FindOptions& options) {
  return called(is_mode(options.mode));
}
int command_kill(const KillOptions& options) {
  return called(options.pid > 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::vector<std::string> words{"mirt-monitor"};
  while (!input.empty() && words.size() < 16) words.push_back(input.text());
  g_calls = 0;
  const int result = result_of(words);
  FUZZ_CHECK(g_calls == (result == kCalled ? 1 : 0));
  FUZZ_CHECK(result == kCalled || result == 0 || result == 2);
  return 0;
}
