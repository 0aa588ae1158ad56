// The state file: whatever it contains, there is a state or a reason, and a state that was read can
// be written and read again.
#include "alert/state_store.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string error;
  const auto state = read_state(FuzzInput(data, size).rest(), error);
  FUZZ_CHECK(state.has_value() == error.empty());
  if (!state) return 0;
  const std::string text = state_text(*state);
  const auto again = read_state(text, error);
  FUZZ_CHECK(again && state_text(*again) == text);
  return 0;
}
