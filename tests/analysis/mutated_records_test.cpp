// A few hundred file records damaged at random (a fixed seed, so every run sees the same ones) go
// through the record reader, the selection and the default writer. The test asserts little: its
// worth is in the sanitizer build, where any read out of bounds, undefined behaviour or runaway
// allocation on these records fails it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>

#include "analysis/entry_record.h"
#include "analysis/orv_mft_scan.h"
#include "base/orv_le.h"
#include "base/orv_results_stream.h"
#include "ntfs/orv_filerec.h"
#include "run/mft_entries_ctx.h"
#include "tests/mft_fixture.h"

using namespace testutil;

namespace {

const uint64_t T = filetime(2021, 5, 6, 7, 8, 9);
const uint64_t ROOT = 5 | (uint64_t(5) << 48);
constexpr uint64_t k_first = 24;    // first mutated record
constexpr uint64_t k_count = 320;   // mutated records

// Undamaged records of many kinds; record 16 is an extension that the list template names.
std::vector<std::vector<uint8_t>> templates() {
  std::vector<std::vector<uint8_t>> out;
  record_builder plain = file(ROOT, u"report.txt");
  plain.resident(0x30, fn_value(ROOT, u"REPORT~1.TXT", 2, T, T, T, T));
  plain.resident(0x80, {'M', 'Z', 0x90, 0, 1, 2, 3, 4});
  plain.resident(0x80, utf16le(u"[ZoneTransfer]\r\nZoneId=3\r\n"), u"Zone.Identifier");
  out.push_back(plain.build());

  record_builder big = file(ROOT, u"big.bin");
  big.nonresident(0x80, {0x21, 0x10, 0x40, 0x01, 0x11, 0x08, 0x20, 0x01, 0x04, 0x00}, 0x19000, 0x18800, 0x18800, u"",
                  -1, 0, 0, 0x18);
  big.nonresident(0x80, {0x31, 0x02, 0x00, 0x10, 0x00, 0x00}, 0x2000, 0x2000, 0x1000, u"stream");
  out.push_back(big.build());

  record_builder dir = directory(ROOT, u"docs");
  std::vector<uint8_t> root_value(48, 0);
  orv::put_le32(root_value.data(), 0x30);
  orv::put_le32(root_value.data() + 8, 4096);
  dir.resident(0x90, root_value, u"$I30");
  dir.nonresident(0xA0, {0x11, 0x01, 0x30, 0x00}, 4096, 4096, 4096, u"$I30");
  dir.resident(0xB0, {0x01, 0, 0, 0, 0, 0, 0, 0}, u"$I30");
  out.push_back(dir.build());

  record_builder link = file(ROOT, u"link");
  std::vector<uint8_t> reparse(16 + 24, 0);
  orv::put_le32(reparse.data(), 0xA000000C);
  orv::put_le16(reparse.data() + 4, 32);
  orv::put_le16(reparse.data() + 10, 8);
  orv::put_le16(reparse.data() + 12, 8);
  orv::put_le16(reparse.data() + 14, 8);
  for (int i = 0; i < 4; ++i) reparse[20 + 2 * i] = uint8_t('a' + i);
  link.resident(0xC0, reparse);
  std::vector<uint8_t> oid(64, 0);
  for (size_t i = 0; i < oid.size(); ++i) oid[i] = uint8_t(i * 7);
  link.resident(0x40, oid);
  out.push_back(link.build());

  record_builder volume = file(ROOT, u"$Volume");
  volume.resident(0x60, utf16le(u"EVIDENCE"));
  volume.resident(0x70, {0, 0, 0, 0, 0, 0, 0, 0, 3, 1, 0, 0});
  volume.resident(0x100, {1, 2, 3, 4}, u"$TXF_DATA");
  volume.resident(0xE0, {5, 6, 7, 8});
  volume.nonresident(0x50, {0x11, 0x01, 0x22, 0x00}, 4096, 300, 300);
  out.push_back(volume.build());

  record_builder base = file(ROOT, u"listed.txt");
  std::vector<uint8_t> list;
  for (uint32_t type : {0x10u, 0x30u, 0x80u}) {
    std::vector<uint8_t> e(32, 0);
    orv::put_le32(e.data(), type);
    orv::put_le16(e.data() + 4, 32);
    e[7] = 26;
    orv::put_le64(e.data() + 16, type == 0x80 ? 16 | (uint64_t(1) << 48) : 0);
    orv::put_le16(e.data() + 24, type == 0x80 ? 1 : 0);
    list.insert(list.end(), e.begin(), e.end());
  }
  base.resident(0x20, list);
  out.push_back(base.build());

  record_builder tiny;
  tiny.m_size = 1024;
  tiny.resident(0x10, si_value(0, T, T, 0, 0x20, true));
  tiny.resident(0x30, fn_value(ROOT, std::u16string(255, u'n'), 1, T, 0, T, T));
  out.push_back(tiny.build());
  return out;
}

// Start of every attribute of a record, found before it is damaged.
std::vector<size_t> attribute_starts(const std::vector<uint8_t>& r) {
  std::vector<size_t> starts;
  size_t pos = orv::le16(r.data() + 20);
  while (pos + 16 <= r.size()) {
    uint32_t type = orv::le32(r.data() + pos), len = orv::le32(r.data() + pos + 4);
    if (type == 0xFFFFFFFF || len == 0 || pos + len > r.size()) break;
    starts.push_back(pos);
    pos += len;
  }
  return starts;
}

uint64_t interesting(std::mt19937& rng, uint64_t old) {
  static const uint64_t values[] = {0,      1,      2,      7,          8,          0x18,       0x20,
                                    0x40,   0x48,   0x7F,   0x80,       0xFF,       0x100,      0x1FF,
                                    0x200,  0x3FF,  0x400,  0x7FFF,     0x8000,     0xFFFF,     0x10000,
                                    0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, ~uint64_t(0), uint64_t(1) << 63};
  switch (rng() % 4) {
    case 0: return values[rng() % (sizeof values / sizeof values[0])];
    case 1: return old + (rng() % 17) - 8;
    case 2: return old ^ (uint64_t(1) << (rng() % 64));
    default: return (uint64_t(rng()) << 32) | rng();
  }
}

void put_width(std::vector<uint8_t>& r, size_t at, unsigned width, uint64_t value) {
  for (unsigned i = 0; i < width && at + i < r.size(); ++i) r[at + i] = uint8_t(value >> (8 * i));
}

uint64_t get_width(const std::vector<uint8_t>& r, size_t at, unsigned width) {
  uint64_t v = 0;
  for (unsigned i = 0; i < width && at + i < r.size(); ++i) v |= uint64_t(r[at + i]) << (8 * i);
  return v;
}

// One to eight damages: header fields, attribute header fields, value bytes, or plain bytes.
std::vector<uint8_t> mutate(std::vector<uint8_t> r, std::mt19937& rng) {
  static const std::pair<size_t, unsigned> header[] = {{4, 2},  {6, 2},  {16, 2}, {18, 2}, {20, 2},
                                                        {22, 2}, {24, 4}, {28, 4}, {32, 8}, {40, 2}};
  static const std::pair<size_t, unsigned> attribute[] = {
      {0, 4},  {4, 4},  {8, 1},  {9, 1},  {10, 2}, {12, 2}, {14, 2}, {16, 4}, {16, 8}, {20, 2},
      {24, 8}, {32, 2}, {34, 2}, {40, 8}, {48, 8}, {56, 8}, {64, 8}, {24 + 64, 1}, {24 + 65, 1}};
  std::vector<size_t> starts = attribute_starts(r);
  unsigned damages = 1 + rng() % 8;
  for (unsigned d = 0; d < damages; ++d) {
    unsigned kind = rng() % 10;
    if (kind < 2) {
      const auto& f = header[rng() % (sizeof header / sizeof header[0])];
      put_width(r, f.first, f.second, interesting(rng, get_width(r, f.first, f.second)));
    } else if (kind < 7 && !starts.empty()) {
      size_t at = starts[rng() % starts.size()];
      const auto& f = attribute[rng() % (sizeof attribute / sizeof attribute[0])];
      put_width(r, at + f.first, f.second, interesting(rng, get_width(r, at + f.first, f.second)));
    } else if (kind < 9 && !starts.empty()) {
      size_t at = starts[rng() % starts.size()] + 16 + rng() % 96;  // inside a value or run list
      put_width(r, at, 1, rng());
    } else {
      size_t at = rng() % r.size();
      put_width(r, at, 1 + rng() % 8, (uint64_t(rng()) << 32) | rng());
    }
  }
  return r;
}

}  // namespace

