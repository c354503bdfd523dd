#include "results/orv_extract.h"

#include <gtest/gtest.h>

TEST(CopyNames, VolumeNamesStayOnePathComponent) {
  struct name_case { std::wstring name, want; } const cases[] = {
      {L"report.doc", L"report.doc"},
      {L"a/b.txt", L"a_b.txt"},
      {std::wstring(L"nul\0in", 6), L"nul_in"},
      {L"tab\tand\x7f", L"tab_and_"},
      {L"..", L"__"},
      {L".", L"_"},
      {L"...x", L"...x"},
      {L"caf\u00e9\\x", L"caf\u00e9\\x"},  // a back-slash is an ordinary character here
  };
  for (const name_case& c : cases) EXPECT_EQ(path_component(c.name), c.want);
}
