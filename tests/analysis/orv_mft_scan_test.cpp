// The scans over $MFT: ranges, passes, damaged records, sources that lie about their size, and a
// few hundred randomly damaged records pushed through reading, selection and the default writer.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>

#include "analysis/entry_record.h"
#include "analysis/orv_mft_scan.h"
#include "analysis/orv_record_sink.h"
#include "base/orv_le.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "results/orv_default_results.h"
#include "tests/mft_fixture.h"
#include "tests/ntfs/orv_test_volume.h"

using namespace testutil;

namespace {

// Runs a full scan; gives the numbers of the records handed to the sink, and the debug log.
std::set<uint64_t> scanned(mft_entries_ctx& options, scan_state& scan, std::string* log = nullptr) {
  std::set<uint64_t> numbers;
  record_sink sink{
      [](void* to, entry_record& e, const scan_state&) { static_cast<std::set<uint64_t>*>(to)->insert(e.m_inode); },
      &numbers};
  std::string path = make_temp_dir("diags") + "/diags.log";
  scan_state_for(scan, options);
  options.m_diags_on = log && options.open_diags(path);
  full_scan(options, scan, sink);
  if (log) options.close_diags(), *log = read_text(path);
  options.m_diags_on = 0;
  return numbers;
}

}  // namespace

TEST(MftScan, RangesPassesAndDamagedRecords) {
  // System records 0 and 5, a directory 20, live files 21..29 under it, deleted files 30..33 and
  // a record without attributes at 63. 24 is "BAAD": reported, and decoded for what it holds. Two
  // records cannot be read: 25 has more than 9 update sequence words, 26 its first attribute past 72.
  mft_image image;
  add_system_records(image, 64);
  image.put(20, directory(orv::make_ref(5, 5), u"docs"));
  for (uint64_t n = 21; n < 34; ++n)
    image.put(n, file(orv::make_ref(20, 1), u"f" + std::u16string(1, char16_t(u'a' + n - 20)), 2, n < 30));
  image.put(63, record_builder());
  std::memcpy(image.m_records[24].data(), "BAAD", 4);
  image.m_records[25][6] = 10;
  image.m_records[26][20] = 73;
  auto run = open_mft(image, "range");
  ASSERT_TRUE(run);
  std::string log;
  std::set<uint64_t> rows = scanned(run->m_options, run->m_scan, &log);
  EXPECT_EQ(rows, std::set<uint64_t>(
                      {0, 5, 20, 21, 22, 23, 24, 27, 28, 29, 30, 31, 32, 33}));  // the walk goes on past the damage
  EXPECT_NE(log.find("->err: recd bad 18\n->mft entry 24 has bad filerecord\n"), std::string::npos) << log;
  EXPECT_TRUE(log.find("->err: mftfixup 19\n") != std::string::npos && log.find("->err: mftfixup 1a\n") != log.npos);
  // Each scan closes its source and the next one opens it again; the directories stay known.
  EXPECT_TRUE(!run->m_scan.m_source.is_open() && !run->m_scan.m_dir_store.empty());
  const struct { uint64_t m_start, m_range; std::set<uint64_t> m_rows; } ranges[] = {
      {21, 1, {21}}, {21, 3, {21, 22, 23}}, {30, 0, {30, 31, 32, 33}}, {60, 1000, {}}};
  for (const auto& r : ranges) {
    run->m_options.m_mft_start = r.m_start, run->m_options.m_mft_range = r.m_range;
    EXPECT_EQ(scanned(run->m_options, run->m_scan), r.m_rows) << r.m_start << "+" << r.m_range;
  }
}

