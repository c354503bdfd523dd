#include "analysis/entry_record.h"

#include <algorithm>
#include <cstring>
#include <cwctype>

#include "analysis/orv_scan_state.h"
#include "analysis/orv_zone.h"
#include "base/orv_console.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_attrib_list.h"
#include "ntfs/orv_filerec.h"
#include "ntfs/orv_stream.h"

using orv::byte_span;
using orv::le16;
using orv::le32;
using orv::le64;

// ---- accessors -------------------------------------------------------------------------------

static attrib_view item_view(const attrib_item& item) {
  return attrib_view(byte_span(item.m_raw_attrib.data(), item.m_raw_attrib.size()));
}
uint32_t attrib_item::type() const { return item_view(*this).type(); }
bool attrib_item::non_resident() const { return item_view(*this).non_resident(); }
uint16_t attrib_item::flags() const { return item_view(*this).flags(); }
uint16_t attrib_item::id() const { return item_view(*this).id(); }
uint32_t attrib_item::value_length() const { return non_resident() ? 0 : item_view(*this).value_length(); }
uint64_t attrib_item::allocated_size() const { return non_resident() ? item_view(*this).allocated_size() : 0; }
uint64_t attrib_item::real_size() const { return non_resident() ? item_view(*this).real_size() : 0; }
uint64_t attrib_item::valid_size() const { return non_resident() ? item_view(*this).initialised_size() : 0; }
uint64_t attrib_item::compressed_size() const { return non_resident() ? item_view(*this).compressed_size() : 0; }
uint16_t attrib_item::compression_unit() const { return non_resident() ? item_view(*this).compression_unit() : 0; }
uint64_t attrib_item::stream_size() const {
  if (!non_resident()) return value_length();
  return std::max(real_size(), valid_size());
}

// ---- scratch ---------------------------------------------------------------------------------

// Text and runs the decoder builds on its way, one set per decoding thread: a scan hands entries
// from a ring to the writers, and scratch kept with each entry would be cold at every record.
struct decode_scratch {
  std::wstring m_wide;
  std::wstring m_attrib_name;
  std::string m_narrow;
  std::string m_key;
  data_run_list m_runs;
};

static decode_scratch& scratch() {
  thread_local decode_scratch kept;
  return kept;
}

void entry_record::clear() {
  // Called for every record of a scan: the maps keep their elements and strings their capacity.
  m_std_infos.clear();
  m_file_names.clear();
  m_object_ids.clear();
  m_attribs.clear();
  m_parent_names.clear();
  m_source_name.clear();
  m_has_attrib_list = m_attrib_list_nonresident = m_has_time_warning = false;
  m_time_warning.clear();
  m_inode = 0;
  m_seq_num = 0;
  m_header.clear();
  m_raw_record.clear();
  m_is_extension = false;
  m_base_ref = 0;
  m_holders.clear();
  m_volume_names.clear();
  m_volume_infos.clear();
  m_reparse_targets.clear();
  m_index_roots.clear();
  m_has_unnamed_data = false;
  m_zone_buffer.clear();
  m_zone_info.clear();
  m_hash_failed = false;
  m_md5.fill(0);
  m_sha1.fill(0);
  m_sha256.fill(0);
  m_has_md5 = m_has_sha1 = m_has_sha256 = false;
  m_filter_inode = m_deleted_mark = m_filter_name = m_filter_ext = m_filter_dir = false;
  m_filter_pattern = m_filter_type = m_time_mark = m_ads_mark = m_size_mark = false;
  m_filter_inode_text.clear();
  m_filter_name_text.clear();
  m_filter_ext_text.clear();
  m_filter_dir_text.clear();
  m_filter_pattern_text.clear();
  m_filter_type_text.clear();
  m_record_offset = 0;
  m_extracted_path.clear();
}

// Eight or more lowercase hex digits of `value`, written backwards to end at `end`; returns the
// first digit.
static char* put_hex8(char* end, uint64_t value) {
  static const char k_hex[] = "0123456789abcdef";
  char* at = end;
  do {
    *--at = k_hex[value & 0xF];
    value >>= 4;
  } while (value);
  while (end - at < 8) *--at = '0';
  return at;
}

