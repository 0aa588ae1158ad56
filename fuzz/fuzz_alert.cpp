// Lines and alerts in JSON: whatever an item answers, and whatever the names of processes are, each
// is one line of valid JSON, and the variables of a command have no NUL.
#include <cstring>
#include <vector>

#include "fuzz_input.h"
#include "output/reporter.h"
#include "run/alarm_desk.h"

namespace {

std::vector<AlertMessage> g_messages;
std::vector<std::string> g_lines;

void check_json(const std::string& text) {
  FUZZ_CHECK(text.find('\n') == std::string::npos);
  const Json json = Json::parse(text, nullptr, false);
  FUZZ_CHECK(json.is_object() && json.contains("time"));
}

AlarmRule rule_of(FuzzInput& input) {
  AlarmRule rule;
  rule.condition = static_cast<AlarmRule::Condition>(input.byte() % 4);
  rule.bound = input.byte();
  for (const State state : kAllStates) {
    if (input.byte() % 2 == 0) rule.states.push_back(state);
  }
  rule.severity = static_cast<Severity>(input.byte() % 2);
  rule.alerts = {"a"};
  return rule;
}

FI_RESULT_S result_of(FuzzInput& input) {
  FI_RESULT_S result{};
  result.result = input.byte() % 2 == 0 ? 0 : -1;
  result.pid = input.byte() - 1;
  result.hangflowid = input.byte();
  input.text().copy(result.reason, sizeof result.reason - 1);
  return result;
}

// As an item of this type returns it.
double value_of(FuzzInput& input, Returns returns) {
  const uint8_t bytes[4] = {input.byte(), input.byte(), input.byte(), input.byte()};
  int32_t whole;
  float real;
  memcpy(&whole, bytes, sizeof whole);
  memcpy(&real, bytes, sizeof real);
  return returns == Returns::kInt ? whole : static_cast<double>(real);
}

ThreadEvidence evidence_of(FuzzInput& input) {
  ThreadEvidence evidence;
  evidence.tid = input.byte();
  for (std::string* const text :
       {&evidence.name, &evidence.state, &evidence.wchan, &evidence.stack, &evidence.suspected}) {
    *text = input.text();
  }
  return evidence;
}

}  // namespace

// Takes the place of the delivery.
AlertSender::AlertSender(const std::vector<Alert>& /*alerts*/, const AlertLimits& limits)
    : limits_(limits) {}
AlertSender::~AlertSender() = default;
void AlertSender::send(const std::string& /*alert*/, AlertMessage message) noexcept {
  g_messages.push_back(std::move(message));
}

// Takes the place of the output.
LineQueue::LineQueue(int fd, LossText loss_text, const Wake& wake)
    : fd_(fd), loss_text_(loss_text), wake_owner_(wake) {}
LineQueue::~LineQueue() = default;
void LineQueue::count_lost(Weight /*weight*/) noexcept {}
void LineQueue::push(std::string line, Weight /*weight*/) noexcept {
  g_lines.push_back(std::move(line));
}
bool LineQueue::closed() const {
  return false;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  g_lines.clear();
  g_messages.clear();
  FuzzInput input(data, size);
  Instance instance;
  instance.item = &all_items()[input.byte() % all_items().size()];
  instance.alarms = {rule_of(input)};
  const FI_RESULT_S result = result_of(input);
  const double value = value_of(input, instance.item->returns);
  const auto state = static_cast<State>(input.byte() % 4);
  const std::optional<ThreadOwner> owner = ThreadOwner{input.byte(), input.text()};
  const std::optional<ThreadEvidence> evidence = evidence_of(input);
  instance.name = input.text();
  instance.unit = input.text();
  Answer answer{instance,
                value,
                result,
                WallTime(std::chrono::seconds(input.byte())),
                {},
                owner,
                evidence,
                1.5,
                {state, input.text()}};
  answer.note = input.text();

  const Wake wake;
  LineQueue lines(1, nullptr, wake);
  const auto reporter = report_as_json(lines);
  AlertSender sender({});
  Silences silences;
  AlarmDesk desk(*reporter, sender, silences, "p");
  const Surroundings around;
  Slot slot(instance, Item(nullptr, *instance.item), around, std::chrono::seconds(1));
  desk.settle(slot, answer, {input.text(), input.text()}, Slot::Clock::now());
  desk.leave(slot);
  desk.send_all();
  for (const std::string& line : g_lines) check_json(line);
  for (const AlertMessage& message : g_messages) {
    check_json(message.json);
    for (const auto& [name, text] : message.variables) {
      FUZZ_CHECK(name.rfind("MIRT_", 0) == 0 && text.find('\0') == std::string::npos);
    }
  }
  return 0;
}