TEST(MftScan, SourcesThatLieAboutTheirSize) {
  // An empty buffer is refused before its header is read.
  mft_entries_ctx options;
  options.m_progress = 0;
  scan_state scan;
  entry_record entry;
  EXPECT_FALSE(select_record(entry, {}, 1024, 7, options, scan));

  // The first record's update sequence count gives an extracted $MFT its record size: 65535
  // would mean records of 32 MiB, each read and walked whole. Over 64 KiB the size stays 1024.
  mft_image image;
  add_system_records(image, 64);
  image.put(21, file(orv::make_ref(5, 5), u"a.txt"));
  orv::put_le16(image.m_records[0].data() + 6, 0xFFFF);
  options.m_mftfile_path = orv::to_wide(image.write(make_temp_dir("bigcount")));
  ASSERT_TRUE(ensure_source_open(options, scan));
  read_entry(entry, scan, 0, false);  // the first read settles the size
  EXPECT_TRUE(read_entry(entry, scan, 21, false));
  EXPECT_EQ(entry.m_file_names.size(), 1u);
  EXPECT_EQ(scan.m_source.record_size(), 1024u);
  close_source(scan);

  // Record 0 of a volume claims a $DATA of 2^40 bytes over an empty run list: the record count
  // comes from the source, not from 2^30 numbers that all miss the $MFT. Started near 2^30, the
  // scan tells its range in the debug log without walking it.
  testvol::image img(64);
  img.boot();
  const uint64_t claim = uint64_t(1) << 40;
  img.put(img.m_mft_lcn * img.cluster(), record_builder().nonresident(0x80, {0}, claim, claim, claim).build());
  testvol::image_file file(img.m_bytes);
  options.m_mftfile_path.clear();
  options.m_image_volume_path = orv::to_wide(file.m_path);
  options.m_mft_start = (uint64_t(1) << 30) - 4;
  std::string log;
  scanned(options, scan, &log);
  EXPECT_NE(log.find("range of inodes to analyze: 1073741820 -> 256\n"), std::string::npos) << log;
}

namespace {

const uint64_t T = filetime(2021, 5, 6, 7, 8, 9);
const uint64_t ROOT = 5 | (uint64_t(5) << 48);

// Undamaged records of many kinds; the list of the sixth names extension record 16.
std::vector<record_builder> templates() {
  std::vector<uint8_t> root(48), oid(64), list(96),
      reparse = {0x0C, 0, 0, 0xA0, 32, 0, 0, 0, 0, 0, 8, 0, 8, 0, 8, 0, 0, 0, 0, 0, 'a', 0, 'b', 0, 'c', 0, 'd', 0};
  root[0] = 0x30, root[9] = 0x10, reparse.resize(40);
  for (size_t i = 0; i < oid.size(); ++i) oid[i] = uint8_t(i * 7);
  for (uint32_t i = 0; i < 3; ++i) {
    orv::put_le32(list.data() + 32 * i, i == 2 ? 0x80 : 0x10 + 0x20 * i);
    list[32 * i + 4] = 32, list[32 * i + 7] = 26, list[32 * i + 24] = i == 2;
    orv::put_le64(list.data() + 32 * i + 16, i == 2 ? orv::make_ref(16, 1) : 0);
  }
  return {
      file(ROOT, u"report.txt")
          .resident(0x30, fn_value(ROOT, u"REPORT~1.TXT", 2, T, T, T, T))
          .resident(0x80, {'M', 'Z', 0x90, 0, 1, 2, 3, 4})
          .resident(0x80, utf16le(u"[ZoneTransfer]\r\nZoneId=3\r\n"), u"Zone.Identifier"),
      file(ROOT, u"big.bin")
          .nonresident(0x80, {0x21, 0x10, 0x40, 0x01, 0x11, 0x08, 0x20, 0x01, 0x04, 0x00}, 0x19000, 0x18800, 0x18800,
                       u"", -1, 0, 0, 0x18)
          .nonresident(0x80, {0x31, 0x02, 0x00, 0x10, 0x00, 0x00}, 0x2000, 0x2000, 0x1000, u"stream"),
      directory(ROOT, u"docs")
          .resident(0x90, root, u"$I30")
          .nonresident(0xA0, {0x11, 0x01, 0x30, 0x00}, 4096, 4096, 4096, u"$I30")
          .resident(0xB0, {0x01, 0, 0, 0, 0, 0, 0, 0}, u"$I30"),
      file(ROOT, u"link").resident(0xC0, reparse).resident(0x40, oid),
      file(ROOT, u"$Volume")
          .resident(0x60, utf16le(u"EVIDENCE"))
          .resident(0x70, {0, 0, 0, 0, 0, 0, 0, 0, 3, 1, 0, 0})
          .resident(0x100, {1, 2, 3, 4}, u"$TXF_DATA")
          .resident(0xE0, {5, 6, 7, 8})
          .nonresident(0x50, {0x11, 0x01, 0x22, 0x00}, 4096, 300, 300),
      file(ROOT, u"listed.txt").resident(0x20, list),
      record_builder()
          .resident(0x10, si_value(0, T, T, 0, 0x20, true))
          .resident(0x30, fn_value(ROOT, std::u16string(255, u'n'), 1, T, 0, T, T)),
  };
}

// One to eight damages of 1, 2, 4 or 8 bytes: mostly a field of the header or of an attribute
// header, a value or a run list, sometimes anywhere; the new value is a power of two or one below
// it, near the old one, the old one with a bit flipped, or random.
std::vector<uint8_t> mutate(std::vector<uint8_t> r, std::mt19937& rng) {
  std::vector<size_t> starts = {0};  // the header, then every attribute, found before the damage
  for (size_t pos = orv::le16(r.data() + 20); pos + 16 <= r.size(); pos += orv::le32(r.data() + pos + 4)) {
    uint32_t type = orv::le32(r.data() + pos), len = orv::le32(r.data() + pos + 4);
    if (type == 0xFFFFFFFF || len == 0 || pos + len > r.size()) break;
    starts.push_back(pos);
  }
  for (unsigned d = 1 + rng() % 8; d > 0; --d) {
    const size_t width = size_t(1) << (rng() % 4);
    const size_t at = rng() % 8 == 0 ? rng() % r.size() : starts[rng() % starts.size()] + rng() % 96 / width * width;
    uint64_t v = 0;
    for (size_t i = 0; i < width && at + i < r.size(); ++i) v |= uint64_t(r[at + i]) << (8 * i);
    const unsigned how = rng() % 4;
    const uint64_t power = uint64_t(1) << (rng() % (8 * width));  // within the field
    v = how == 0   ? power - rng() % 2
        : how == 1 ? v + rng() % 17 - 8
        : how == 2 ? v ^ power
                   : uint64_t(rng()) << 32 | rng();
    for (size_t i = 0; i < width && at + i < r.size(); ++i) r[at + i] = uint8_t(v >> (8 * i));
  }
  return r;
}

}  // namespace

