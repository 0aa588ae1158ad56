#include "alert/state_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "proc/join_or_detach.h"
#include "proc/replaced_file.h"
#include "proc/trusted_folder.h"
#include "text/log_lines.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMostBytes = size_t{16} << 20;

// The text of the file. Nothing if the file does not exist. Nothing, with the reason in `damage`,
// if it cannot be trusted or read.
std::optional<std::string> read_trusted(const FilePlace& place, std::string& damage) {
  const UniqueFd file(openat(place.folder.get(), place.name.c_str(),
                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (file.get() < 0 || fstat(file.get(), &status) != 0) {
    if (errno != ENOENT) damage = system_error("cannot open it", errno);
    return std::nullopt;
  }
  if (!S_ISREG(status.st_mode))
    damage = "it is not a regular file";
  else if (others_can_write(status))
    damage = "others can write to it";
  else if (static_cast<size_t>(status.st_size) > kMostBytes)
    damage = "it is too large";
  if (!damage.empty()) return std::nullopt;
  std::string text(static_cast<size_t>(status.st_size), '\0');
  ssize_t got;
  do got = read(file.get(), text.data(), text.size());
  while (got < 0 && errno == EINTR);
  if (got == static_cast<ssize_t>(text.size())) return text;
  damage = got < 0 ? system_error("cannot read it", errno) : "it is shorter than its size";
  return std::nullopt;
}

// Renames the file to "state.json.damaged-2026-03-01T08:15:30.250+01:00", with a number after it if
// that name exists. Returns the new name, empty if renaming failed.
std::string set_aside(const FilePlace& place) {
  const std::string wanted = place.name + ".damaged-" + iso8601(std::chrono::system_clock::now());
  const int folder = place.folder.get();
  for (int count = 1; count <= 100; ++count) {
    std::string name = count == 1 ? wanted : wanted + "-" + std::to_string(count);
    if (renameat2(folder, place.name.c_str(), folder, name.c_str(), RENAME_NOREPLACE) == 0) {
      return name;
    }
    if (errno != EEXIST) break;
  }
  return "";
}

void say(const char* level, const std::string& path, const std::string& text) noexcept try {
  log_line(level, "state file " + path + ": " + text);
} catch (const std::exception&) {  // no memory
}

}  // namespace

StateReading StateStore::load(const std::string& path) {
  StateReading reading;
  const FilePlace place(path);
  if (place.folder.get() < 0) {
    if (errno != ENOENT) reading.damage = system_error("cannot open its folder", errno);
  } else {
    remove_unfinished(place);
    const std::optional<std::string> text = read_trusted(place, reading.damage);
    std::optional<SavedState> state = text ? read_state(*text, reading.damage) : std::nullopt;
    reading.found = state.has_value();
    if (state) reading.state = std::move(*state);
    if (!reading.damage.empty()) reading.set_aside = set_aside(place);
  }
  if (!reading.damage.empty()) {
    say("error", path,
        reading.damage + "; starting without it" +
            (reading.set_aside.empty() ? "" : "; renamed to " + reading.set_aside));
  }
  return reading;
}

// The part of a store that its thread uses. Both own it.
class StateStore::Writer {
 public:
  Writer(std::string path, std::chrono::milliseconds between)
      : path_(std::move(path)), between_(between) {}

  void save(SavedState state) noexcept {
    const std::lock_guard lock(mutex_);
    unsaved_ = std::move(state);
    wake_.notify_one();
  }

  // Sets `has_ended` if the thread has ended within the limit. True if it has written everything.
  bool finish(std::chrono::milliseconds limit, bool& has_ended) {
    std::unique_lock lock(mutex_);
    finishing_ = true;
    wake_.notify_one();
    has_ended = ended_.wait_for(lock, limit, [&] { return !runs_; });
    return has_ended && !unsaved_;
  }

  void start(const std::shared_ptr<Writer>& self) {
    runs_ = true;
    try {
      thread_ = std::thread([self] { self->run(); });
    } catch (const std::system_error& error) {
      runs_ = false;
      error_ = system_error("cannot start a thread", error.code().value());
      say("error", path_, error_);
    }
  }
  void end(bool has_ended) {
    if (thread_.joinable()) join_or_detach(thread_, has_ended);
  }

 private:
  void run() noexcept;
  bool write(const SavedState& state) noexcept;
  void note(std::string error) noexcept;

  const std::string path_;
  const std::chrono::milliseconds between_;
  std::string written_;  // only the thread uses it
  std::thread thread_;
  mutable std::mutex mutex_;  // guards all members below
  std::condition_variable wake_, ended_;
  std::optional<SavedState> unsaved_;
  std::string error_;
  bool runs_ = false, finishing_ = false;
};

void StateStore::Writer::run() noexcept {
  std::unique_lock lock(mutex_);
  Clock::time_point next = Clock::now();
  for (;;) {
    wake_.wait(lock, [&] { return finishing_ || unsaved_; });
    if (!unsaved_) break;
    wake_.wait_until(lock, next, [&] { return finishing_; });
    const bool is_last = finishing_;
    SavedState state = *std::exchange(unsaved_, std::nullopt);
    lock.unlock();
    const bool is_written = write(state);
    lock.lock();
    next = Clock::now() + between_;
    if (!is_written && !unsaved_) unsaved_ = std::move(state);
    if (is_last) break;
  }
  runs_ = false;
  ended_.notify_all();
}

// False if it must be tried again.
bool StateStore::Writer::write(const SavedState& state) noexcept try {
  std::string text = state_text(state) + "\n";
  if (text == written_) return true;
  std::string error = replace_file(path_, text, 0600, Durability::kOnDisk);
  const bool is_written = error.empty();
  if (is_written) written_ = std::move(text);
  note(std::move(error));
  return is_written;
} catch (const std::exception&) {
  note("out of memory");  // short: allocates nothing
  return false;
}

// Logs a failure once until it changes, and logs the first success after it.
void StateStore::Writer::note(std::string error) noexcept {
  const bool works = error.empty();
  std::unique_lock lock(mutex_);
  if (error == error_) return;
  error_.swap(error);
  lock.unlock();
  if (works) {
    say("event", path_, "written again");
  } else {
    say("error", path_, error_);  // only this thread changes it
  }
}

StateStore::StateStore(std::string path, std::chrono::milliseconds between)
    : writer_(std::make_shared<Writer>(std::move(path), between)) {
  writer_->start(writer_);
}

StateStore::~StateStore() {
  constexpr std::chrono::seconds kToEnd{1};
  if (!finished_) finish(kToEnd);
}

void StateStore::save(SavedState state) noexcept {
  writer_->save(std::move(state));
}

bool StateStore::finish(std::chrono::milliseconds limit) {
  finished_ = true;
  bool has_ended = false;
  const bool is_written = writer_->finish(limit, has_ended);
  stuck_ = !has_ended;
  writer_->end(has_ended);
  return is_written;
}
