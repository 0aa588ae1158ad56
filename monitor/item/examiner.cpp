#include "item/examiner.h"

#include <sys/statfs.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <thread>
#include <utility>

#include "item/pre_command.h"
#include "item/walk_group.h"
#include "proc/heartbeat_entry.h"
#include "proc/proc_access.h"
#include "proc/proc_file.h"
#include "text/complaint.h"
#include "text/number_text.h"
#include "text/wording.h"

namespace {

// A share of the machine cannot exceed 100 %, except slightly, because ticks are read at different
// moments. A higher value is a process's whole run time divided by one interval.
constexpr double kMostPercent = 150.0;

Finding ok() {
  return {};
}

// The start of a context overlay: a heartbeat, or two tick counters.
constexpr size_t kHeartbeatBytes = 8, kTicksBytes = 16;

// The kernel updates a thread's run time within three ticks.
constexpr std::chrono::milliseconds kTicks{30};

Finding absent(std::string why) {
  return {State::kAbsent, std::move(why)};
}

Finding unjudged(std::string why) {
  return {State::kUnjudged, std::move(why)};
}

// The context overlay of heartbeats begins with the heartbeat that the item compares with.
uint64_t heartbeat_in(const FI_CONTEXT_S& context) {
  uint64_t heartbeat;
  std::memcpy(&heartbeat, context.contextbuff, sizeof heartbeat);
  return heartbeat;
}

// The process id at the start of an item's context.
int pid_in(const FI_CONTEXT_S& context) {
  int pid;
  std::memcpy(&pid, context.contextbuff, sizeof pid);
  return pid;
}

std::string process_text(int pid) {
  return "process " + std::to_string(pid);
}

bool is_share_of_machine(const ItemRow& item) {
  return item.source.subject == Subject::kMachine || item.source.subject == Subject::kProcess;
}

// Why a percentage is impossible; empty if it is possible.
std::string absurdity(const ItemRow& item, double value) {
  if (!is_share_of_machine(item) || std::strcmp(item.source.file, "fd") == 0) return "";
  const std::string unit = item.unit;
  const double most = unit == "%"        ? kMostPercent
                      : unit == "% core" ? kMostPercent * get_nprocs()
                                         : 0;
  if (most == 0 || value <= most) return "";
  return number_text(value) + " % is more than possible: a file could not be read during a call";
}

Finding failed(const ItemRow& item, const std::vector<Param>& params) {
  std::string detail;
  struct statfs status {};
  if (item.source.subject == Subject::kFileSystem &&
      statfs(params.front().value.c_str(), &status) != 0) {
    detail = "statfs of " + in_quotes(params.front().value) + ": " + std::strerror(errno);
  }
  return {State::kFailed, detail};
}

Finding action(double value) {
  if (value == 0.0) return ok();
  return {State::kFailed, "the item returned " + number_text(value) + ": the action failed"};
}

const std::string* value_of(const std::vector<Param>& params, const char* name) {
  for (const Param& param : params) {
    if (param.name == name) return &param.value;
  }
  return nullptr;
}

// "Max open files            unlimited            unlimited            files"
bool has_unlimited_handles(int pid) {
  const std::string limits = read_proc_file(proc_path(pid, "limits")).value_or("");
  const size_t line = limits.find("Max open files");
  if (line == std::string::npos) return false;
  const size_t value = limits.find_first_not_of(' ', line + std::strlen("Max open files"));
  return value != std::string::npos && limits.compare(value, 9, "unlimited") == 0;
}

}  // namespace

void Examiner::before(const FI_CONTEXT_S& context, bool end_is_known) {
  end_is_known_ = end_is_known;
  found_nothing_ = false;
  has_searched_ = false;
  std::memcpy(context_before_, context.contextbuff, sizeof context_before_);
  begun_[calls_++ % begun_.size()] = std::chrono::steady_clock::now();
  forget_pre_command();
  const Subject subject = item_.source.subject;
  trouble_before_ = subject == Subject::kMachine         ? open_trouble(item_.source.file)
                    : item_.source.match != Match::kNone ? recent_proc_trouble()
                                                         : "";
}

