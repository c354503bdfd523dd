#include "analysis/entry_record.h"

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <set>

#include "analysis/orv_zone.h"
#include "base/orv_console.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "ntfs/orv_mft_file_reader.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_filerec.h"
#include "ntfs/orv_stream.h"
#include "run/mft_entries_ctx.h"

using orv::byte_span;
using orv::le16;
using orv::le32;
using orv::le64;

// ---- accessors -------------------------------------------------------------------------------

uint64_t si_entry::created() const { return le64(m_value.data()); }
uint64_t si_entry::modified() const { return le64(m_value.data() + 8); }
uint64_t si_entry::mft_modified() const { return le64(m_value.data() + 16); }
uint64_t si_entry::accessed() const { return le64(m_value.data() + 24); }
uint32_t si_entry::flags() const { return le32(m_value.data() + 32); }
uint32_t si_entry::owner_id() const { return le32(m_value.data() + 48); }
uint32_t si_entry::security_id() const { return le32(m_value.data() + 52); }
uint64_t si_entry::quota() const { return le64(m_value.data() + 56); }
uint64_t si_entry::usn() const { return le64(m_value.data() + 64); }

uint64_t file_name_entry::parent_ref() const { return le64(m_raw.data()); }
uint64_t file_name_entry::parent_number() const { return orv::le48(m_raw.data()); }
uint16_t file_name_entry::parent_sequence() const { return le16(m_raw.data() + 6); }
uint64_t file_name_entry::created() const { return le64(m_raw.data() + 8); }
uint64_t file_name_entry::modified() const { return le64(m_raw.data() + 16); }
uint64_t file_name_entry::mft_modified() const { return le64(m_raw.data() + 24); }
uint64_t file_name_entry::accessed() const { return le64(m_raw.data() + 32); }
uint64_t file_name_entry::allocated_size() const { return le64(m_raw.data() + 40); }
uint64_t file_name_entry::real_size() const { return le64(m_raw.data() + 48); }
uint32_t file_name_entry::flags() const { return le32(m_raw.data() + 56); }
uint8_t file_name_entry::name_space() const { return m_raw[65]; }

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

uint16_t entry_record::header_flags() const { return le16(m_header.data() + FR_FLAGS); }
uint16_t entry_record::link_count() const { return le16(m_header.data() + FR_LINK_COUNT); }

// ---- recycled nodes ---------------------------------------------------------------------------

struct entry_node_pools {
  std::vector<std::map<uint16_t, si_entry>::node_type> m_si;
  std::vector<std::map<std::string, file_name_entry>::node_type> m_fn;
  std::vector<std::map<uint16_t, oid_entry>::node_type> m_oid;
  std::vector<std::map<attrib_key, attrib_item>::node_type> m_attr;
  std::vector<std::map<uint64_t, parent_name>::node_type> m_parent;
  std::vector<std::map<std::wstring, std::string>::node_type> m_index;
  // Scratch text of the decoder.
  std::wstring m_wide;
  std::wstring m_lower;
  std::string m_narrow;
  std::string m_key;
  data_run_list m_runs;
};

entry_pool_holder::entry_pool_holder() = default;
entry_pool_holder::entry_pool_holder(const entry_pool_holder&) {}
entry_pool_holder& entry_pool_holder::operator=(const entry_pool_holder&) { return *this; }
entry_pool_holder::~entry_pool_holder() = default;
entry_node_pools& entry_pool_holder::get() {
  if (!m_pools) m_pools = std::make_unique<entry_node_pools>();
  return *m_pools;
}

// A record with thousands of links must not leave thousands of nodes behind for the rest of the run.
static constexpr size_t k_pool_limit = 256;

template <class Map>
static void recycle(Map& map, std::vector<typename Map::node_type>& pool) {
  while (!map.empty() && pool.size() < k_pool_limit) pool.push_back(map.extract(map.begin()));
  map.clear();
}

// Inserts `key` with a recycled node when one is at hand. The mapped value of a recycled node
// still holds the previous record's content: callers overwrite every field. First insert wins.
template <class Map, class Key>
static std::pair<typename Map::iterator, bool> pooled_insert(Map& map, std::vector<typename Map::node_type>& pool,
                                                             const Key& key) {
  if (pool.empty()) return map.try_emplace(key);
  auto found = map.find(key);
  if (found != map.end()) return {found, false};
  typename Map::node_type node = std::move(pool.back());
  pool.pop_back();
  node.key() = key;
  auto result = map.insert(std::move(node));
  return {result.position, true};
}

