#include "service/journal.h"

#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

// The place in the source says nothing to the reader of a record.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

const char kAlarmRaisedId[] = "83dd75deb1074c1da813b06cb01b5976";
const char kAlarmClearedId[] = "c267bfba0411491492a2b6b585fd2e11";
const char kStateChangedId[] = "b2680fd5b68d4e07a00ffa11647f8041";
const char kWentBlindId[] = "83a6f9953c4f4fc78e4b2f8d4c836889";
const char kReportSentId[] = "b6d9c49a88cf4ebeb8307d3877c43ea1";
const char kEventId[] = "f33db4b600264cdfbe6fcb2486411d3c";

namespace {

// The service manager puts device and inode of the journal's socket into JOURNAL_STREAM.
bool stream_is_of_journal() {
  const char* const stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (!stream || fstat(STDERR_FILENO, &status) != 0) return false;
  return std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino) == stream;
}

std::string field(const char* name, const std::string& value) {
  return std::string(name) + '=' + value;
}

void send_now(const JournalRecord& record) {
  std::vector<std::string> texts{
      field("MESSAGE", record.message), field("MESSAGE_ID", record.message_id),
      field("PRIORITY", std::to_string(static_cast<int>(record.priority))),
      field("SYSLOG_IDENTIFIER", "mirt-monitor")};
  for (const auto& [name, value] : record.fields) {
    if (!value.empty()) texts.push_back(field(name, value));
  }
  std::vector<iovec> parts;
  parts.reserve(texts.size());
  for (std::string& text : texts) parts.push_back({text.data(), text.size()});
  sd_journal_sendv(parts.data(), static_cast<int>(parts.size()));
}

}  // namespace

bool is_in_journal() {
  static const bool is_so = stream_is_of_journal();
  return is_so;
}

std::string line_priority(Priority priority) {
  return is_in_journal() ? '<' + std::to_string(static_cast<int>(priority)) + '>' : "";
}

std::string line_priority(const char* level) {
  const std::string_view name = level;
  if (name == "error") return line_priority(Priority::kError);
  if (name == "warning") return line_priority(Priority::kWarning);
  if (name == "event") return line_priority(Priority::kNotice);
  return line_priority(name == "debug" ? Priority::kDebug : Priority::kInformation);
}

void Journal::send(JournalRecord record) noexcept try {
  const unsigned long lost = courier_.take_lost();
  if (lost > 0) {
    courier_.post([lost] {
      send_now({kEventId, Priority::kWarning, std::to_string(lost) + " records lost", {}});
    });
  }
  courier_.post(
      [moved = std::make_shared<const JournalRecord>(std::move(record))] { send_now(*moved); });
} catch (...) {  // no memory
  courier_.count_lost();
}
