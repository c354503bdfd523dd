#pragma once
// Entry records built in memory for the writer, filter and time-analysis tests: the maps are
// filled directly, as the decoder would leave them.
#include <gtest/gtest.h>

#include <algorithm>

#include "analysis/entry_record.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_le.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "run/mft_entries_ctx.h"
#include "tests/test_util.h"

namespace fixture {

constexpr uint64_t k_root = 5ull | (5ull << 48);

inline void set_header(entry_record& e, uint64_t inode, uint16_t sequence, uint16_t flags) {
  testutil::record_builder b;
  b.m_sequence = sequence, b.m_flags = flags;
  take_record_header(e, b.build().data(), b.m_size, inode);
}

// Times in the order of the on-disk value: created, modified, MFT modified, accessed.
inline void add_si(entry_record& e, uint64_t created, uint64_t modified, uint64_t changed, uint64_t accessed) {
  std::vector<uint8_t> value = testutil::si_value(created, modified, changed, accessed);
  e.m_std_infos[0].assign(value.data(), value.size());
}

// A name held by record `holder` (the entry's own when -1).
inline file_name_entry& add_fn(entry_record& e, uint64_t parent, const std::wstring& name, uint8_t name_space,
                               uint64_t created, uint64_t modified, uint64_t changed, uint64_t accessed,
                               int64_t holder = -1) {
  file_name_entry fn;
  std::vector<uint8_t> value = testutil::fn_value(parent, u"", name_space, created, modified, changed, accessed);
  fn.assign(value.data(), value.size());
  fn.m_name = name, fn.m_is_dos_name = name_space == 2, fn.m_inode = holder < 0 ? e.m_inode : uint64_t(holder);
  fn.m_name_utf8 = orv::to_utf8(name);
  if (name_space != 2 && !e.m_parent_names.count(parent)) e.m_parent_names[parent] = parent_name{name, ""};
  return e.m_file_names[make_path_key(orv::ref_number(parent), fn.m_name_utf8, fn.m_inode)] = fn;
}

// The path the path walk would give the names under `parent`.
inline void set_path(entry_record& e, uint64_t parent, const std::wstring& path) {
  e.m_parent_names[parent].m_path = orv::to_utf8(path);
}

// A resident data attribute with `size` bytes of value, or a non-resident one of that real size.
inline attrib_item& add_data(entry_record& e, uint16_t id, const std::wstring& name, uint64_t size,
                             bool non_resident = false) {
  testutil::record_builder b;
  non_resident ? b.nonresident(0x80, {}, (size + 4095) & ~4095ull, size, size, u"", id)
               : b.resident(0x80, std::vector<uint8_t>(size), u"", id);
  attrib_item& item = e.m_attribs[make_attrib_key(0x80, id)] = attrib_item();
  item.m_raw_attrib = b.m_attributes[0];
  item.m_raw_attrib.resize(std::max<size_t>(item.m_raw_attrib.size(), 72));
  item.m_name = name, item.m_is_data = true, item.m_inode = e.m_inode;
  item.m_label = name.empty() ? "unnamed data" : "ads";
  return item;
}

// The lines one writer gives for `entries` under `options`, read back from its results file.
template <typename Writer>
std::vector<std::string> written(const mft_entries_ctx& options, std::initializer_list<entry_record*> entries,
                                 void (*write)(entry_record&, const scan_state&, Writer&)) {
  const std::string path = testutil::make_temp_dir("rows") + "/rows.txt";
  results_stream out;
  EXPECT_TRUE(out.open_file(path));
  Writer writer(options, out);
  for (entry_record* e : entries) write(*e, scan_state(), writer);
  out.close();
  std::vector<std::string> lines = orv::split(testutil::read_text(path), "\n", false);
  if (!lines.empty()) lines.pop_back();  // behind the last line break
  return lines;
}

}  // namespace fixture