void entry_record::clear() {
  // Called for every record of a scan: nodes go back to the pools and strings keep their capacity.
  entry_node_pools& pools = m_pools.get();
  recycle(m_std_infos, pools.m_si);
  recycle(m_file_names, pools.m_fn);
  recycle(m_object_ids, pools.m_oid);
  recycle(m_attribs, pools.m_attr);
  recycle(m_parent_names, pools.m_parent);
  recycle(m_name_index, pools.m_index);
  m_source_name.clear();
  m_has_attrib_list = m_attrib_list_nonresident = m_has_time_warning = false;
  m_time_warning.clear();
  m_inode = 0;
  m_seq_num = 0;
  m_header.fill(0);
  m_raw_record.clear();
  m_is_extension = false;
  m_base_ref = 0;
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
  m_first_attrib_offset = 0;
}

static void append_hex8(std::string& out, uint64_t value) {
  static const char k_hex[] = "0123456789abcdef";
  char digits[16];
  int n = 16;
  do {
    digits[--n] = k_hex[value & 0xF];
    value >>= 4;
  } while (value);
  while (n > 8) digits[--n] = '0';
  out.append(digits + n, size_t(16 - n));
}

static void build_path_key(std::string& key, uint64_t parent_number, const std::string& name_utf8, uint64_t inode) {
  key.clear();
  append_hex8(key, parent_number);
  key += '_';
  key += name_utf8;
  key += '_';
  append_hex8(key, inode);
}

std::string make_path_key(uint64_t parent_number, const std::string& name_utf8, uint64_t inode) {
  std::string key;
  build_path_key(key, parent_number, name_utf8, inode);
  return key;
}

// ---- decoding ----------------------------------------------------------------------------------

static bool source_ready(const mft_entries_ctx& ctx) {
  return ctx.m_mftfile != nullptr || (ctx.m_volume && ctx.m_volume->validated());
}

// A new stored attribute under `key`, filled from `attr`; nullptr when the key is taken.
static attrib_item* new_item(entry_record& entry, attrib_key key, const attrib_view& attr, const char* label,
                             const std::wstring& name, uint64_t inode) {
  auto slot = pooled_insert(entry.m_attribs, entry.m_pools.get().m_attr, key);
  if (!slot.second) return nullptr;
  attrib_item& item = slot.first->second;
  item.m_name = name;
  item.m_label = label;
  item.m_raw_attrib.assign(attr.m_bytes.m_data, attr.m_bytes.m_data + attr.m_bytes.m_size);
  item.m_text.clear();
  item.m_spare.clear();
  item.m_is_ads = false;
  item.m_is_data = false;
  item.m_security_text.clear();
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
  data_run_list& runs = entry.m_pools.get().m_runs;
  runs.clear();
  if (attr.non_resident()) attribute_run_list(attr.m_bytes.m_data, uint32_t(attr.m_bytes.m_size), runs);
  merge_run_lists(stored.m_runs, runs);
}

