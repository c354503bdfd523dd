// Filter records as the option layer builds them, and "?" wildcards.
#include <gtest/gtest.h>

#include "analysis/orv_filter_types.h"

TEST(FilterRecord, StreamPartsAndWildcards) {
  // Names with a stream part as the walk options give them: tests/run/orv_walk_options_test.cpp.
  filter_record stream(filter_inode, L":ads", 0x20);
  EXPECT_TRUE(stream.m_by_stream && stream.m_text.empty());
  filter_record bare(filter_inode, L"", 7);  // no text: no stream name and no flag of its own
  EXPECT_TRUE(bare.m_stream_names.empty() && !bare.m_whole_entry && !bare.m_by_stream);
  // A drive mark behind one letter belongs to the path; for inode records a ":" before a
  // backslash or "//" does too, wherever it stands.
  for (const filter_record& r :
       {filter_record(filter_full_name, L"c:\\windows\\notepad.exe"), filter_record(filter_full_name, L"c:/windows"),
        filter_record(filter_directory_inode, L"[root]\\x:\\y", 5), filter_record(filter_inode, L"[root]\\x://y", 5)})
    EXPECT_TRUE(r.m_whole_entry && !r.m_by_stream) << r.m_text;

  // "?" needs a character where it stands, at the ends too; "*" is a literal.
  const struct { const wchar_t *m_pattern, *m_name; bool m_match; } cases[] = {
      {L"a?c", L"xxabcxx", true}, {L"a?c", L"ac", false},   {L"??ab?", L"12ab3", true}, {L"??ab?", L"12ab", false},
      {L"??ab?", L"1ab3", false}, {L"???", L"ab", false},   {L"*.txt", L"x*.txt", true}};
  for (const auto& c : cases)
    EXPECT_EQ(wildcard_match(compile_wildcard(c.m_pattern), c.m_name), c.m_match) << c.m_pattern << " ~ " << c.m_name;
}
