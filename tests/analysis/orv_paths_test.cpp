// The path walk from parent references up to the root.
#include <gtest/gtest.h>

#include "analysis/orv_mft_scan.h"
#include "analysis/orv_paths.h"
#include "analysis/orv_record_sink.h"
#include "tests/mft_fixture.h"
#include "tests/results/entry_fixture.h"

using namespace testutil;

namespace {

uint64_t ref(uint64_t number, uint16_t seq) { return number | (uint64_t(seq) << 48); }

// Directories under the root, with a file, a cycle, a deleted directory whose sequence number went
// up to 6, one reused at sequence 9, one whose parent 900 cannot be read, one with a DOS name only.
std::unique_ptr<mft_run> tree() {
  const struct { uint64_t m_number, m_parent; const char16_t* m_name; uint16_t m_seq; } dirs[] = {
      {30, ref(5, 5), u"Users", 1}, {31, ref(30, 1), u"name", 1}, {32, ref(32, 1), u"self", 1},
      {33, ref(34, 1), u"A", 1},    {34, ref(33, 1), u"B", 1},    {35, ref(31, 1), u"gone", 6},
      {37, ref(5, 5), u"reused", 9}, {38, ref(900, 1), u"deep", 1}};
  mft_image image;
  add_system_records(image, 64);
  for (const auto& d : dirs) image.put(d.m_number, directory(d.m_parent, d.m_name, d.m_seq, d.m_number != 35));
  image.put(36, file(ref(5, 5), u"plain.txt"));
  record_builder dos_only;
  dos_only.m_flags = 3;
  image.put(39, dos_only.resident(0x30, fn_value(ref(5, 5), u"DOSDIR~1", 2, 1, 1, 1, 1)));
  image.put(40,
            directory(ref(5, 5), u"Long Directory").resident(0x30, fn_value(ref(5, 5), u"LONGDI~1", 2, 1, 1, 1, 1)));
  return open_mft(image, "paths");
}

// The path of a parent reference, " (broken)" behind it when the walk did not reach the root
// through sound links.
std::wstring walk(mft_run& run, uint64_t parent) {
  std::wstring path;
  uint16_t seq = 0;
  uint32_t flags = 0;
  return resolve_parent_path(path, seq, flags, parent, run.m_scan) ? path : path + L" (broken)";
}

}  // namespace

TEST(PathWalk, ChainsSoundAndBroken) {
  const std::pair<uint64_t, const wchar_t*> cases[] = {
      {ref(31, 1), L"[root]\\Users\\name\\"},
      {ref(5, 77), L"[root]\\"},  // the root's sequence number is not compared
      {UINT64_MAX, L" (broken)"},
      {ref(40, 1), L"[root]\\Long Directory\\"},  // the long name over the DOS name
      {ref(39, 1), L"[root]\\DOSDIR~1\\"},        // a DOS name alone is shown
      {ref(32, 1), L"[root]\\<path corrupted>\\self\\ (broken)"},
      {ref(33, 1), L"[root]\\<path corrupted>\\B\\A\\ (broken)"},
      {ref(36, 1), L"[root]\\<path corrupted>\\ (broken)"},  // the parent became a file
      {ref(37, 3), L"[root]\\<path corrupted>\\ (broken)"},  // the parent was reused
      {ref(38, 1), L"[root]\\deep\\ (broken)"},              // an unreadable parent ends it unmarked
      // Deleting raised the header's sequence number from 5 to 6: a child holding 5 still matches.
      {ref(35, 5), L"[root]\\Users\\name\\gone\\"},
      {ref(35, 6), L"[root]\\<path corrupted>\\ (broken)"},
      {ref(31, 0), L"[root]\\Users\\name\\"},  // sequence 0 accepts any record
  };
  for (const auto& c : cases) {
    auto run = tree();
    ASSERT_TRUE(run);
    EXPECT_EQ(walk(*run, c.first), c.second) << std::hex << c.first;
  }
  // Each directory is read once, then known by its whole reference, completed where it had 0.
  auto run = tree();
  walk(*run, ref(31, 0));
  EXPECT_EQ(run->m_scan.m_dir_store.size(), 2u);
  EXPECT_TRUE(run->m_scan.m_dir_store.count(ref(31, 1)));
}

TEST(PathWalk, DeepChainEndsAsCorruptedPastTheLongestPath) {
  // 200 nested directories with 200-character names: no NTFS path is that long (32767 UTF-16
  // units at most). Every row below such a chain printed the whole chain and the remembered
  // paths grew with the square of the depth.
  const uint64_t depth = 200;
  mft_image image;
  add_system_records(image, depth + 24);
  uint64_t parent = ref(5, 5);
  std::u16string name = u"d" + std::u16string(199, u'x');
  for (uint64_t n = 16; n < 16 + depth; ++n) {
    name[1] = char16_t(u'a' + n % 26);
    image.put(n, directory(parent, name));
    parent = ref(n, 1);
  }
  auto run = open_mft(image, "deep");
  ASSERT_TRUE(run);
  std::wstring path = walk(*run, parent);
  EXPECT_LE(path.size(), 32767u + 400u);
  EXPECT_EQ(path.compare(0, 24, L"[root]\\<path corrupted>\\"), 0);
  EXPECT_EQ(path.substr(path.size() - 210), std::wstring(name.begin(), name.end()) + L"\\ (broken)");

  full_scan(run->m_options, run->m_scan, record_sink());
  size_t remembered = 0;
  for (const auto& kv : run->m_scan.m_sound_paths) remembered += kv.second.size();
  EXPECT_LT(remembered, 200000u);
}

TEST(PathWalk, SelectNamePrefersLongNamesOfTheRecord) {
  entry_record e;
  e.m_inode = 7;
  EXPECT_EQ(select_name(e, 7), L"");
  fixture::add_fn(e, fixture::k_root, L"ONLYDOS", 2, 1, 1, 1, 1);  // alone it is taken: the walk above
  fixture::add_fn(e, fixture::k_root, L"from extension", 1, 1, 1, 1, 1, 9);
  fixture::add_fn(e, fixture::k_root, L"own long", 3, 1, 1, 1, 1);
  EXPECT_EQ(select_name(e, 7) + L"|" + select_name(e, 8) + L"|" + select_name(e, UINT64_MAX),
            L"own long|from extension|from extension");
}
