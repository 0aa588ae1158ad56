#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

#include "reporter.h"

namespace {

using Json = nlohmann::ordered_json;

// Items measure in float: 12.3F is to be written as 12.3, not as 12.300000190734863.
double shortest(double value) {
  char text[64];
  const auto written = std::to_chars(text, text + sizeof text, static_cast<float>(value));
  double decimal = value;
  std::from_chars(text, written.ptr, decimal);
  return decimal;
}

Json number(const ItemRow& item, double value) {
  if (!std::isfinite(value)) return nullptr;
  if (item.returns == Returns::kInt) return static_cast<int>(value);
  return shortest(value);
}

const char* state_of(const Answer& answer) {
  if (answer.called_since) return "late";
  return answer.valid() ? "ok" : "failed";
}

class JsonReporter final : public Reporter {
 public:
  explicit JsonReporter(LineWriter& out) : out_(out) {}

  void answered(const Answer& answer) override {
    Json line = beginning(answer.time, answer.instance, state_of(answer));
    line["value"] = answer.valid() ? number(*answer.instance.item, answer.value) : Json();
    line["unit"] = answer.instance.unit;
    line["pid"] = answer.pid() ? Json(*answer.pid()) : Json();
    line["result"] = answer.result.result;
    line["reason"] = answer.valid() ? "" : answer.result.reason;
    if (answer.flow_id()) line["hangflowid"] = *answer.flow_id();
    if (answer.called_since) line["since"] = iso8601(*answer.called_since);
    write(line);
  }

  void went_blind(const Blindness& blindness) override {
    Json line = beginning(blindness.time, blindness.instance, "blind");
    line["value"] = nullptr;
    line["unit"] = blindness.instance.unit;
    line["pid"] = nullptr;
    line["result"] = nullptr;
    line["reason"] = "no answer before the deadline";
    line["since"] = iso8601(blindness.since);
    write(line);
  }

 private:
  static Json beginning(WallTime time, const Instance& instance, const char* state) {
    Json line;
    line["time"] = iso8601(time);
    line["instance"] = instance.name;
    line["item"] = instance.item->name;
    line["state"] = state;
    return line;
  }

  // A reason can hold any bytes, such as a name cut in the middle of a character.
  void write(const Json& line) {
    out_.write_line(line.dump(-1, ' ', false, Json::error_handler_t::replace));
  }

  LineWriter& out_;
};

}  // namespace

std::unique_ptr<Reporter> report_as_json(LineWriter& out) {
  return std::make_unique<JsonReporter>(out);
}