double Examiner::standing_s() const {
  const auto since = std::chrono::steady_clock::now() - standing_since_;
  return std::chrono::duration<double>(since).count();
}

// The item names a thread only after it has not run since the oldest call in the ring.
void Examiner::note_standing(int tid) {
  if (tid == standing_tid_) return;
  standing_tid_ = tid;
  standing_since_ = begun_[calls_ < begun_.size() ? 0 : calls_ % begun_.size()];
}

int Examiner::process_of(const FI_CONTEXT_S& context, const FI_RESULT_S& result) const {
  if (result.result != 0) return 0;
  if (item_.source.subject == Subject::kHeartbeat) {
    return owner_ == MIRT_AGENT_HEART_NO_PROCESS ? 0 : static_cast<int>(owner_);
  }
  if (item_.source.match == Match::kExact) return pid_in(context);
  return item_.reports == Reports::kValueAndPid ? result.pid : 0;
}

Finding Examiner::after(const FI_CONTEXT_S& context, const FI_RESULT_S& result, double value) {
  Finding finding = look(context, result, value);
  pid_ = process_of(context, result);
  return finding;
}

Finding Examiner::look(const FI_CONTEXT_S& context, const FI_RESULT_S& result, double value) {
  if (result.result != 0) return failed(item_, params_);
  const std::string absurd = absurdity(item_, value);
  if (!absurd.empty()) return unjudged(absurd);
  switch (item_.source.subject) {
    case Subject::kMachine:
      return machine(context, value);
    case Subject::kExistence:
      return existence(value);
    case Subject::kProcess:
      return process(context, result, value);
    case Subject::kHungThreads:
      return hung_threads(result, value);
    case Subject::kHeartbeat:
      return heartbeat(context, value);
    case Subject::kAction:
      return action(value);
    default:
      return ok();
  }
}

bool Examiner::context_changed(const FI_CONTEXT_S& context, size_t length) const {
  return std::memcmp(context_before_, context.contextbuff, length) != 0;
}

// No memory in use, or no tick since the previous call, means that this call could not read the
// file.
Finding Examiner::machine(const FI_CONTEXT_S& context, double value) const {
  if (!trouble_before_.empty()) return unjudged(trouble_before_);
  const std::string trouble = open_trouble(item_.source.file);
  if (!trouble.empty()) return unjudged(trouble);
  const bool counts_ticks = item_.context == Context::kNeeded;
  if (value != 0.0 || std::strcmp(item_.unit, "%") != 0) return ok();
  if (counts_ticks && context_changed(context, kTicksBytes)) return ok();
  return unjudged(std::string(item_.source.file) +
                  (counts_ticks ? " shows no ticks since the previous call" : " shows no memory"));
}

Finding Examiner::existence(double value) {
  if (value != 0.0) return params_.size() > 1 ? pre_command() : ok();
  const Finding finding = nothing_found();
  return finding.state == State::kAbsent ? ok() : finding;
}

// Unless the pre-command printed the expected words, the item reports "runs" without a search.
Finding Examiner::pre_command() const {
  std::string output = pre_command_output();
  const std::string& words = params_[2].value;
  if (output.compare(0, words.size(), words) == 0) return ok();
  const std::string trouble = pre_command_trouble();
  output.erase(output.find_last_not_of('\n') + 1);
  const std::string what = trouble.empty() ? "the pre-command printed " + in_quotes(output) +
                                                 ", expected " + in_quotes(words)
                                           : "the pre-command failed (" + trouble + ")";
  return unjudged(what + ", so the item did not search for the process");
}

Finding Examiner::process(const FI_CONTEXT_S& context, const FI_RESULT_S& result, double value) {
  const bool follows_one = item_.source.match == Match::kExact;
  const bool is_handles = std::strcmp(item_.source.file, "fd") == 0;
  const int pid = follows_one ? pid_in(context) : result.pid;
  if (around_.ignore_self && item_.source.match == Match::kWildcard && pid == getpid()) {
    return processes(matches());
  }
  // The highest value of several processes counts, if all of them could be read.
  if (value > 0.0 && (follows_one || !is_handles || may_read_all_files())) return ok();
  if (pid > 0 && (follows_one || !is_handles)) {
    Finding finding = one_process(pid);
    if (finding.state != State::kAbsent) return finding;
  }
  if (!trouble_before_.empty()) return unjudged(trouble_before_);
  const bool one_tells = !is_handles || may_read_all_files();
  // Who can read its command line can read the other files, except fd.
  if (!follows_one && one_tells && still_matches()) return known_process(is_handles);
  std::vector<int> found;
  // After a start many instances look for the first time.
  if (!follows_one) found = calls_ == 1 ? matches_of_group() : matches();
  if (found.empty()) return nothing_found();
  remember(found.front());
  return processes(found);
}