// The test asserts little: its worth is in the sanitizer build, where any read out of bounds,
// undefined behaviour or runaway allocation on these records fails it.
TEST(MftScan, RandomlyDamagedRecordsSurviveReadSelectAndWrite) {
  constexpr uint64_t k_first = 24, k_count = 320;
  std::vector<record_builder> kinds = templates();
  std::vector<std::vector<uint8_t>> damaged;
  mft_image image;
  add_system_records(image, k_first + k_count);
  record_builder extension;
  extension.m_base_ref = orv::make_ref(29, 1);
  image.put(16, extension.resident(0x10, si_value(T, T, T, T)).resident(0x80, {'e', 'x', 't'}));
  std::mt19937 rng(20240521);
  for (uint64_t i = 0; i < k_count; ++i) {
    damaged.push_back(mutate(kinds[i % kinds.size()].build(), rng));
    image.m_records[k_first + i] = damaged.back();
  }
  auto run = open_mft(image, "mutated", [](mft_entries_ctx& o) { o.m_include_zoneinfo = 1; });
  ASSERT_TRUE(run);
  size_t read = 0;
  entry_record entry;
  for (uint64_t i = 0; i < k_count; ++i) read += read_entry(entry, run->m_scan, k_first + i, true);
  EXPECT_GT(read, k_count / 2);

  // The records as the scan sees them (fixed up), then the damaged bytes as they are, in both layouts.
  for (int csv = 0; csv < 2; ++csv) {
    run->m_options.m_fmt_csv = uint8_t(csv);
    run->m_options.m_field_separator = csv ? "," : " | ";
    results_stream out;
    ASSERT_TRUE(out.open_file("/dev/null"));
    default_writer writer(run->m_options, out);
    full_scan(run->m_options, run->m_scan, default_rows_sink(writer));
    ASSERT_TRUE(ensure_source_open(run->m_options, run->m_scan));
    size_t selected = 0;
    for (const std::vector<uint8_t>& r : damaged)
      if (select_record(entry, r, uint32_t(r.size()), 99, run->m_options, run->m_scan)) {
        write_default_results(entry, run->m_scan, writer);
        ++selected;
      }
    EXPECT_GT(selected, k_count / 4);
    close_source(run->m_scan);
  }
}