static void build_path_key(std::string& key, uint64_t parent_number, const std::string& name_utf8, uint64_t inode) {
  char parent[16], number[16];
  const char* parent_digits = put_hex8(parent + 16, parent_number);
  const char* number_digits = put_hex8(number + 16, inode);
  const size_t parent_length = size_t(parent + 16 - parent_digits), number_length = size_t(number + 16 - number_digits);
  key.resize(parent_length + name_utf8.size() + number_length + 2);
  char* at = &key[0];
  at = std::copy(parent_digits, parent_digits + parent_length, at);
  *at++ = '_';
  at = std::copy(name_utf8.begin(), name_utf8.end(), at);
  *at++ = '_';
  std::copy(number_digits, number_digits + number_length, at);
}

std::string make_path_key(uint64_t parent_number, const std::string& name_utf8, uint64_t inode) {
  std::string key;
  build_path_key(key, parent_number, name_utf8, inode);
  return key;
}

// ---- decoding ----------------------------------------------------------------------------------

// A new stored attribute under `key`, filled from `attr`; nullptr when the key is taken.
static attrib_item* new_item(entry_record& entry, attrib_key key, const attrib_view& attr, const char* label,
                             const std::wstring& name, uint64_t inode) {
  auto slot = entry.m_attribs.reuse_insert(key);
  if (!slot.second) return nullptr;
  attrib_item& item = slot.first->second;
  item.m_name = name;
  item.m_label = label;
  item.m_raw_attrib.assign(attr.m_bytes.m_data, attr.m_bytes.m_data + attr.m_bytes.m_size);
  item.m_text.clear();
  item.m_is_ads = false;
  item.m_is_data = false;
  item.m_runs.clear();
  item.m_value.clear();
  item.m_head.clear();
  item.m_inode = inode;
  if (attr.non_resident()) attribute_run_list(attr.m_bytes.m_data, uint32_t(attr.m_bytes.m_size), item.m_runs);
  return &item;
}

// A like attribute already stored under the key with the same name takes the new extent's runs;
// one with another name keeps its place and the new one is dropped.
static void merge_into(entry_record& entry, attrib_item& stored, const attrib_view& attr) {
  data_run_list& runs = scratch().m_runs;
  runs.clear();
  if (attr.non_resident()) attribute_run_list(attr.m_bytes.m_data, uint32_t(attr.m_bytes.m_size), runs);
  merge_run_lists(stored.m_runs, runs);
}

// The stored attribute that `attr` continues: a later extent (first VCN above 0) of a
// non-resident attribute of the same type and name, held by another record of the file.
static attrib_item* continued_item(entry_record& entry, const attrib_view& attr, const std::wstring& name) {
  if (!attr.non_resident() || attr.first_vcn() == 0) return nullptr;
  for (auto& kv : entry.m_attribs)
    if (kv.second.type() == attr.type() && kv.second.non_resident() && kv.second.m_name == name) return &kv.second;
  return nullptr;
}

static void store_merged(entry_record& entry, attrib_key key, const attrib_view& attr, const char* label,
                         const std::wstring& name, uint64_t inode) {
  auto it = entry.m_attribs.find(key);
  if (it != entry.m_attribs.end()) {
    if (it->second.m_name == name) merge_into(entry, it->second, attr);
  } else if (attrib_item* continued = continued_item(entry, attr, name)) {
    merge_into(entry, *continued, attr);
  } else {
    new_item(entry, key, attr, label, name, inode);
  }
}

// Stored under `key` with the value captured, or merged like any other.
static void store_captured_or_merged(entry_record& entry, attrib_key key, const attrib_view& attr, const char* label,
                                     const std::wstring& name, uint64_t inode, bool capture) {
  byte_span value = attr.non_resident() ? byte_span() : attr.value();
  if (capture && value.m_size) {
    if (attrib_item* item = new_item(entry, key, attr, label, name, inode))
      item->m_value.assign(value.m_data, value.m_data + value.m_size);
  } else {
    store_merged(entry, key, attr, label, name, inode);
  }
}

