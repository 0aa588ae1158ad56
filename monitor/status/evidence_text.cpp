#include "status/evidence_text.h"

#include <sstream>
#include <string_view>

#include "text/json_text.h"
#include "text/wording.h"

namespace {

// "do_exit+0x12" of "[<0>] do_exit+0x12/0x34": the functions alone, the innermost first.
std::string functions_of(const std::string& stack) {
  constexpr size_t kMost = 6;
  std::istringstream lines(stack);
  std::string all, address, function;
  for (size_t count = 0; count < kMost && lines >> address >> function; ++count) {
    all += (all.empty() ? "" : " < ") + function.substr(0, function.find('+'));
  }
  return all;
}

std::string thread_text(const Json& evidence) {
  std::string text = "thread " + in_quotes(evidence.value("name", "")) + " in state " +
                     evidence.value("state", "");
  const std::string place = text_in(evidence, "wchan").value_or("");
  if (!place.empty()) text += ", waits in " + place;
  const std::string stack = functions_of(text_in(evidence, "stack").value_or(""));
  if (!stack.empty()) text += ", kernel stack " + stack;
  const std::string suspected = text_in(evidence, "suspected").value_or("");
  return suspected.empty() ? text : text + ", suspected to be " + suspected;
}

// "process killed by signal 9 after 2.3 s" of "process 5709 killed by ...": a PID is no label.
std::string without_pid(const std::string& note) {
  constexpr std::string_view kBeginning = "process ";
  if (note.compare(0, kBeginning.size(), kBeginning) != 0) return note;
  const size_t rest = note.find_first_not_of("0123456789", kBeginning.size());
  return rest == std::string::npos ? note : std::string(kBeginning) + note.substr(rest + 1);
}

}  // namespace

std::string evidence_text(const WatchView& watch) {
  return watch.evidence.is_object() ? thread_text(watch.evidence) : without_pid(watch.note);
}
