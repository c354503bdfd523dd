#pragma once
// Entry records built in memory for the writer and filter tests: the maps are filled directly,
// as the decoder would leave them.
#include <memory>
#include <string>

#include "analysis/entry_record.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "base/orv_results_stream.h"
#include "run/mft_entries_ctx.h"
#include "tests/test_util.h"

namespace fixture {

constexpr uint64_t k_root = 5ull | (5ull << 48);

inline uint64_t ref(uint64_t number, uint16_t sequence) { return orv::make_ref(number, sequence); }

inline void set_header(entry_record& e, uint64_t inode, uint16_t sequence, uint16_t flags, uint16_t links = 1) {
  e.m_inode = inode;
  e.m_seq_num = sequence;
  orv::put_le16(e.m_header.m_bytes.data() + 16, sequence);
  orv::put_le16(e.m_header.m_bytes.data() + 22, flags);
  orv::put_le16(e.m_header.m_bytes.data() + 18, links);
}

// Times in the order of the on-disk value: created, modified, MFT modified, accessed.
inline void add_si(entry_record& e, uint64_t created, uint64_t modified, uint64_t changed, uint64_t accessed,
                   uint16_t id = 0) {
  si_entry si;
  orv::put_le64(si.m_value.data(), created);
  orv::put_le64(si.m_value.data() + 8, modified);
  orv::put_le64(si.m_value.data() + 16, changed);
  orv::put_le64(si.m_value.data() + 24, accessed);
  e.m_std_infos[id] = si;
}

inline file_name_entry& add_fn(entry_record& e, uint64_t parent, const std::wstring& name, uint8_t name_space,
                               uint64_t created, uint64_t modified, uint64_t changed, uint64_t accessed,
                               int64_t holder = -1) {
  file_name_entry fn;
  orv::put_le64(fn.m_raw.data(), parent);
  orv::put_le64(fn.m_raw.data() + 8, created);
  orv::put_le64(fn.m_raw.data() + 16, modified);
  orv::put_le64(fn.m_raw.data() + 24, changed);
  orv::put_le64(fn.m_raw.data() + 32, accessed);
  fn.m_raw[64] = uint8_t(name.size());
  fn.m_raw[65] = name_space;
  fn.m_name = name;
  fn.m_is_dos_name = name_space == 2;
  fn.m_inode = holder < 0 ? e.m_inode : uint64_t(holder);
  fn.m_key = make_path_key(orv::ref_number(parent), orv::to_utf8(name), fn.m_inode);
  if (name_space != 2 && !e.m_parent_names.count(parent)) {
    parent_name& pn = e.m_parent_names[parent];
    pn.m_name = name;
    pn.m_key = fn.m_key;
  }
  return e.m_file_names[fn.m_key] = fn;
}

// A resident data attribute with `size` bytes of value, or a non-resident one of that real size.
inline attrib_item& add_data(entry_record& e, uint16_t id, const std::wstring& name, uint64_t size,
                             bool non_resident = false) {
  attrib_item item;
  item.m_name = name;
  item.m_is_data = true;
  item.m_is_ads = !name.empty();
  item.m_label = name.empty() ? "unnamed data" : "ads";
  item.m_raw_attrib.assign(non_resident ? 80 : 72, 0);
  orv::put_le32(item.m_raw_attrib.data(), 0x80);
  orv::put_le32(item.m_raw_attrib.data() + 4, uint32_t(item.m_raw_attrib.size()));
  item.m_raw_attrib[8] = non_resident ? 1 : 0;
  orv::put_le16(item.m_raw_attrib.data() + 14, id);
  if (non_resident) {
    orv::put_le64(item.m_raw_attrib.data() + 40, (size + 4095) & ~4095ull);
    orv::put_le64(item.m_raw_attrib.data() + 48, size);
    orv::put_le64(item.m_raw_attrib.data() + 56, size);
  } else {
    orv::put_le32(item.m_raw_attrib.data() + 16, uint32_t(size));
    orv::put_le16(item.m_raw_attrib.data() + 20, 24);
  }
  item.m_inode = e.m_inode;
  return e.m_attribs[make_attrib_key(0x80, id)] = item;
}

// Writes through a real results stream into a temporary file and gives back the text.
struct captured_output {
  std::string m_dir = testutil::make_temp_dir("rows");
  std::string m_path = m_dir + "/out.txt";
  results_stream m_stream;
  captured_output() { m_stream.open_file(m_path); }
  std::string text() {
    m_stream.flush();
    return testutil::read_text(m_path);
  }
};

}  // namespace fixture
