#include "results/orv_header_text.h"

#include <gtest/gtest.h>

TEST(HeaderText, BytesAndStrings) {
  struct header_case { std::string bytes; bool strings; const char* want; } const cases[] = {
      {std::string("MZ\x90\x00", 4), false, "4d 5a 90 00"},
      {"", false, ""},
      // Runs of five or more printable characters, "; " between them.
      {std::string("\x01hello\x02worlds!\x7f" "abcd\x00" "SQLite format 3", 35), true,
       "hello; worlds!; SQLite format 3"},
      {"abcd", true, ""},                                 // shorter than the minimum
      {std::string("\x01\x02\x03\x04\x05\x06", 6), true, ""},  // no printable run
  };
  for (const header_case& c : cases) {
    std::string out;
    format_header(out, reinterpret_cast<const uint8_t*>(c.bytes.data()), c.bytes.size(), c.strings, 5, "; ");
    EXPECT_EQ(out, c.want) << c.want;
  }
}
