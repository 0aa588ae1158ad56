// Functions that read text in memory: the conversion of the command line, the items of a stat line,
// and the bounded scanner compared with the C library's.
#include <cstring>
#include <vector>

#include "common_plugin.h"
#include "fuzz_input.h"
#include "kelv_securec.h"

namespace {

void check_conversion(const std::string& text) {
  std::vector<char> bytes(text.begin(), text.end());
  bytes.resize(bytes.size() + 2, 'x');  // after the buffer: must not change
  const size_t size = text.size();
  if (size == 0) return;
  MIRT_Linux_Plugin::change_cmdlie_to_str(bytes.data(), static_cast<unsigned int>(size));
  FUZZ_CHECK(bytes[size - 1] == text[size - 1]);
  FUZZ_CHECK(bytes[size] == 'x' && bytes[size + 1] == 'x');
  for (size_t i = 0; i < size; ++i) {
    FUZZ_CHECK(bytes[i] == text[i] || (text[i] == '\0' && bytes[i] == ' '));
  }
}

void check_items(const std::string& text, int item) {
  const char* const found = MIRT_Linux_Plugin::get_items(text.c_str(), item);
  const char* expected = text.c_str();
  for (int blanks = 0; blanks < item - 1 && *expected != '\0'; ++expected) {
    blanks += *expected == ' ' ? 1 : 0;
  }
  FUZZ_CHECK(found == expected);
}

void check_scanner(const char* text) {
  unsigned long long ours[3] = {7, 7, 7}, theirs[3] = {7, 7, 7};
  sscanf_s(text, "%*s %llu %llu %llu", &ours[0], &ours[1], &ours[2]);
  // NOLINTNEXTLINE(cert-err34-c): the comparison includes errors
  sscanf(text, "%*s %llu %llu %llu", &theirs[0], &theirs[1], &theirs[2]);
  FUZZ_CHECK(memcmp(ours, theirs, sizeof ours) == 0);

  int our_number = 7, their_number = 7;
  sscanf_s(text, "%*s %d", &our_number);
  sscanf(text, "%*s %d", &their_number);  // NOLINT(cert-err34-c)
  FUZZ_CHECK(our_number == their_number);

  char our_word[8] = "before", their_word[8] = "before", our_letter = '-', their_letter = '-';
  sscanf_s(text, "%*s %s", our_word, 8U);
  sscanf(text, "%*s %7s", their_word);
  sscanf_s(text, "%*s\t%c", &our_letter, 1U);
  sscanf(text, "%*s\t%c", &their_letter);
  FUZZ_CHECK(strcmp(our_word, their_word) == 0);
  FUZZ_CHECK(our_letter == their_letter);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const int item = input.byte() % 24;
  const std::string text = input.rest();
  check_conversion(text);
  check_items(text, item);
  check_scanner(text.c_str());
  return 0;
}
