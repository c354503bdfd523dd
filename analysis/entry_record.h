#pragma once
// The categorised form of one MFT entry: everything the filters and writers need, sorted by
// attribute kind, with an extension record's attributes folded into their base record.
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/orv_flat_map.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_file_name.h"
#include "ntfs/orv_record_header.h"
#include "ntfs/orv_runs.h"
#include "ntfs/orv_std_info.h"

struct scan_state;

// Low 32 bits attribute type, bits 32-47 the record that holds the attribute (0 the base record,
// 1 and on the extension records in the order met), high 16 bits attribute id. Extension records
// number their attributes from 0 again, so without the holder their attributes would collide
// with the base record's. Types without decoding of their own use the pseudo type 0xFFFFFFFF.
using attrib_key = uint64_t;
inline attrib_key make_attrib_key(uint64_t type, uint16_t id, uint16_t holder = 0) {
  return (type & 0xFFFFFFFFull) | (uint64_t(holder) << 32) | (uint64_t(id) << 48);
}
inline uint64_t attrib_key_type(attrib_key key) { return key & 0xFFFFFFFFull; }
inline uint16_t attrib_key_id(attrib_key key) { return uint16_t(key >> 48); }

// A standard information value (the short 48-byte form zero-padded to 72).
struct si_entry : std_info_value {
  bool m_time_anomaly = false;
  std::string m_anomaly_text;  // empty or "null"
};

struct file_name_entry : file_name_value {
  std::wstring m_name;
  std::string m_name_utf8;           // the same name, as the writers print it
  bool m_is_dos_name = false;        // namespace 2
  bool m_indexed = false;            // resident header byte 0x16, bit 0: the name is in its parent's index
  bool m_time_anomaly = false;
  std::string m_anomaly_text;        // empty, "future" or "null"
  uint16_t m_attrib_id = 0;
  uint64_t m_inode = 0;              // record that held the attribute
};

struct oid_entry {
  std::array<uint8_t, 64> m_ids{};   // object id, birth volume id, birth object id, domain id
  uint32_t m_value_length = 0;
  std::string m_guid_text;
};

struct vol_info_entry {
  std::array<uint8_t, 12> m_value{};
  std::string m_text;
};

struct attrib_item {
  std::wstring m_name;
  std::string_view m_label;           // one of the fixed labels, such as "unnamed data"
  std::vector<uint8_t> m_raw_attrib;  // attribute bytes, header included
  std::string m_text;
  bool m_is_ads = false;
  bool m_is_data = false;
  data_run_list m_runs;
  std::vector<uint8_t> m_value;       // resident value, when captured
  std::vector<uint8_t> m_head;        // head bytes of the stream (header capture)
  uint64_t m_inode = 0;               // record that held the attribute

  // Header fields read from m_raw_attrib (0 when absent).
  uint32_t type() const;
  bool non_resident() const;
  uint16_t flags() const;
  uint16_t id() const;
  uint32_t value_length() const;      // resident
  uint64_t allocated_size() const;    // non-resident, offset 40
  uint64_t real_size() const;         // offset 48
  uint64_t valid_size() const;        // offset 56
  uint64_t compressed_size() const;   // offset 64
  uint16_t compression_unit() const;  // offset 34
  // Real size or initialised size, whichever is larger; value length for resident data.
  uint64_t stream_size() const;
};

// A parent reference with the name under it and the path that the path walk fills in, in UTF-8
// as the writers print it: most directories hold many files, so a path is converted once.
struct parent_name {
  std::wstring m_name;
  std::string m_path;
};

class entry_record {
 public:
  entry_record() = default;
  virtual ~entry_record() = default;
  void clear();