// A non-resident Zone.Identifier is read through the volume, 4096 bytes at the most.
static void read_zone_stream(entry_record& entry, const scan_state& scan, const attrib_view& attr) {
  CNtfs* volume = scan.m_source.volume();
  if (!entry.m_zone_buffer.empty() || !attr.non_resident() || !volume) return;
  data_run_list& runs = scratch().m_runs;
  runs.clear();
  if (!attribute_run_list(attr.m_bytes.m_data, uint32_t(attr.m_bytes.m_size), runs) || runs.empty()) return;
  uint64_t size = std::max(attr.real_size(), attr.initialised_size());
  entry.m_zone_buffer.resize(4096);
  uint64_t length = std::min<uint64_t>(entry.m_zone_buffer.size(), std::max<uint64_t>(size, 1));
  uint32_t flags = 0x1;  // skip sparse clusters
  if (!read_stream(*volume, runs, 0, entry.m_zone_buffer.data(), length, flags)) entry.m_zone_buffer.clear();
  else entry.m_zone_buffer.resize(std::min<uint64_t>(length, entry.m_zone_buffer.size()));
}

static void categorize_data(entry_record& entry, const scan_state& scan, uint64_t inode, attrib_key key,
                            const attrib_view& attr, const std::wstring& name, bool capture) {
  const char* label = name.empty() ? "unnamed data" : "ads";
  bool zone = !name.empty() && scan.m_zone_info && name == L"Zone.Identifier";
  byte_span value = attr.non_resident() ? byte_span() : attr.value();
  auto mark = [&](attrib_item* item) {
    if (!item) return;
    item->m_is_data = true;
    item->m_is_ads = !name.empty();
  };

  if ((zone || capture) && value.m_size) {
    // Without capture a resident Zone.Identifier is known by the zone map alone, not as a stream.
    if (zone) entry.m_zone_buffer.assign(value.m_data, value.m_data + value.m_size);
    if (capture) {
      attrib_item* item = new_item(entry, key, attr, label, name, inode);
      mark(item);
      if (item) item->m_value.assign(value.m_data, value.m_data + value.m_size);
    }
    if (!zone) return;
  } else {
    auto it = entry.m_attribs.find(key);
    if (it != entry.m_attribs.end()) {
      if (it->second.m_name == name) merge_into(entry, it->second, attr);
    } else {
      attrib_item* joined = continued_item(entry, attr, name);
      if (!joined && name.empty() && entry.m_has_unnamed_data) {
        // Extents of one unnamed stream may carry different attribute ids: join them.
        for (auto& kv : entry.m_attribs)
          if ((attrib_key_type(kv.first) & 0x80) && kv.second.m_label == "unnamed data") {
            joined = &kv.second;
            break;
          }
      }
      if (joined) merge_into(entry, *joined, attr);
      else mark(new_item(entry, key, attr, label, name, inode));
    }
    if (name.empty()) entry.m_has_unnamed_data = true;
    if (!zone) return;
  }
  read_zone_stream(entry, scan, attr);
  parse_zone_identifier(entry.m_zone_buffer.data(), entry.m_zone_buffer.size(), entry.m_zone_info);
}

// The name in its wide and its UTF-8 form. Most names are ASCII, and then one pass fills both.
static void decode_name(const uint8_t* units, size_t count, std::wstring& wide, std::string& narrow) {
  wide.resize(count);
  narrow.resize(count);
  wchar_t* const to_wide = &wide[0];
  char* const to_narrow = &narrow[0];
  size_t i = 0;
  for (; i < count; ++i) {
    const uint16_t unit = le16(units + 2 * i);
    if (unit == 0 || unit >= 0x80) break;
    to_wide[i] = wchar_t(unit);
    to_narrow[i] = char(unit);
  }
  if (i < count && le16(units + 2 * i) != 0) {
    orv::utf16_to_wide(units, int64_t(count * 2), wide);
    narrow.clear();
    orv::append_utf8_of(narrow, wide);
    return;
  }
  wide.resize(i);  // a NUL unit ends the name
  narrow.resize(i);
}

