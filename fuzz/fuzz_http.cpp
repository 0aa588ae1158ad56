// HTTP requests: each has one end, however its bytes arrive, and one well-formed response. Only the
// owner's clients can change silences.
#include <poll.h>

#include <atomic>
#include <thread>

#include "fuzz_input.h"
#include "status/http_exchange.h"
#include "status/status_server.h"

namespace {

std::shared_ptr<const Snapshot> some_snapshot() {
  auto snapshot = std::make_shared<Snapshot>();
  auto watch = std::make_shared<WatchView>();
  watch->name = "a";
  watch->item = find_item("GetSysCPU");
  watch->history.add({WallTime(std::chrono::seconds(1)), 12.5, State::kOk});
  watch->alarms.push_back({"1", "above 90", Severity::kWarning, {}, false});
  snapshot->watches.push_back(std::move(watch));
  return snapshot;
}

// A monitor with one watch, for the interface.
class Scheduler {
 public:
  Scheduler() : thread_([this] { serve(); }) {}
  Scheduler& operator=(Scheduler&&) = delete;  // neither copied nor moved
  ~Scheduler() {
    ending_ = true;
    wake_.set();
    thread_.join();
  }

  std::string respond(std::string_view head, std::string_view body, Audience audience) {
    routes_.begin_round();
    return exchange_.respond(head, body,
                             [&](const httplib::Request& request, httplib::Response& response) {
                               routes_.answer(request, response, audience);
                             });
  }
  unsigned changes() const { return changes_; }

 private:
  void serve() {
    while (!ending_) {
      pollfd waiting{wake_.fd(), POLLIN, 0};
      poll(&waiting, 1, -1);
      wake_.clear();
      if (publisher_.wanted()) publisher_.publish(snapshot_);
      mailbox_.run_all();
    }
  }

  const std::shared_ptr<const Snapshot> snapshot_ = some_snapshot();
  const Wake wake_;
  Publisher publisher_{wake_};
  Mailbox mailbox_{wake_};
  Silences silences_;
  std::atomic<unsigned> changes_{0};
  StatusRoutes routes_{publisher_, mailbox_, silences_, [this] { ++changes_; }, true};
  HttpExchange exchange_;
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

// The end of a request does not depend on what has arrived after it, and is not found before it.
void check_extent(const std::string& arrived, const RequestExtent& extent) {
  const size_t size = extent.head + extent.body;
  FUZZ_CHECK(extent.head >= 2 && extent.head <= kMostHeadBytes && extent.body <= kMostBodyBytes);
  FUZZ_CHECK(size <= arrived.size());
  const auto arrived_of = [&](size_t length) {
    return extent_of(arrived.substr(0, length)).arrived;
  };
  FUZZ_CHECK(arrived_of(size) == RequestExtent::Arrived::kComplete);
  for (const size_t shorter : {size - 1, extent.head - 1, extent.head / 2}) {
    if (shorter < size) FUZZ_CHECK(arrived_of(shorter) == RequestExtent::Arrived::kIncomplete);
  }
}

// "HTTP/1.1 STATUS ...", the fields, an empty line, and as much as Content-Length says.
void check_response(const std::string& response, bool may_lack_body) {
  FUZZ_CHECK(response.rfind("HTTP/1.1 ", 0) == 0);
  const size_t end = response.find("\r\n\r\n");
  FUZZ_CHECK(end != std::string::npos);
  const std::string head = response.substr(0, end), body = response.substr(end + 4);
  const size_t length = head.find("Content-Length: ");
  if (length == std::string::npos || (may_lack_body && body.empty())) return;
  FUZZ_CHECK(strtoul(head.c_str() + length + 16, nullptr, 10) == body.size());
  const bool is_json = head.find("Content-Type: application/json") != std::string::npos;
  FUZZ_CHECK(!is_json || Json::accept(body));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Scheduler scheduler;
  FuzzInput input(data, size);
  const auto audience = static_cast<Audience>(input.byte() % 3);
  const std::string arrived = input.rest();
  const RequestExtent extent = extent_of(arrived);
  if (extent.arrived != RequestExtent::Arrived::kComplete) return 0;
  check_extent(arrived, extent);
  const unsigned changes = scheduler.changes();
  const std::string_view request(arrived);
  const std::string response = scheduler.respond(
      request.substr(0, extent.head), request.substr(extent.head, extent.body), audience);
  FUZZ_CHECK(audience == Audience::kOwner || scheduler.changes() == changes);
  check_response(response, request.find("HEAD") < extent.head);
  return 0;
}