// It runs, and its files can be read. The kernel allows no new limit of open files without a
// number, so one look at the limit is enough.
Finding Examiner::known_process(bool is_handles) {
  if (!is_handles || known_limit_) return ok();
  Finding finding = one_process(known_pid_);
  known_limit_ = finding.measured();
  return finding;
}

// If one of several processes cannot be read, the highest value is uncertain.
Finding Examiner::processes(const std::vector<int>& pids) const {
  if (around_.ignore_self && pids == std::vector<int>{getpid()}) {
    return absent(kOnlyMatchIsSelf);
  }
  Finding last = ok();
  bool any_there = false;
  for (const int pid : pids) {
    Finding finding = one_process(pid);
    if (finding.state == State::kUnjudged) return finding;
    any_there = any_there || finding.measured();
    last = std::move(finding);
  }
  return any_there ? ok() : last;
}

Finding Examiner::one_process(int pid) const {
  const std::string path = proc_path(pid, item_.source.file);
  const int error = open_error(path);
  if (error == ENOENT || error == ESRCH) return absent(process_text(pid) + " has ended");
  if (error != 0) {
    return unjudged("cannot read " + process_text(pid) + ": " + path + ": " + std::strerror(error));
  }
  const bool unlimited = std::strcmp(item_.source.file, "fd") == 0 && has_unlimited_handles(pid);
  return unlimited ? unjudged(process_text(pid) + " has no limit of open files") : ok();
}

Finding Examiner::hung_threads(const FI_RESULT_S& result, double value) {
  note_standing(result.pid);
  if (value != 0.0) return ok();
  if (result.pid != 0) {
    return unjudged("thread " + std::to_string(result.pid) + " hangs, but recovery was refused");
  }
  found_nothing_ = true;
  const std::string trouble = search_trouble();
  if (!trouble.empty()) return unjudged(trouble);
  if (still_matches()) return ok();
  const std::vector<int> found = matches();
  if (found.empty()) return nothing_found();
  if (around_.ignore_self && found == std::vector<int>{getpid()}) return processes(found);
  remember(found.front());
  return ok();
}

Finding Examiner::heartbeat(const FI_CONTEXT_S& context, double value) {
  const bool changed = context_changed(context, kHeartbeatBytes);
  MIRT_AGENT_HEART_INFO_S entry{};
  std::string why;
  owner_look_ = {};
  if (!read_entry(entry, why)) return changed || value == 0.0 ? ok() : unjudged(why);
  look_at_owner(entry);
  if (value == 0.0 && !owner_look_.has_moved) look_again(heartbeat_in(context));
  const bool owner_ended =
      entry.processid != MIRT_AGENT_HEART_NO_PROCESS &&
      open_error(proc_path(static_cast<int>(entry.processid), "stat")) == ENOENT;
  if (owner_ended) return unchanged_heartbeat(entry);
  return changed || value == 0.0 ? ok() : unchanged_heartbeat(entry);
}

