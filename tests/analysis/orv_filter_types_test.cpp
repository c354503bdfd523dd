// Filter records and "?" wildcards.
#include <gtest/gtest.h>

#include "analysis/orv_filter_types.h"

namespace {

TEST(FilterRecord, StreamPartsAndPaths) {
  filter_record named(filter_partial_name, L"temp:Zone.Identifier");
  EXPECT_EQ(named.m_text, L"temp");
  EXPECT_EQ(named.m_stream_names, std::set<std::wstring>{L"zone.identifier"});
  EXPECT_TRUE(named.m_has_stream && named.m_by_stream);
  EXPECT_FALSE(named.m_whole_entry);
  EXPECT_TRUE(named.m_partial && named.m_partial_end);

  // A drive mark behind one letter belongs to the path.
  for (const wchar_t* path : {L"c:\\windows\\notepad.exe", L"c:/windows"}) {
    filter_record r(filter_full_name, path);
    EXPECT_EQ(r.m_text, path);
    EXPECT_TRUE(r.m_whole_entry);
    EXPECT_FALSE(r.m_has_stream);
  }
  // For inode records a ":" before a backslash or "//" is a path as well, wherever it stands.
  filter_record dir(filter_directory_inode, L"[root]\\x:\\y", 5);
  EXPECT_TRUE(dir.m_whole_entry);
  EXPECT_EQ(dir.m_text, L"[root]\\x:\\y");
  filter_record stream(filter_inode, L":ads", 0x20);
  EXPECT_TRUE(stream.m_by_stream);
  EXPECT_TRUE(stream.m_text.empty());
  EXPECT_EQ(stream.m_file_text, "inode(32:ads)");

  // An inode record without text takes no stream name and no flag of its own.
  filter_record bare(filter_inode, L"", 7);
  EXPECT_TRUE(bare.m_stream_names.empty());
  EXPECT_FALSE(bare.m_whole_entry);
}

TEST(FilterRecord, Descriptions) {
  // A relative path gets ".\\" in front of its directory; a rooted one or a drive does not.
  filter_record rel(filter_path_name, L"users\\bob\\a.doc");
  EXPECT_EQ(rel.m_dir_text, ".\\users\\bob");
  EXPECT_EQ(rel.m_file_text, "a.doc");
  EXPECT_EQ(filter_record(filter_path_name, L"\\users\\a.doc").m_dir_text, "\\users");
  EXPECT_EQ(filter_record(filter_path_name, L"c:\\a.doc").m_dir_text, "c:");

  filter_record file(filter_inode, L"\\windows\\x.dll", 9);
  EXPECT_EQ(file.m_dir_text, "path related to inode");
  EXPECT_EQ(file.m_file_text, "inode(9)");
  EXPECT_EQ(file.m_description, "Specific file (\\windows\\x.dll)");

  EXPECT_EQ(filter_record(filter_directory_inode, L"[root]", 5).m_description, "Any file in directory ([root])");
  EXPECT_EQ(filter_record(filter_directory_inode, L":s", 5).m_description, "Specific named file");
  EXPECT_EQ(filter_record(filter_directory_inode, L"", 5).m_description, "Any file in directory");

  filter_record sig(filter_signature, L"hive");
  EXPECT_EQ(sig.m_file_text, "All Registry Hives");
  EXPECT_EQ(sig.m_description, "Any file with this signature [regf]");
  EXPECT_EQ(filter_record(filter_signature, L"evt").m_description,
            "Any file with this signature [ElfFile or 30 00 00 00 4c ..]");

  // Bit 0x8000 of the type is not part of it.
  EXPECT_EQ(filter_record(0x8000 | filter_extension, L"log").m_file_text, "*.log");
  EXPECT_EQ(filter_record(filter_partial_name, L"tmp").m_file_text, "*tmp*");
}

TEST(FilterRecord, SetOrderByTextThenType) {
  std::set<filter_record> set = {filter_record(filter_full_name, L"b"), filter_record(filter_partial_name, L"b"),
                                 filter_record(filter_full_name, L"a"), filter_record(filter_full_name, L"b")};
  ASSERT_EQ(set.size(), 3u);
  auto it = set.begin();
  EXPECT_EQ(it->m_text, L"a");
  ++it;
  EXPECT_EQ(it->m_type, uint32_t(filter_partial_name));
}

TEST(Wildcard, QuestionMarksOnly) {
  wildcard_pattern abc = compile_wildcard(L"a?c");
  EXPECT_TRUE(wildcard_match(abc, L"abc"));
  EXPECT_TRUE(wildcard_match(abc, L"xxabcxx"));
  EXPECT_FALSE(wildcard_match(abc, L"ac"));
  EXPECT_FALSE(wildcard_match(abc, L"abd"));

  // "*" is a literal character.
  wildcard_pattern star = compile_wildcard(L"*.txt");
  EXPECT_FALSE(wildcard_match(star, L"a.txt"));
  EXPECT_TRUE(wildcard_match(star, L"x*.txt"));

  // Leading and trailing "?" need characters there.
  wildcard_pattern ends = compile_wildcard(L"??ab?");
  EXPECT_TRUE(wildcard_match(ends, L"12ab3"));
  EXPECT_FALSE(wildcard_match(ends, L"12ab"));
  EXPECT_FALSE(wildcard_match(ends, L"1ab3"));

  EXPECT_TRUE(wildcard_match(compile_wildcard(L"???"), L"abc"));
  EXPECT_FALSE(wildcard_match(compile_wildcard(L"???"), L"ab"));
}

}  // namespace
