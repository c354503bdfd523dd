// The attributes of one record as rows, taken from its categorised entry.
#include "analysis/orv_attrib_rows.h"

#include <algorithm>

#include "analysis/entry_record.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_string.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_stream.h"

namespace {

// The summary row: (update sequence count - 1) x 512 as the size, and the record's state in
// bits: 1 not in use, 2 directory, 4 always, the low 4 bits of the link count from bit 3 on,
// 0x80 an extension of another record.
attrib_row summary_row(const entry_record& entry) {
  attrib_row row;
  row.m_type = ROW_RECORD_SUMMARY;
  row.m_inode = entry.m_inode;
  row.m_sequence = entry.m_seq_num;
  uint16_t count = entry.m_header.usa_count();
  row.m_record_size = count ? uint32_t(count - 1) * 512 : 0;
  row.m_base_ref = entry.m_base_ref;
  uint32_t bits = 0x4 | (uint32_t(entry.link_count() & 0xF) << 3);
  if (!entry.in_use()) bits |= 0x1;
  if (entry.is_directory()) bits |= 0x2;
  if (entry.m_base_ref) bits |= 0x80;
  row.m_record_bits = bits;
  return row;
}

}  // namespace

attrib_row row_of_item(const entry_record& entry, const attrib_item& item, uint64_t key, uint32_t record_size) {
  attrib_row row;
  row.m_type = item.type();
  row.m_id = item.id();
  row.m_flags = item.flags();
  row.m_key = key;
  row.m_non_resident = item.non_resident();
  row.m_name = orv::to_utf8(item.m_name);
  if (row.m_non_resident) {
    row.m_inode = entry.m_base_ref ? orv::ref_number(entry.m_base_ref) : entry.m_inode;
    row.m_allocated_size = item.allocated_size();
    row.m_real_size = item.real_size();
    row.m_valid_size = item.valid_size();
    row.m_compressed_size = item.compressed_size();
    row.m_compression_unit = uint8_t(item.compression_unit());
    row.m_runs = item.m_runs;
    return row;
  }
  row.m_value_length = item.value_length();
  if (row.m_value_length < record_size) {
    if (!item.m_value.empty()) {
      row.m_value = item.m_value;
    } else {
      // Scans keep a resident value inside the attribute's bytes only.
      orv::byte_span value = attrib_view(orv::byte_span(item.m_raw_attrib.data(), item.m_raw_attrib.size())).value();
      row.m_value.assign(value.m_data, value.m_data + value.m_size);
    }
  }
  if (row.m_type == 0x60 && item.m_name.empty() && !item.m_value.empty())
    orv::utf16_to_utf8(item.m_value.data(), item.m_value.size(), row.m_text);
  if (row.m_type == 0x40 && item.m_value.size() == 16) row.m_text = orv::guid_text(item.m_value.data());
  return row;
}

bool list_attribs(CNtfs& volume, uint64_t inode, std::vector<attrib_row>& rows, bool with_header_row) {
  // A scan of its own on the lent volume, with the debug log off.
  scan_state scan;
  scan.m_source.lend_volume(&volume);
  entry_record entry;
  if (!read_entry(entry, scan, inode, true) || entry.m_raw_record.empty()) return false;

  if (with_header_row) {
    rows.push_back(summary_row(entry));
    for (const auto& kv : entry.m_std_infos) {
      attrib_row row;
      row.m_type = 0x10;
      row.m_id = kv.first;
      row.m_key = make_attrib_key(0x10, kv.first);
      row.m_inode = entry.m_inode;
      const si_entry& si = kv.second;
      row.m_times[0] = si.created();
      row.m_times[1] = si.modified();
      row.m_times[2] = si.mft_modified();
      row.m_times[3] = si.accessed();
      row.m_file_flags = si.flags();
      rows.push_back(row);
    }
    for (const auto& kv : entry.m_file_names) {
      attrib_row row;
      const file_name_entry& fn = kv.second;
      row.m_type = 0x30;
      row.m_id = fn.m_attrib_id;
      row.m_key = make_attrib_key(0x30, fn.m_attrib_id);
      row.m_inode = entry.m_inode;
      row.m_times[0] = fn.created();
      row.m_times[1] = fn.modified();
      row.m_times[2] = fn.mft_modified();
      row.m_times[3] = fn.accessed();
      row.m_allocated_size = fn.allocated_size();
      row.m_real_size = fn.real_size();
      row.m_file_flags = fn.flags();
      row.m_name = orv::to_utf8(fn.m_name);
      rows.push_back(row);
    }
  }
  for (const auto& kv : entry.m_attribs) {
    const attrib_item& item = kv.second;
    if (!with_header_row && item.type() != 0x90 && item.type() != 0xA0) continue;
    rows.push_back(row_of_item(entry, item, kv.first, volume.record_size()));
  }
  return true;
}