  std::wstring m_source_name;
  bool m_has_attrib_list = false;
  bool m_attrib_list_nonresident = false;
  bool m_has_time_warning = false;
  std::string m_time_warning;
  uint64_t m_inode = 0;
  uint16_t m_seq_num = 0;
  record_header m_header;  // the first 42 bytes of the record
  std::vector<uint8_t> m_raw_record;
  bool m_is_extension = false;
  uint64_t m_base_ref = 0;
  flat_map<uint16_t, si_entry> m_std_infos;
  flat_map<std::string, file_name_entry> m_file_names;
  flat_map<uint16_t, oid_entry> m_object_ids;
  std::map<attrib_key, std::wstring> m_volume_names;
  std::map<attrib_key, vol_info_entry> m_volume_infos;
  std::map<attrib_key, std::wstring> m_reparse_targets;
  std::map<std::wstring, std::array<uint8_t, 16>> m_index_roots;
  flat_map<attrib_key, attrib_item> m_attribs;
  std::vector<uint64_t> m_holders;  // extension records met, in order: holder slots 1, 2, ...
  bool m_has_unnamed_data = false;
  std::vector<uint8_t> m_zone_buffer;
  std::map<std::string, std::string> m_zone_info;
  flat_map<uint64_t, parent_name> m_parent_names;
  bool m_hash_failed = false;
  std::array<uint8_t, 16> m_md5{};
  std::array<uint8_t, 20> m_sha1{};
  std::array<uint8_t, 32> m_sha256{};
  bool m_has_md5 = false, m_has_sha1 = false, m_has_sha256 = false;
  bool m_filter_inode = false;
  std::wstring m_filter_inode_text;
  bool m_deleted_mark = false;
  bool m_filter_name = false;
  std::wstring m_filter_name_text;
  bool m_filter_ext = false;
  std::wstring m_filter_ext_text;
  bool m_filter_dir = false;
  std::wstring m_filter_dir_text;
  bool m_filter_pattern = false;
  std::wstring m_filter_pattern_text;
  bool m_filter_type = false;
  std::wstring m_filter_type_text;
  bool m_time_mark = false;
  bool m_ads_mark = false;
  bool m_size_mark = false;
  uint64_t m_record_offset = 0;
  std::wstring m_extracted_path;

  uint16_t header_flags() const { return m_header.flags(); }
  // Rows are written for base records with standard information; extension records show through
  // their base record.
  bool has_rows() const { return !m_is_extension && m_base_ref == 0 && !m_std_infos.empty(); }
  uint16_t link_count() const { return m_header.link_count(); }
  bool in_use() const { return m_header.in_use(); }
  bool is_directory() const { return m_header.is_directory(); }
};

// Path key: parent number in at least 8 lower-case hex digits, "_", UTF-8 name, "_", entry number.
std::string make_path_key(uint64_t parent_number, const std::string& name_utf8, uint64_t inode);

// Takes the header of a fixed-up record into the cleared entry: the header bytes, sequence number
// and base reference. Gives the first attribute offset.
uint16_t take_record_header(entry_record& entry, const uint8_t* record, size_t length, uint64_t inode);
// Reads record `inode` from the scan's source and decodes it. `capture` keeps every resident
// value in m_value.
bool read_entry(entry_record& entry, scan_state& scan, uint64_t inode, bool capture);
// Walks the attributes of a fixed-up record into the entry, then the attribute lists met among
// them. Gives the number of attributes walked.
size_t categorize_record(entry_record& entry, scan_state& scan, uint64_t inode, const uint8_t* record,
                         uint32_t length, uint16_t first, const attrib_walk_rules& rules, bool capture);
// Decodes one attribute into the entry; false ends the walk. `list_seen` is set for type 0x20.
bool categorize_attrib(entry_record& entry, scan_state& scan, uint64_t inode, const uint8_t* record,
                       uint32_t record_length, const uint8_t* attribute, bool& list_seen, bool capture);
// The attribute list at `attribute`: resident, or read through the volume; an extracted $MFT has
// no clusters to read a non-resident one from, and only flags it.
bool read_attrib_list(entry_record& entry, scan_state& scan, uint64_t inode, const uint8_t* attribute,
                      uint32_t attrib_length, bool capture);
