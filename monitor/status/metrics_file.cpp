#include "status/metrics_file.h"

#include <unistd.h>

#include <exception>
#include <memory>
#include <system_error>
#include <utility>

#include "proc/join_or_detach.h"
#include "proc/replaced_file.h"
#include "status/metrics_text.h"
#include "text/log_lines.h"

namespace {

constexpr mode_t kMode = 0644;  // the node exporter runs as another user

}  // namespace

MetricsFile::MetricsFile(MetricsFilePlan plan, Publisher& publisher)
    : plan_(std::move(plan)), publisher_(publisher) {
  try {
    thread_ = std::thread([this] { work(); });
  } catch (const std::system_error&) {
    say("cannot start a thread");
  }
}

MetricsFile::~MetricsFile() {
  constexpr std::chrono::seconds kToEnd{1};
  if (thread_.joinable()) finish(kToEnd);
}

bool MetricsFile::finish(std::chrono::milliseconds limit) {
  if (!thread_.joinable()) return true;
  std::unique_lock lock(mutex_);
  ending_ = true;
  wake_.notify_all();
  const bool has_ended = ended_.wait_for(lock, limit, [&] { return has_ended_; });
  lock.unlock();
  join_or_detach(thread_, has_ended);
  return has_ended;
}

void MetricsFile::work() noexcept {
  const std::chrono::duration<double> every(plan_.every_s);
  remove_unfinished(FilePlace(plan_.path));
  std::unique_lock lock(mutex_);
  while (!ending_) {
    lock.unlock();
    say(write());
    lock.lock();
    wake_.wait_for(lock, every, [&] { return ending_; });
  }
  lock.unlock();
  if (is_written_) remove_file(FilePlace(plan_.path));
  lock.lock();
  has_ended_ = true;
  ended_.notify_all();
}

// Returns the error, empty if there was none.
std::string MetricsFile::write() noexcept try {
  const std::shared_ptr<const Snapshot> snapshot = publisher_.fresh(Publisher::kToAnswer);
  if (!snapshot) return publisher_.closed() ? error_ : "the monitor does not answer";
  std::string error =
      replace_file(plan_.path, metrics_file_text(*snapshot), kMode, Durability::kNone);
  is_written_ = is_written_ || error.empty();
  return error;
} catch (const std::exception&) {
  return "out of memory";  // short: needs no allocation
}

void MetricsFile::say(std::string error) noexcept try {
  if (error == error_) return;
  error_ = std::move(error);
  const std::string beginning = "metrics file " + plan_.path + ": ";
  if (error_.empty()) {
    log_line("event", beginning + "written again");
  } else {
    log_line("error", beginning + error_);
  }
} catch (const std::exception&) {  // no memory
}
