#pragma once
// Per-record texts of the default rows: type, extension, digests, the data summary and the
// "other info" notes. Built once per record and shared by all of its rows.
#include <cstddef>
#include <cstdint>
#include <string>

class entry_record;
class mft_entries_ctx;
struct scan_state;

struct record_notes {
  std::string m_entry_text;  // "0x0000002a" or "42"
  std::string m_type;        // "file", "dir", "del", "unalloc"
  std::string m_ext;
  std::string m_md5, m_sha1, m_sha256;
  std::string m_summary;
  // "other info" items before and after the per-timeline "refinode [..]" item.
  std::string m_other_head;
  std::string m_other_tail;
};

// `parent_count` is the number of distinct parent references of the record's names.
void build_record_notes(record_notes& notes, const entry_record& entry, const mft_entries_ctx& options,
                        const scan_state& scan, size_t parent_count);
// "refinode [" number "]".
void refinode_note(std::string& out, uint64_t record_number, const mft_entries_ctx& ctx);
// Joins head, refinode and tail with "; ", leaving out the empty ones.
void join_other_info(std::string& out, const record_notes& notes, const std::string& refinode);

// Entry number as the rows print it: 0x and eight digits, or decimal under -base10.
void append_entry_number(std::string& out, uint64_t number, bool hex);
// "file", "dir", "del" or "unalloc".
const char* record_type_text(const entry_record& entry, const scan_state& scan);
// Lower-cased text behind the last '.', "none" for a directory or a name without a dot.
void extension_text(std::string& out, const std::wstring& name, bool is_directory);
// Summary of the data attributes and record numbers ("various data types").
void append_summary(std::string& out, const entry_record& entry, const mft_entries_ctx& ctx);
// "; [owner_sid: " SID "]" when the volume's descriptors know the record's security id; nothing
// otherwise (no volume, no such id, no owner).
void append_owner_sid(std::string& out, const entry_record& entry, const scan_state& scan);
// The number of distinct parent references among the record's names.
size_t distinct_parent_count(const entry_record& entry);
// Lower-case hex of a digest, or nothing when it is all zero.
void append_digest(std::string& out, const uint8_t* bytes, size_t length);
// "; [" label digest "]" for each digest the entry holds (MD5, SHA-1, SHA-256), the first without
// "; " when `out` is empty.
void append_digest_items(std::string& out, const entry_record& entry, const char* const labels[3]);
// The directory path of a name and the name behind it; a parent the walk left no path for gives
// "[root]/" ahead of the name.
struct file_name_entry;
void append_name_path(std::string& out, const entry_record& entry, const file_name_entry& name);