static void categorize_file_name(entry_record& entry, const scan_state& scan, uint64_t inode,
                                 const attrib_view& attr) {
  byte_span value = attr.value();
  if (!value.m_size) return;
  decode_scratch& work = scratch();
  std::array<uint8_t, 68> raw{};
  std::memcpy(raw.data(), value.m_data, std::min<size_t>(value.m_size, raw.size()));
  byte_span chars = value.sub(66, size_t(raw[64]) * 2);
  decode_name(chars.m_data, chars.m_size / 2, work.m_wide, work.m_narrow);
  build_path_key(work.m_key, orv::le48(raw.data()), work.m_narrow, inode);
  auto slot = entry.m_file_names.reuse_insert(work.m_key);
  if (!slot.second) return;  // the first attribute under a key stays
  file_name_entry& fn = slot.first->second;
  fn.m_raw = raw;
  fn.m_name.swap(work.m_wide);  // the scratch takes the old buffers for the next name
  fn.m_name_utf8.swap(work.m_narrow);
  fn.m_is_dos_name = raw[65] == 2;
  fn.m_indexed = attr.m_bytes.u8(0x16) & 1;
  fn.m_time_anomaly = false;
  fn.m_anomaly_text.clear();
  fn.m_attrib_id = attr.id();
  fn.m_inode = inode;
  const uint64_t times[4] = {fn.created(), fn.modified(), fn.mft_modified(), fn.accessed()};
  if (scan.m_future_limit)
    for (uint64_t t : times)
      if (t > scan.m_future_limit) {
        fn.m_time_anomaly = true;
        fn.m_anomaly_text = "future";
      }
  for (uint64_t t : times)
    if (t == 0) {
      fn.m_time_anomaly = true;
      fn.m_anomaly_text = "null";
    }

  if (fn.dos_only()) return;  // a DOS-only name never names a path
  auto parent = entry.m_parent_names.reuse_insert(fn.parent_ref());
  if (parent.second) {
    parent.first->second.m_name = fn.m_name;
    parent.first->second.m_path.clear();
  }
}

// Slot of the record that holds an attribute: 0 for the entry's own record, then one per
// extension record in the order met.
static uint16_t holder_slot(entry_record& entry, uint64_t holder) {
  if (holder == entry.m_inode) return 0;
  for (size_t i = 0; i < entry.m_holders.size(); ++i)
    if (entry.m_holders[i] == holder) return uint16_t(i + 1);
  if (entry.m_holders.size() >= 0xFFFF) return 0xFFFF;  // more records than any file holds
  entry.m_holders.push_back(holder);
  return uint16_t(entry.m_holders.size());
}

