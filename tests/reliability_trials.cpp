// Trials of mirt-monitor's promise: never a false report, no alarm cleared wrongly, no death
// missed.
//
// Each rig is a real monitor over five real processes that beat every 0.4 s: three stay healthy,
// one hangs from the beginning, and one hangs anew in each trial while the monitor, its reader or
// the whole machine is disturbed. Tables and files are the program's own.
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "child.h"
#include "mirt_heartbeat_client.h"
#include "proc_fixture.h"

namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;
using Seconds = std::chrono::duration<double>;

constexpr int kHealthy = 3;               // processes of each rig that never stop
constexpr int kProcesses = kHealthy + 2;  // then one that hangs for good, and the victim
constexpr int kDead = kHealthy, kVictim = kHealthy + 1;
constexpr int kMostRigs = 50 / kProcesses;  // the table has fifty entries
constexpr Seconds kBeat{0.4};
// How often a rig looks for what is to be told, every 0.05 s, before it counts as missed. A number,
// because a machine that was paused finds its clock far ahead.
constexpr int kMostLooks = 2400;

bool g_may_rule = false;  // may take better priorities than others
sigset_t g_signals{};     // of the processes that beat

double random_between(double least, double most) {
  thread_local std::mt19937 generator{std::random_device{}()};
  return std::uniform_real_distribution<double>(least, most)(generator);
}

void sleep_for(double seconds) {
  std::this_thread::sleep_for(Seconds(seconds));
}

// What was seen in all rigs together.
struct Tally {
  std::mutex mutex;
  unsigned trials = 0, false_reports = 0, wrong_clears = 0, missed = 0;
  double longest_s = 0.0;  // from the hang, or the end of the disturbance, to the alarm
};

// A process that beats until SIGUSR1 makes its heartbeat stand still; SIGUSR2 lets it go on.
[[noreturn]] void beat(uint16_t module) {
  prctl(PR_SET_NAME, "beater");
  mirt_heartbeat_t heartbeat;
  if (mirt_heartbeat_attach(&heartbeat, module) != 0) _exit(1);
  mirt_heartbeat_set_flow(&heartbeat, module);
  const auto interval = std::chrono::duration_cast<std::chrono::nanoseconds>(kBeat);
  const timespec wait{0, interval.count()};
  for (bool hangs = false;;) {
    if (!hangs) mirt_heartbeat_beat(&heartbeat);
    const int number = sigtimedwait(&g_signals, nullptr, &wait);
    if (number == SIGUSR1) hangs = true;
    if (number == SIGUSR2) hangs = false;
  }
}

pid_t fork_child(const std::function<void()>& run) {
  const pid_t parent = getpid(), pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  // Whoever may not take a better priority than others gives the rigs a worse one than the hogs.
  if (!g_may_rule) setpriority(PRIO_PROCESS, 0, 19);
  run();
  _exit(127);
}

// One monitor, its reader, and the processes that it watches.
class Rig : InPlace {
 public:
  Rig(int number, Tally& tally) : number_(number), tally_(tally) {
    for (int i = 0; i < kProcesses; ++i) {
      processes_.push_back(fork_child([&] { beat(module_of(i)); }));
    }
    write_config();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
    fcntl(ends[1], F_SETPIPE_SZ, 4096);  // a pause is to be felt at once
    monitor_ = fork_child([&] {
      dup2(ends[1], STDOUT_FILENO);
      dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
      execl(MIRT_MONITOR_PATH, "mirt-monitor", "run", "--json", "--config", config_path().c_str(),
            nullptr);
    });
    close(ends[1]);
    output_ = ends[0];
    fcntl(output_, F_SETFL, O_NONBLOCK);
  }
  ~Rig() {
    processes_.push_back(monitor_);
    for (const pid_t process : processes_) kill(process, SIGKILL);
    for (const pid_t process : processes_) waitpid(process, nullptr, 0);
    close(output_);
  }

  // The one that hangs for good is reported.
  void begin() {
    hang(kDead);
    expect_report(kDead);
  }

  // A hang of the victim somewhere in a disturbance. It has to be reported, and cleared once the
  // victim goes on; nothing else may be.
  void trial(const std::function<void()>& disturb) {
    read_for(random_between(0.0, 2.0));
    std::thread hanging([&, after = random_between(0.0, 6.0)] {
      sleep_for(after);
      hang(kVictim);
    });
    disturb();
    const Clock::time_point disturbed_until = Clock::now();
    while (!hangs_[kVictim]) read_for(0.05);
    hanging.join();
    expect_report(kVictim);
    note_delay(std::max(disturbed_until, hung_since_[kVictim].load()));
    go_on(kVictim);
    expect(kVictim, "goes on and is not cleared", [&] { return !raised_[kVictim]; });
    reported_[kVictim] = false;
  }

  void stop_monitor(double seconds) const {
    kill(monitor_, SIGSTOP);
    sleep_for(seconds);
    kill(monitor_, SIGCONT);
  }