static void store_merged(entry_record& entry, attrib_key key, const attrib_view& attr, const char* label,
                         const std::wstring& name, uint64_t inode) {
  auto it = entry.m_attribs.find(key);
  if (it == entry.m_attribs.end()) new_item(entry, key, attr, label, name, inode);
  else if (it->second.m_name == name) merge_into(entry, it->second, attr);
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
static void read_zone_stream(entry_record& entry, mft_entries_ctx& ctx, const attrib_view& attr) {
  if (!entry.m_zone_buffer.empty() || !attr.non_resident() || !ctx.m_volume) return;
  data_run_list& runs = entry.m_pools.get().m_runs;
  runs.clear();
  if (!attribute_run_list(attr.m_bytes.m_data, uint32_t(attr.m_bytes.m_size), runs) || runs.empty()) return;
  uint64_t size = std::max(attr.real_size(), attr.initialised_size());
  entry.m_zone_buffer.resize(4096);
  uint64_t length = std::min<uint64_t>(entry.m_zone_buffer.size(), std::max<uint64_t>(size, 1));
  uint32_t flags = 0x1;  // skip sparse clusters
  if (!read_stream(*ctx.m_volume, runs, 0, entry.m_zone_buffer.data(), length, flags)) entry.m_zone_buffer.clear();
  else entry.m_zone_buffer.resize(std::min<uint64_t>(length, entry.m_zone_buffer.size()));
}

static void categorize_data(entry_record& entry, mft_entries_ctx& ctx, uint64_t inode, const attrib_view& attr,
                            const std::wstring& name, bool capture) {
  attrib_key key = make_attrib_key(AT_DATA, attr.id());
  const char* label = name.empty() ? "unnamed data" : "ads";
  bool zone = !name.empty() && ctx.m_include_zoneinfo && name == L"Zone.Identifier";
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
      attrib_item* joined = nullptr;
      if (name.empty() && entry.m_has_unnamed_data) {
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
  read_zone_stream(entry, ctx, attr);
  parse_zone_identifier(entry.m_zone_buffer.data(), entry.m_zone_buffer.size(), entry.m_zone_info);
}

static void categorize_file_name(entry_record& entry, const mft_entries_ctx& ctx, uint64_t inode,
                                 const attrib_view& attr) {
  byte_span value = attr.value();
  if (!value.m_size) return;
  entry_node_pools& pools = entry.m_pools.get();
  std::array<uint8_t, 68> raw{};
  std::memcpy(raw.data(), value.m_data, std::min<size_t>(value.m_size, raw.size()));
  uint8_t name_units = raw[64];
  pools.m_wide.clear();
  if (name_units) {
    byte_span chars = value.sub(66, size_t(name_units) * 2);
    orv::utf16_to_wide(chars.m_data, int64_t(chars.m_size), pools.m_wide);
  }
  pools.m_narrow.clear();
  orv::append_utf8_of(pools.m_narrow, pools.m_wide);
  build_path_key(pools.m_key, orv::le48(raw.data()), pools.m_narrow, inode);
  auto slot = pooled_insert(entry.m_file_names, pools.m_fn, pools.m_key);
  if (!slot.second) return;  // the first attribute under a key stays
  file_name_entry& fn = slot.first->second;
  fn.m_key = pools.m_key;
  fn.m_raw = raw;
  fn.m_name = pools.m_wide;
  fn.m_is_dos_name = raw[65] == 2;
  fn.m_time_anomaly = false;
  fn.m_anomaly_text.clear();
  fn.m_attrib_id = attr.id();
  fn.m_inode = inode;
  fn.m_use_count = 1;
  const uint64_t times[4] = {fn.created(), fn.modified(), fn.mft_modified(), fn.accessed()};
  if (ctx.m_future_limit)
    for (uint64_t t : times)
      if (t > ctx.m_future_limit) {
        fn.m_time_anomaly = true;
        fn.m_anomaly_text = "future";
      }
  for (uint64_t t : times)
    if (t == 0) {
      fn.m_time_anomaly = true;
      fn.m_anomaly_text = "null";
    }

  uint8_t ns = raw[65];
  if (ns != 0 && ns % 2 == 0) return;  // a DOS-only name never names a path
  auto parent = pooled_insert(entry.m_parent_names, pools.m_parent, fn.parent_ref());
  if (parent.second) {
    parent.first->second.m_name = fn.m_name;
    parent.first->second.m_key = fn.m_key;
    parent.first->second.m_path.clear();
  }
  pools.m_lower = fn.m_name;
  orv::to_lower(pools.m_lower);
  auto index = pooled_insert(entry.m_name_index, pools.m_index, pools.m_lower);
  if (index.second) index.first->second = fn.m_key;
}

bool categorize_attrib(entry_record& entry, mft_entries_ctx& ctx, uint64_t inode, const uint8_t* record,
                       uint32_t record_length, const uint8_t* attribute, bool& list_seen, bool capture) {
  if (!record || !record_length || !attribute || attribute < record) return false;
  uint32_t length = le32(attribute + 4);
  if (length == 0) return false;
  int64_t remaining = int64_t(record_length) - int64_t(attribute - record);
  if (remaining < 8 || int32_t(remaining) < 0) return false;
  if (uint64_t(attribute - record) + length > record_length) return false;

  attrib_view attr(byte_span(attribute, length));
  uint32_t type = attr.type();
  std::wstring name;
  if (attr.has_name()) orv::utf16_to_wide(attr.m_bytes.at(attr.name_offset()), int64_t(attr.name_length()) * 2, name);
  byte_span value = attr.non_resident() ? byte_span() : attr.value();
  attrib_key key = make_attrib_key(type, attr.id());
  entry_node_pools& pools = entry.m_pools.get();

  switch (type) {
    case AT_STANDARD_INFORMATION: {
      if (!value.m_size) break;
      auto slot = pooled_insert(entry.m_std_infos, pools.m_si, attr.id());
      if (!slot.second) break;
      si_entry& si = slot.first->second;
      si.m_value.fill(0);
      std::memcpy(si.m_value.data(), value.m_data, std::min<size_t>(value.m_size, si.m_value.size()));
      si.m_time_anomaly = !si.created() || !si.modified() || !si.mft_modified() || !si.accessed();
      si.m_anomaly_text = si.m_time_anomaly ? "null" : "";
      break;
    }
    case AT_ATTRIBUTE_LIST:
      list_seen = true;
      break;
    case AT_FILE_NAME:
      if (!attr.non_resident()) categorize_file_name(entry, ctx, inode, attr);
      break;
    case AT_OBJECT_ID: {
      if (attr.non_resident() || attr.value_offset() == 0 || attr.value_length() < 16) break;
      auto slot = pooled_insert(entry.m_object_ids, pools.m_oid, attr.id());
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
      categorize_data(entry, ctx, inode, attr, name, capture);
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
      if (attrib_item* item = new_item(entry, key, attr, "reparse point", name, inode)) item->m_text = orv::to_utf8(target);
      break;
    }
    default: {
      // Types without a decoder of their own share the pseudo type and differ by attribute id.
      std::string label = attrib_kind_label(type, !name.empty());
      store_captured_or_merged(entry, make_attrib_key(AT_END, attr.id()), attr, label.c_str(), name, inode, capture);
      break;
    }
  }
  return true;
}

// ---- attribute lists -------------------------------------------------------------------------

// An attribute list entry: type u32 at 0, entry length u16 at 4, name length at 6, name offset at
// 7, first VCN at 8, reference of the holding record at 16, attribute id u16 at 24, name from 26.
bool parse_attrib_list(entry_record& entry, mft_entries_ctx& ctx, uint64_t inode, const uint8_t* buffer,
                       uint64_t length, bool capture) {
  if (!source_ready(ctx) || !buffer || length == 0) return false;
  int64_t remaining = int64_t(std::min<uint64_t>(length, INT64_MAX));
  int64_t countdown = remaining;
  uint64_t pos = 0;
  std::vector<uint8_t> record;
  // Each attribute of another record is pulled in once: a list that names the same one again and
  // again (a run list reading the same clusters over and over) must not merge it without end.
  // Only attributes found go in, so the set never outgrows the attributes the source holds.
  std::set<std::pair<uint64_t, uint64_t>> pulled;
  while (remaining >= 1 && countdown >= 1) {
    if (pos + 26 > length) break;
    const uint8_t* item = buffer + pos;
    uint16_t entry_length = le16(item + 4);
    // An entry shorter than its own 26-byte header is damage; stepping by such lengths would read
    // a record for nearly every byte of a list of up to 64 MiB.
    if (entry_length < 26) break;
    uint64_t ref = orv::le48(item + 16);
    std::pair<uint64_t, uint64_t> key(le64(item + 16), (uint64_t(le32(item)) << 16) | le16(item + 24));
    if (ref != inode) {
      log_line(ctx, "primary entry %llu pointing to ref entry %llu", (unsigned long long)inode,
               (unsigned long long)ref);
      bool bad = false;
      if (!pulled.count(key) && mft_fixup_read(record, bad, ctx, ref) && !record.empty() && record.size() >= 24 &&
          std::memcmp(record.data(), "FILE", 4) == 0 && le16(record.data() + FR_FIRST_ATTRIB) != 0) {
        uint32_t want_type = le32(item), want_id = le16(item + 24);
        uint64_t handed = ctx.m_follow_ref_inode ? ref : inode;
        const uint8_t* rec = record.data();
        uint32_t rec_len = uint32_t(record.size());
        size_t first = le16(rec + FR_FIRST_ATTRIB);
        // Only the one attribute the entry names is taken; an attribute as long as the record
        // itself ends the search.
        attrib_walk_rules rules;
        rules.m_limit = rec_len - 1;
        walk_attributes(rec, rec_len, first, rules, [&](const uint8_t* attr, uint32_t, size_t at) {
          if (at + 16 > rec_len) return false;
          if (le32(attr) != want_type || le16(attr + 14) != want_id) return true;
          bool ignored = false;
          categorize_attrib(entry, ctx, handed, rec, rec_len, attr, ignored, capture);
          pulled.insert(key);
          return false;
        });
      }
    }
    remaining -= entry_length;
    countdown -= entry_length;
    pos += entry_length;
  }
  return true;
}

// Attribute lists are capped: no real file needs more than this many bytes of list entries, and a
// lying run list must not make the reader allocate the volume.
static constexpr uint64_t k_max_attrib_list_bytes = 64ull << 20;

bool read_attrib_list(entry_record& entry, mft_entries_ctx& ctx, uint64_t inode, const uint8_t* attribute,
                      uint32_t attrib_length, bool capture) {
  if (!source_ready(ctx)) return false;
  entry.m_has_attrib_list = true;
  attrib_view attr(byte_span(attribute, attrib_length));
  if (!attr.non_resident()) {
    byte_span value = attr.value();
    if (value.m_size) {
      log_level(ctx, 2, "inode 0x%08llx : attribute type 0x%04x : has resident attrib list.",
                (unsigned long long)inode, attr.type());
      parse_attrib_list(entry, ctx, inode, value.m_data, value.m_size, capture);
    }
    return true;
  }
  log_line(ctx, "inode 0x%08llx : attribute type 0x%04x : has non resident attrib list.", (unsigned long long)inode,
           attr.type());
  entry.m_attrib_list_nonresident = true;
  if (!ctx.m_volume) return true;  // an extracted $MFT has no clusters to read the list from
  CNtfs& volume = *ctx.m_volume;
  data_run_list runs;
  if (!attribute_run_list(attribute, attrib_length, runs) || runs.empty()) return true;
  uint64_t cluster = volume.cluster_size();
  if (cluster == 0) return true;
  uint64_t total = list_bytes(runs, cluster, false);
  total = std::min(total, k_max_attrib_list_bytes);
  // The list is read from the source: never a buffer larger than the source, or every record
  // with a lying run list would allocate and clear 64 MiB.
  uint64_t source = volume.disk() ? volume.disk()->size() : 0;
  if (source) total = std::min(total, source - source % cluster);
  std::vector<uint8_t> buffer(total, 0);
  uint64_t at = 0;
  for (const run_entry& run : runs) {
    for (uint32_t i = 0; i < run.m_count && at + cluster <= total; ++i, at += cluster) {
      if (run.m_is_sparse) continue;
      if (!volume.read_clusters(run.m_lcn + i, buffer.data() + at, cluster)) {
        at += uint64_t(run.m_count - i) * cluster;
        break;
      }
    }
    if (at >= total) break;
  }
  parse_attrib_list(entry, ctx, inode, buffer.data(), buffer.size(), capture);
  return true;
}

// ---- whole records ---------------------------------------------------------------------------

bool read_entry(entry_record& entry, mft_entries_ctx& ctx, uint64_t inode, bool capture) {
  entry.clear();
  if (!source_ready(ctx)) return false;
  std::vector<uint8_t> record;
  bool bad = false;
  if (!mft_fixup_read(record, bad, ctx, inode) || record.empty()) {
    log_line(ctx, "err: mftfixup %llx", (unsigned long long)inode);
    return false;
  }
  if (bad) {
    log_line(ctx, "err: recd bad %llx", (unsigned long long)inode);
    return false;
  }
  entry.m_raw_record = record;
  entry.m_inode = inode;
  std::memcpy(entry.m_header.data(), record.data(), std::min(record.size(), entry.m_header.size()));
  entry.m_seq_num = le16(entry.m_header.data() + FR_SEQUENCE);
  uint64_t base = le64(entry.m_header.data() + FR_BASE_REF);
  if (base) {
    entry.m_is_extension = true;
    entry.m_base_ref = base;
  }
  uint16_t first = le16(entry.m_header.data() + FR_FIRST_ATTRIB);
  entry.m_first_attrib_offset = first;
  if (first == 0) return true;

  std::vector<size_t> lists;
  attrib_walk_rules rules;
  rules.m_limit = ctx.record_size();
  const uint8_t* rec = entry.m_raw_record.data();
  uint32_t rec_len = uint32_t(entry.m_raw_record.size());
  walk_attributes(rec, rec_len, first, rules, [&](const uint8_t* attr, uint32_t, size_t pos) {
    bool list_seen = false;
    if (!categorize_attrib(entry, ctx, inode, rec, rec_len, attr, list_seen, capture)) return false;
    if (list_seen) lists.push_back(pos);
    return true;
  });
  for (size_t pos : lists)
    read_attrib_list(entry, ctx, inode, rec + pos, std::min<uint32_t>(le32(rec + pos + 4), rec_len - uint32_t(pos)),
                     capture);
  return true;
}

uint64_t mft_record_count(mft_entries_ctx& ctx) {
  entry_record entry;
  if (!read_entry(entry, ctx, 0, false)) return 0;
  for (const auto& kv : entry.m_attribs) {
    if (attrib_key_type(kv.first) != AT_DATA) continue;
    uint64_t bytes = kv.second.non_resident() ? kv.second.allocated_size() : kv.second.value_length();
    return bytes / ctx.record_size();
  }
  return 0;
}