bool categorize_attrib(entry_record& entry, scan_state& scan, uint64_t inode, const uint8_t* record,
                       uint32_t record_length, const uint8_t* attribute, bool& list_seen, bool capture) {
  if (!record || !record_length || !attribute || attribute < record) return false;
  uint32_t length = le32(attribute + 4);
  if (length == 0) return false;
  int64_t remaining = int64_t(record_length) - int64_t(attribute - record);
  if (remaining < 8 || int32_t(remaining) < 0) return false;
  if (uint64_t(attribute - record) + length > record_length) return false;

  attrib_view attr(byte_span(attribute, length));
  uint32_t type = attr.type();
  std::wstring& name = scratch().m_attrib_name;
  name.clear();
  if (attr.has_name()) orv::utf16_to_wide(attr.m_bytes.at(attr.name_offset()), int64_t(attr.name_length()) * 2, name);
  byte_span value = attr.non_resident() ? byte_span() : attr.value();
  const attrib_key key = make_attrib_key(type, attr.id(), holder_slot(entry, inode));

  switch (type) {
    case AT_STANDARD_INFORMATION: {
      if (!value.m_size) break;
      auto slot = entry.m_std_infos.reuse_insert(attr.id());
      if (!slot.second) break;
      si_entry& si = slot.first->second;
      si.assign(value.m_data, value.m_size);
      si.m_time_anomaly = !si.created() || !si.modified() || !si.mft_modified() || !si.accessed();
      if (si.m_time_anomaly) si.m_anomaly_text = "null";
      else si.m_anomaly_text.clear();
      break;
    }
    case AT_ATTRIBUTE_LIST:
      list_seen = true;
      break;
    case AT_FILE_NAME:
      if (!attr.non_resident()) categorize_file_name(entry, scan, inode, attr);
      break;
    case AT_OBJECT_ID: {
      if (attr.non_resident() || attr.value_offset() == 0 || attr.value_length() < 16) break;
      auto slot = entry.m_object_ids.reuse_insert(attr.id());
      if (!slot.second) break;
      oid_entry& oid = slot.first->second;
      oid.m_ids.fill(0);
      byte_span ids = attr.m_bytes.sub(attr.value_offset(), oid.m_ids.size());
      if (ids.m_size) std::memcpy(oid.m_ids.data(), ids.m_data, ids.m_size);
      oid.m_value_length = attr.value_length();
      oid.m_guid_text = orv::guid_text(oid.m_ids.data());
      if (attrib_item* item = new_item(entry, key, attr, "obj id", name, inode)) item->m_text = oid.m_guid_text;
      break;
    }
    case AT_SECURITY_DESCRIPTOR:
      if (!attr.non_resident()) {
        if (attrib_item* item = new_item(entry, key, attr, "security descr", name, inode))
          if (value.m_size) item->m_value.assign(value.m_data, value.m_data + value.m_size);
      } else {
        store_merged(entry, key, attr, "security descr", name, inode);
      }
      break;
    case AT_VOLUME_NAME:
      entry.m_volume_names.emplace(key, name);
      if (attrib_item* item = new_item(entry, key, attr, "vol name", name, inode)) {
        if (!name.empty()) item->m_text = orv::to_utf8(name);
        else if (value.m_size) orv::utf16_to_utf8(value.m_data, value.m_size, item->m_text);
      }
      break;
    case AT_VOLUME_INFORMATION: {
      if (!value.m_size) break;
      vol_info_entry info;
      std::memcpy(info.m_value.data(), value.m_data, std::min<size_t>(value.m_size, info.m_value.size()));
      info.m_text = volume_version_text(info.m_value[8], info.m_value[9]);
      entry.m_volume_infos.emplace(key, info);
      if (attrib_item* item = new_item(entry, key, attr, "vol info", name, inode)) item->m_text = info.m_text;
      break;
    }
    case AT_DATA:
      categorize_data(entry, scan, inode, key, attr, name, capture);
      break;
    case AT_INDEX_ROOT:
      if (value.m_size) {
        std::array<uint8_t, 16> head{};
        std::memcpy(head.data(), value.m_data, std::min<size_t>(value.m_size, head.size()));
        entry.m_index_roots.emplace(name, head);
      }
      store_captured_or_merged(entry, key, attr, "indx root", name, inode, capture);
      break;
    case AT_INDEX_ALLOCATION:
      store_captured_or_merged(entry, key, attr, "indx alloc", name, inode, capture);
      break;
    case AT_BITMAP:
      store_captured_or_merged(entry, key, attr, "bitmap", name, inode, capture);
      break;
    case AT_LOGGED_UTILITY_STREAM:
      store_captured_or_merged(entry, key, attr, "logged stream", name, inode, capture);
      break;
    case AT_REPARSE_POINT: {
      if (attr.non_resident() || attr.value_offset() == 0 || attr.value_length() < 17) break;
      std::wstring target;
      if (!reparse_target(value, target)) break;
      entry.m_reparse_targets.emplace(key, target);
      if (attrib_item* item = new_item(entry, key, attr, "reparse point", name, inode))
        item->m_text = orv::to_utf8(target);
      break;
    }
    default: {
      // Types without a decoder of their own share the pseudo type and differ by attribute id.
      store_captured_or_merged(entry, make_attrib_key(AT_END, attr.id(), holder_slot(entry, inode)), attr,
                               attrib_kind_label(type, !name.empty()), name, inode, capture);
      break;
    }
  }
  return true;
}

// ---- attribute lists -------------------------------------------------------------------------