  // Reads and judges what the monitor says, for that long.
  void read_for(double seconds) {
    const Clock::time_point end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(seconds));
    for (Clock::duration left{}; (left = end - Clock::now()) > Clock::duration::zero();) {
      pollfd readable{output_, POLLIN, 0};
      const auto left_ms = std::chrono::duration_cast<std::chrono::milliseconds>(left).count();
      poll(&readable, 1, static_cast<int>(left_ms) + 1);
      read_some();
    }
  }

 private:
  uint16_t module_of(int process) const {
    return static_cast<uint16_t>(1 + number_ * kProcesses + process);
  }
  std::string config_path() const { return "/tmp/rig-" + std::to_string(number_) + ".toml"; }
  std::string name_of(int process) const {
    if (process < kHealthy) return "healthy-" + std::to_string(process + 1);
    return process == kDead ? "dead" : "victim";
  }

  void write_config() const {
    std::ofstream config(config_path());
    for (int i = 0; i < kProcesses; ++i) {
      const std::string process =
          "{ name = 'ProcessName', value = 'beater' }, { name = 'ProcessMoudleId', value = '" +
          std::to_string(module_of(i)) + "' }]";
      config << "[[instance]]\nname = '" << name_of(i)
             << "'\nitem = 'ProcessHeartBeat'\nperiod = 1\nparams = [" << process
             << "\n[instance.alarm]\nequals = 0\nreport = { item = 'SendErrRpt', params = ["
                "{ name = 'ErrCode', value = '0xF000020F' }, "
             << process << " }\n";
    }
    // Fills the pipe of a reader that pauses.
    config << "[[instance]]\nname = 'talker'\nitem = 'GetSysMemory'\nperiod = 0.1\n";
  }

  // In turn: all of the process stops, or it hangs while its loop still runs.
  void hang(size_t process) {
    hung_since_[process] = Clock::now();
    wall_hung_since_[process] = std::chrono::system_clock::now();
    hangs_[process] = true;
    kill(processes_[process], hang_signal_ = hang_signal_ == SIGSTOP ? SIGUSR1 : SIGSTOP);
  }
  void go_on(size_t process) {
    kill(processes_[process], hang_signal_ == SIGSTOP ? SIGCONT : SIGUSR2);
    hangs_[process] = false;
  }

  void expect_report(int process) {
    expect(process, "hangs and is not reported",
           [&] { return raised_[process] && reported_[process]; });
  }
  // Reads until it is told; what is not is a fault.
  void expect(int process, const std::string& missing, const std::function<bool()>& told) {
    for (int looks = 0; !told() && looks < kMostLooks; ++looks) read_for(0.05);
    if (told()) return;
    complain(&Tally::missed, name_of(process) + " " + missing + "; last: " + last_[process]);
  }

  void read_some() {
    char piece[4096];
    const ssize_t got = read(output_, piece, sizeof piece);
    if (got == 0) {
      std::printf("the monitor of rig %d has ended\n", number_);
      std::_Exit(1);
    }
    if (got < 0) return;
    text_.append(piece, static_cast<size_t>(got));
    for (size_t end; (end = text_.find('\n')) != std::string::npos; text_.erase(0, end + 1)) {
      judge(Json::parse(text_.substr(0, end)));
    }
  }

  void judge(const Json& line) {
    const std::string kind = line.value("kind", "");
    int process = 0;
    while (process < kProcesses && line.value("instance", "") != name_of(process)) ++process;
    if (process == kProcesses) return;  // the talker, or lost lines
    last_[process] = line.dump();
    if (kind != "alarm" && kind != "report") return;
    const bool accuses = kind == "report" || line["state"] == "raised";
    (kind == "report" ? reported_ : raised_)[process] = accuses;
    if (accuses && !hung_before(process, line)) complain(&Tally::false_reports, line.dump());
    if (!accuses && process == kDead) complain(&Tally::wrong_clears, line.dump());
  }

  void complain(unsigned Tally::*what, const std::string& text) const {
    const std::lock_guard lock(tally_.mutex);
    ++(tally_.*what);
    std::printf("  FAULT: rig %d: %s\n", number_, text.c_str());
    std::fflush(stdout);
  }

  // Did the process hang by the time that the line tells of? Both have milliseconds.
  bool hung_before(int process, const Json& line) const {
    if (!hangs_[process]) return false;
    const std::string time = line["time"];
    std::tm local{};
    const char* const rest = strptime(time.c_str(), "%Y-%m-%dT%H:%M:%S", &local);
    local.tm_isdst = -1;
    const auto told = std::chrono::system_clock::from_time_t(std::mktime(&local)) +
                      std::chrono::milliseconds(std::atoi(rest + 1) + 1);
    return told >= wall_hung_since_[process].load();
  }

  void note_delay(Clock::time_point from) {
    const std::lock_guard lock(tally_.mutex);
    tally_.longest_s = std::max(tally_.longest_s, Seconds(Clock::now() - from).count());
  }

  const int number_;
  Tally& tally_;
  std::vector<pid_t> processes_;
  pid_t monitor_ = -1;
  int output_ = -1;
  std::string text_;
  int hang_signal_ = SIGSTOP;
  std::atomic<bool> hangs_[kProcesses]{};
  std::atomic<Clock::time_point> hung_since_[kProcesses]{};
  std::atomic<std::chrono::system_clock::time_point> wall_hung_since_[kProcesses]{};
  std::string last_[kProcesses];  // that was told of it
  bool raised_[kProcesses] = {}, reported_[kProcesses] = {};
};

