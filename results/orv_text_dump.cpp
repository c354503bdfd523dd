#include "results/orv_text_dump.h"

#include <cstring>
#include <string>

#include "analysis/entry_record.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "base/orv_time_text.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_security.h"
#include "results/orv_default_notes.h"
#include "results/orv_link_paths.h"
#include "results/result_row.h"
#include "run/mft_entries_ctx.h"

namespace {

// Attribute header flags of a $DATA attribute: any bit of the low byte is a compression method.
constexpr uint16_t k_flag_compressed = 0x00FF;
constexpr uint16_t k_flag_encrypted = 0x4000;
constexpr uint16_t k_flag_sparse = 0x8000;

void put_line(text_dump_writer& writer, std::string& line) {
  line.push_back('\n');
  writer.m_out.write(line);
  line.clear();
}

void put_hex_line(text_dump_writer& writer, std::string& line, const char* label, uint64_t value, int digits) {
  line.append(label);
  append_hex(line, value, digits);
  put_line(writer, line);
}

void put_decimal_line(text_dump_writer& writer, std::string& line, const char* label, uint64_t value) {
  line.append(label);
  append_decimal(line, value);
  put_line(writer, line);
}

// Date and time under the run's format, then the raw FILETIME; a value that is no displayable
// instant (zero, before 1601 in effect, or far in the future) shows only the raw value.
void put_time_line(text_dump_writer& writer, std::string& line, const result_layout& layout, const char* label,
                   uint64_t filetime) {
  line.append(label);
  std::string date, clock;
  if (orv::append_filetime_text(date, clock, filetime, layout.m_time_state))
    line.append(date).append(" ").append(clock).append(" ");
  line.append("[0x");
  append_hex(line, filetime, 16);
  line.append("]");
  put_line(writer, line);
}

// Modified, accessed, MFT modified, created: the order of the default rows.
template <class Times>
void put_four_times(text_dump_writer& writer, std::string& line, const result_layout& layout, const Times& t) {
  put_time_line(writer, line, layout, "  modified:  ", t.modified());
  put_time_line(writer, line, layout, "  accessed:  ", t.accessed());
  put_time_line(writer, line, layout, "  mft mod:   ", t.mft_modified());
  put_time_line(writer, line, layout, "  created:   ", t.created());
}

void dump_header(const entry_record& entry, const scan_state& scan, text_dump_writer& writer, std::string& line) {
  // A record without its "FILE" header has no header fields, and no link count, to show.
  const record_header& header = entry.m_header;
  const bool has_header = std::memcmp(header.m_bytes.data(), "FILE", 4) == 0;
  line.append("File Record: ");
  if (has_header) {
    line.append("flags 0x");
    append_hex(line, header.flags(), 4);
    line.append(", lsn 0x");
    append_hex(line, header.lsn(), 1);
    line.append(", used 0x");
    append_hex(line, header.used_size(), 1);
    line.append(" of 0x");
    append_hex(line, header.allocated_size(), 1);
    line.append(" bytes");
  } else {
    line.append("(no header)");
  }
  put_line(writer, line);
  // The label carries the "0x"; the number itself is the rows' eight-digit hex form.
  line.append("  MFT entry: ");
  append_entry_number(line, entry.m_inode, true);
  put_line(writer, line);
  put_decimal_line(writer, line, "  Seq Num:   ", entry.m_seq_num);
  line.append("  Type:      ").append(record_type_text(entry, scan));
  put_line(writer, line);
  if (entry.m_is_extension || entry.m_base_ref != 0) {
    line.append("references mft entry: ");
    append_entry_number(line, entry.m_base_ref & 0xFFFFFFFFFFFFull, true);
    put_line(writer, line);
  }
  line.append("Ref Count: ");
  if (has_header) append_decimal(line, entry.link_count());
  else line.append("-1");
  put_line(writer, line);
}

void dump_std_infos(const entry_record& entry, const scan_state& scan, text_dump_writer& writer,
                    const result_layout& layout, std::string& line) {
  for (const auto& kv : entry.m_std_infos) {
    const si_entry& si = kv.second;
    line.append("Standard Info Attrib: (attrib id 0x");
    append_hex(line, kv.first, 1);
    line.append(", file flags 0x");
    append_hex(line, si.flags(), 8);
    if (si.m_time_anomaly) line.append(", times ").append(si.m_anomaly_text);
    line.append(")");
    put_line(writer, line);
    put_four_times(writer, line, layout, si);
    put_hex_line(writer, line, "  secure id: 0x", si.security_id(), 8);
    put_hex_line(writer, line, "  quota id:  0x", si.quota(), 16);
    put_hex_line(writer, line, "  Jrnl num:  0x", si.usn(), 16);
    // A dump names the owner whether or not the run asked for owners, so the descriptors of $SDS
    // are read here when the scan did not read them (once for the volume).
    CNtfs* volume = scan.m_source.volume();
    if (volume && si.security_id()) volume->ensure_secure_map(&scan.log());
    const security_entry* sd = si.security_id() ? find_security_entry(volume, si.security_id()) : nullptr;
    if (!sd) continue;
    if (!sd->m_owner_sid.empty()) {
      line.append("  Owner SID: ").append(sd->m_owner_sid);
      put_line(writer, line);
    }
    if (!sd->m_group_sid.empty()) {
      line.append("  Group SID: ").append(sd->m_group_sid);
      put_line(writer, line);
    }
  }
}

void dump_file_names(const entry_record& entry, text_dump_writer& writer, const result_layout& layout,
                     std::string& line) {
  for (const auto& kv : entry.m_file_names) {
    const file_name_entry& fn = kv.second;
    line.append("Filename Attrib: ");
    orv::append_utf8_of(line, fn.m_name);
    if (fn.m_indexed) line.append(", (indexed)");
    put_line(writer, line);
    put_hex_line(writer, line, "  parnt mft: 0x", fn.parent_number(), 8);
    put_hex_line(writer, line, "  parnt seq# 0x", fn.parent_sequence(), 4);
    put_four_times(writer, line, layout, fn);
  }
}

void dump_runs(const data_run_list& runs, text_dump_writer& writer, std::string& line) {
  uint64_t real = 0, sparse = 0;
  for (const run_entry& run : runs) {
    line.append("    vcn 0x");
    append_hex(line, run.m_vcn, 1);
    if (run.m_is_sparse) {
      sparse += run.m_count;
    } else {
      real += run.m_count;
      line.append(" -> lcn 0x");
      append_hex(line, run.m_lcn, 1);
    }
    line.append(" -> 0x");
    append_hex(line, run.m_count, 1);
    line.append(" clusters");
    if (run.m_is_sparse) line.append(" [sparse]");
    put_line(writer, line);
  }
  put_decimal_line(writer, line, "  Total clusters [real]:   ", real);
  put_decimal_line(writer, line, "  Total clusters [sparse]: ", sparse);
}

void dump_data_attribs(const entry_record& entry, text_dump_writer& writer, std::string& line) {
  for (const auto& kv : entry.m_attribs) {
    const attrib_item& item = kv.second;
    if (!item.m_is_data) continue;
    const uint16_t flags = item.flags();
    line.append("Data Attrib");
    if (item.m_name.empty()) {
      line.append(": (unnamed)");
    } else {
      line.append(": ");
      orv::append_utf8_of(line, item.m_name);
    }
    if (flags & k_flag_compressed) line.append(", data compressed");
    if (flags & k_flag_sparse) line.append(", sparse clusters");
    if (flags & k_flag_encrypted) line.append(", data encrypted");
    put_line(writer, line);
    if (!item.non_resident()) {
      put_decimal_line(writer, line, "  resident data used: ", item.value_length());
      continue;
    }
    put_decimal_line(writer, line, "  allocated:  ", item.allocated_size());
    put_decimal_line(writer, line, "  file size:  ", item.real_size());
    put_decimal_line(writer, line, "  valid data: ", item.valid_size());
    // Only a compressed or sparse attribute has the compressed size field; in others offset 64
    // already holds the run list.
    if (flags & (k_flag_compressed | k_flag_sparse))
      put_decimal_line(writer, line, "  compressed size: ", item.compressed_size());
    dump_runs(item.m_runs, writer, line);
  }
}

}  // namespace

void write_text_dump(entry_record& entry, const scan_state& scan, text_dump_writer& writer) {
  result_layout layout;
  layout_from_options(layout, writer.m_options);
  std::string line;
  dump_header(entry, scan, writer, line);
  dump_std_infos(entry, scan, writer, layout, line);
  dump_file_names(entry, writer, layout, line);
  dump_data_attribs(entry, writer, line);
  write_hard_link_paths(entry, scan, writer.m_out, std::string());
}

record_sink text_dump_sink(text_dump_writer& writer) { return sink_of<write_text_dump>(writer); }