TEST(MutatedRecords, ReadSelectAndWriteSurviveRandomDamage) {
  std::vector<std::vector<uint8_t>> kinds = templates();
  mft_image image;
  add_system_records(image, k_first + k_count);
  record_builder extension;
  extension.m_base_ref = 29 | (uint64_t(1) << 48);
  extension.resident(0x10, si_value(T, T, T, T));
  extension.resident(0x80, {'e', 'x', 't'});
  image.put(16, extension);
  std::mt19937 rng(20240521);
  std::vector<std::vector<uint8_t>> damaged;
  for (uint64_t i = 0; i < k_count; ++i) {
    damaged.push_back(mutate(kinds[i % kinds.size()], rng));
    image.m_records[k_first + i] = damaged.back();
  }
  auto ctx = open_mft(image, "mutated");
  ASSERT_TRUE(ctx);
  ctx->m_include_zoneinfo = 1;
  ctx->m_include_header = 1;
  ctx->m_header_size = 32;

  size_t read = 0;
  for (uint64_t i = 0; i < k_count; ++i) {
    entry_record entry;
    if (read_entry(entry, *ctx, k_first + i, true)) ++read;
  }
  EXPECT_GT(read, k_count / 2);

  // The records as the scan sees them: fixed up, selected, written in both layouts.
  for (int csv = 0; csv < 2; ++csv) {
    ctx->m_fmt_csv = uint8_t(csv);
    ctx->m_field_separator = csv ? "," : " | ";
    ctx->m_default_writer.reset();
    results_stream out;
    ASSERT_TRUE(out.open_file("/dev/null"));
    entry_record entry;
    std::vector<uint8_t> record;
    size_t selected = 0;
    for (uint64_t i = 0; i < k_count; ++i) {
      bool bad = false;
      if (!mft_fixup_read(record, bad, *ctx, k_first + i) || record.empty()) continue;
      if (!select_record(entry, record, uint32_t(record.size()), k_first + i, *ctx)) continue;
      write_selected(entry, out, *ctx);
      ++selected;
    }
    EXPECT_GT(selected, k_count / 4);
    // The damaged bytes as they are, without fixups, straight to the selection.
    for (const std::vector<uint8_t>& r : damaged)
      if (select_record(entry, r, uint32_t(r.size()), 99, *ctx)) write_selected(entry, out, *ctx);
    out.close();
  }
  close_source(*ctx);
}