// The item reported no problem although the heartbeat did not change since the previous call.
Finding Examiner::unchanged_heartbeat(const MIRT_AGENT_HEART_INFO_S& entry) const {
  if (entry.processid == MIRT_AGENT_HEART_NO_PROCESS) {
    return unjudged("no process has registered for module " + std::to_string(entry.pid));
  }
  const int owner = static_cast<int>(entry.processid);
  const std::optional<std::string> name = status_value(owner, "Name");
  if (!name) return unjudged("its owner, " + process_text(owner) + ", has ended");
  const std::string* const expected = value_of(params_, "ProcessName");
  if (expected && *name != *expected) {
    return unjudged("its owner, " + process_text(owner) + ", is named " + in_quotes(*name) +
                    ", expected " + in_quotes(*expected));
  }
  if (entry.heartbeat == MIRT_AGENT_HEART_PAUSED) return unjudged("paused by its owner");
  if (entry.flowid == MIRT_AGENT_HEART_NO_FLOW) {
    return unjudged("the heartbeat did not change, and its owner has set no flow id");
  }
  // The entry has just changed, or the table was replaced and the item still uses the old one.
  return unjudged("the item did not judge " + process_text(owner));
}

// Records the owner's state for the comparison in the next call.
void Examiner::look_at_owner(const MIRT_AGENT_HEART_INFO_S& entry) {
  owner_look_.has_moved = entry.processid != owner_ || entry.flowid != flow_;
  owner_ = entry.processid;
  flow_ = entry.flowid;
  looked_before_ = std::exchange(looked_, std::chrono::steady_clock::now());
  times_before_ = std::exchange(owner_times_, times_of_owner());
}

// The heartbeat is unchanged. Finds out whether the owner waits for a processor or has just waited.
// At the end of a load this call can run shortly before the owner. The wait then ends after the
// first look, and the owner refreshes its heartbeat.
void Examiner::look_again(uint64_t judged) {
  std::this_thread::sleep_for(kTicks);
  const std::vector<int> waiting = still_waiting(static_cast<int>(owner_), owner_times_);
  looked_ = std::chrono::steady_clock::now();
  owner_times_ = times_of_owner();
  owner_look_.waited = longest_wait(times_before_, owner_times_, waiting, looked_ - looked_before_);
  MIRT_AGENT_HEART_INFO_S entry{};
  std::string why;
  owner_look_.has_beaten = read_entry(entry, why) && entry.heartbeat != judged;
}

std::vector<ThreadTimes> Examiner::times_of_owner() const {
  return owner_ == MIRT_AGENT_HEART_NO_PROCESS ? std::vector<ThreadTimes>()
                                               : thread_times_of(static_cast<int>(owner_));
}

bool Examiner::read_entry(MIRT_AGENT_HEART_INFO_S& entry, std::string& why) const {
  const std::string* const module = value_of(params_, "ProcessMoudleId");
  return module &&
         read_heartbeat_entry(static_cast<uint16_t>(std::atoi(module->c_str())), entry, why);
}

// The item found no process. Decides whether there is none or the search was incomplete.
Finding Examiner::nothing_found() {
  found_nothing_ = true;
  const std::string trouble = search_trouble();
  if (!trouble.empty()) return unjudged(trouble);
  if (!end_is_known_ && !matches().empty())
    return unjudged("a matching process was found only after the call");
  return absent("no process matches " + in_quotes(name()));
}

std::string Examiner::search_trouble() const {
  if (!trouble_before_.empty()) return trouble_before_;
  std::string trouble = proc_trouble();
  if (!trouble.empty() || !around_.stuck) return trouble;
  constexpr std::chrono::seconds kRecent{3};  // the scheduler looks once per second
  return around_.stuck->text(std::chrono::steady_clock::now() - kRecent);
}

// Searches again, because the lines that the group of this call has read are as old as the call.
std::vector<int> Examiner::matches() {
  has_searched_ = true;
  const WalkGroup::Member none(nullptr);
  return matches_of_group();
}

std::vector<int> Examiner::matches_of_group() const {
  if (!around_.functions) return {};
  const auto found = around_.functions->find(item_.source.match, name());
  return found.value_or(std::vector<int>());
}

// If the known process still has the same command line, it matches: reads one file instead of all.
bool Examiner::still_matches() {
  if (known_pid_ == 0) return false;
  if (read_proc_file(proc_path(known_pid_, "cmdline")) == known_cmdline_) return true;
  known_pid_ = 0;
  return false;
}

void Examiner::remember(int pid) {
  known_pid_ = pid;
  known_limit_ = false;
  known_cmdline_ = read_proc_file(proc_path(pid, "cmdline")).value_or("");
  if (known_cmdline_.empty()) known_pid_ = 0;
}