// Pulls in the attributes that a list places in extension records. A reference is followed as
// it stands: the holder's in-use flag, sequence number and base reference are not compared.
static void pull_list(entry_record& entry, scan_state& scan, uint64_t inode, const uint8_t* list, size_t length,
                      bool capture) {
  attrib_list_rules rules;
  rules.m_log = &scan.log();
  pull_listed_attributes(
      list, length, inode, rules,
      [&scan](uint64_t number, std::vector<uint8_t>& record) {
        bool bad = false;
        return mft_fixup_read(record, bad, scan.m_source, number, scan.log());
      },
      [&](const uint8_t* record, size_t record_length, const uint8_t* attribute, uint32_t, uint64_t holder) {
        bool ignored = false;
        categorize_attrib(entry, scan, scan.m_follow_ref_inode ? holder : inode, record, uint32_t(record_length),
                          attribute, ignored, capture);
      });
}

bool read_attrib_list(entry_record& entry, scan_state& scan, uint64_t inode, const uint8_t* attribute,
                      uint32_t attrib_length, bool capture) {
  if (!scan.m_source.readable()) return false;
  entry.m_has_attrib_list = true;
  attrib_view attr(byte_span(attribute, attrib_length));
  if (!attr.non_resident()) {
    byte_span value = attr.value();
    if (value.m_size) {
      log_level(scan.log(), 2, "inode 0x%08llx : attribute type 0x%04x : has resident attrib list.",
                (unsigned long long)inode, attr.type());
      pull_list(entry, scan, inode, value.m_data, value.m_size, capture);
    }
    return true;
  }
  log_line(scan.log(), "inode 0x%08llx : attribute type 0x%04x : has non resident attrib list.",
           (unsigned long long)inode, attr.type());
  entry.m_attrib_list_nonresident = true;
  CNtfs* volume = scan.m_source.volume();
  if (!volume) return true;  // an extracted $MFT has no clusters to read the list from
  std::vector<uint8_t> list;
  if (read_attrib_list_value(*volume, attr.m_bytes, list))
    pull_list(entry, scan, inode, list.data(), list.size(), capture);
  return true;
}

// ---- whole records ---------------------------------------------------------------------------

uint16_t take_record_header(entry_record& entry, const uint8_t* record, size_t length, uint64_t inode) {
  entry.m_inode = inode;
  entry.m_header.assign(record, length);
  entry.m_seq_num = entry.m_header.sequence();
  entry.m_base_ref = entry.m_header.base_ref();
  entry.m_is_extension = entry.m_base_ref != 0;
  return entry.m_header.first_attrib();
}

size_t categorize_record(entry_record& entry, scan_state& scan, uint64_t inode, const uint8_t* record,
                         uint32_t length, uint16_t first, const attrib_walk_rules& rules, bool capture) {
  size_t walked = 0;
  std::vector<size_t> lists;  // positions of the attribute lists met
  walk_attributes(record, length, first, rules, [&](const uint8_t* attr, uint32_t, size_t pos) {
    bool list_seen = false;
    if (!categorize_attrib(entry, scan, inode, record, length, attr, list_seen, capture)) return false;
    ++walked;
    if (list_seen) lists.push_back(pos);
    return true;
  });
  // Lists come after all the record's own attributes, so those win ties of map keys.
  for (size_t pos : lists)
    read_attrib_list(entry, scan, inode, record + pos,
                     std::min<uint32_t>(le32(record + pos + 4), length - uint32_t(pos)), capture);
  return walked;
}

bool read_entry(entry_record& entry, scan_state& scan, uint64_t inode, bool capture) {
  entry.clear();
  if (!scan.m_source.readable()) return false;
  std::vector<uint8_t>& record = entry.m_raw_record;
  bool bad = false;
  if (!mft_fixup_read(record, bad, scan.m_source, inode, scan.log()) || record.empty()) {
    log_line(scan.log(), "err: mftfixup %llx", (unsigned long long)inode);
    record.clear();
    return false;
  }
  // A "BAAD" record is decoded for what its attributes still hold: a directory that chkdsk marked
  // so still names the files below it.
  if (bad) log_line(scan.log(), "err: recd bad %llx", (unsigned long long)inode);
  const uint16_t first = take_record_header(entry, record.data(), record.size(), inode);
  if (first == 0) return true;
  attrib_walk_rules rules;
  rules.m_limit = scan.m_source.record_size();
  categorize_record(entry, scan, inode, record.data(), uint32_t(record.size()), first, rules, capture);
  return true;
}