// Keeps one processor busy.
[[noreturn]] void hog(int processor, bool real_time, Clock::time_point until) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processor, &one);
  sched_setaffinity(0, sizeof one, &one);
  const sched_param priority{10};
  if (g_may_rule && real_time) sched_setscheduler(0, SCHED_FIFO, &priority);
  setpriority(PRIO_PROCESS, 0, g_may_rule ? -20 : 0);
  while (Clock::now() < until) {
  }
  _exit(0);
}

// All processors busy at a better priority than the rigs have: real-time, or several at the best
// ordinary one. Returns the hogs.
std::vector<pid_t> load_machine(double seconds) {
  const bool real_time = random_between(0.0, 1.0) < 0.5;
  const int each = g_may_rule && real_time ? 1 : 4;
  const Clock::time_point until =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(seconds));
  std::vector<pid_t> hogs;
  for (int i = 0; i < each * static_cast<int>(std::thread::hardware_concurrency()); ++i) {
    const pid_t pid = fork();
    if (pid == 0) hog(i / each, real_time, until);
    hogs.push_back(pid);
  }
  return hogs;
}

using Rigs = std::vector<std::unique_ptr<Rig>>;
using Disturb = std::function<void(Rig&)>;

// The trials of one kind, shared out among the rigs.
void run_on_each(Rigs& rigs, unsigned count, const Disturb& disturb, Tally& tally) {
  std::atomic<unsigned> next{0};
  Threads(rigs.size(), [&](size_t number) {
    Rig& rig = *rigs[number];
    while (next++ < count) {
      rig.trial([&] { disturb(rig); });
      const std::lock_guard lock(tally.mutex);
      ++tally.trials;
    }
    // The others still disturb the machine.
    while (next < count + rigs.size()) rig.read_for(0.1);
  }).join();
}

// Each load falls on all rigs and counts once.
void run_loads(Rigs& rigs, unsigned count, Tally& tally) {
  for (unsigned i = 0; i < count; ++i) {
    const double seconds = random_between(0.5, 5.0);
    std::atomic<bool> over{false};
    Threads threads(rigs.size(), [&](size_t number) {
      rigs[number]->trial([&] {
        while (!over) rigs[number]->read_for(0.05);
      });
    });
    sleep_for(random_between(0.0, 3.0));
    for (const pid_t hog : load_machine(seconds)) waitpid(hog, nullptr, 0);
    over = true;
    threads.join();
    ++tally.trials;
  }
}

// Without what disturbs a rig the machine is loaded.
bool run_trials(const char* what, unsigned count, int rig_count, const Disturb& disturb) {
  if (count == 0) return true;
  Tally tally;
  Rigs rigs;
  for (int i = 0; i < rig_count; ++i) rigs.push_back(std::make_unique<Rig>(i, tally));
  for (const auto& rig : rigs) rig->begin();
  if (disturb) run_on_each(rigs, count, disturb, tally);
  if (!disturb) run_loads(rigs, count, tally);
  std::printf(
      "%-34s %4u trials, %u false reports, %u cleared wrongly, %u missed; longest until "
      "told: %.1f s\n",
      what, tally.trials, tally.false_reports, tally.wrong_clears, tally.missed, tally.longest_s);
  std::fflush(stdout);
  return tally.false_reports + tally.wrong_clears + tally.missed == 0;
}

int run_all(char** argv) {
  const auto number = [&](int i) { return static_cast<unsigned>(std::atoi(argv[i])); };
  const int rigs = std::clamp(std::atoi(argv[4]), 1, kMostRigs);
  // From the first moment on, since a beater can be told to hang before it runs.
  for (const int one : {SIGUSR1, SIGUSR2}) sigaddset(&g_signals, one);
  sigprocmask(SIG_BLOCK, &g_signals, nullptr);
  const OwnHeartbeatFiles own;
  if (!own.mounted()) {
    std::printf("skipped: needs root, or user namespaces, to mount\n");
    return 77;
  }
  g_may_rule = status_of_child([] { return setpriority(PRIO_PROCESS, 0, -20); }) == 0;

  const Disturb stop = [](Rig& rig) { rig.stop_monitor(random_between(0.1, 5.0)); };
  const Disturb pause_reader = [](Rig&) { sleep_for(random_between(0.5, 8.0)); };
  bool clean = run_trials("the monitor is stopped", number(1), rigs, stop);
  clean = run_trials("its reader pauses", number(2), rigs, pause_reader) && clean;
  clean = run_trials("all processors are busy", number(3), rigs, nullptr) && clean;
  return clean ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: reliability_trials STOPS PAUSES LOADS RIGS\n");
    return 2;
  }
  try {
    return run_all(argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "reliability_trials: %s\n", error.what());
    return 1;
  }
}
