// read_file() compared with the C library's line reader, and next_with() compared with next().
#include <cstring>

#include "common_plugin.h"
#include "fuzz_input.h"
#include "proc_file.h"

namespace {

constexpr unsigned int kMaxSize = 300;

int expected(const std::string& path, char* buf, unsigned int size, int line) {
  FILE* const file = fopen(path.c_str(), "re");
  FUZZ_CHECK(file != nullptr);
  bool found = true;
  for (int i = 0; i < line && found; ++i) {
    memset(buf, 0, size);
    found = fgets(buf, static_cast<int>(size) - 1, file) != nullptr;
  }
  fclose(file);
  return found ? 0 : -1;
}

// Compares next_with() with a loop over next().
void check_keyed(const std::string& path, size_t limit) {
  LineReader by_key(path.c_str()), by_line(path.c_str());
  char found[kMaxSize], line[kMaxSize];
  for (bool more = true; more;) {
    while ((more = by_line.next(line, limit)) && strstr(line, "Key:") == nullptr) {
    }
    FUZZ_CHECK(by_key.next_with("Key:", found, limit) == more);
    FUZZ_CHECK(!more || strcmp(found, line) == 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const unsigned int buf_size = 3 + input.byte();
  const int line = input.byte() % 8;
  const MemoryFile file(input.rest());
  char ours[kMaxSize], theirs[kMaxSize];
  memset(ours, 'x', sizeof ours);
  memset(theirs, 'x', sizeof theirs);
  FUZZ_CHECK(MIRT_Linux_Plugin::read_file(file.path().c_str(), ours, buf_size, line) ==
             expected(file.path(), theirs, buf_size, line));
  FUZZ_CHECK(memcmp(ours, theirs, sizeof ours) == 0);
  check_keyed(file.path(), buf_size);
  return 0;
}
