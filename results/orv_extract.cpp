#include "results/orv_extract.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <set>

#include "analysis/entry_record.h"
#include "analysis/orv_attrib_rows.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_console.h"
#include "base/orv_digest.h"
#include "base/orv_fileio.h"
#include "base/orv_path.h"
#include "base/orv_string.h"
#include "base/orv_time_text.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_stream.h"
#include "run/mft_entries_ctx.h"

namespace {

// Digest states fed with every chunk a copy writes, and the progress line of the copy.
struct content_feed {
  digest_request m_want;
  orv::md5_state m_md5;
  orv::sha1_state m_sha1;
  orv::sha256_state m_sha256;
  uint64_t m_inode = 0;
  uint64_t m_chunks = 0;
  bool m_progress = false;
};

void feed_chunk(void* user, const uint8_t* bytes, size_t length) {
  content_feed& feed = *static_cast<content_feed*>(user);
  if (feed.m_want.m_md5) orv::md5_update(feed.m_md5, bytes, length);
  if (feed.m_want.m_sha1) orv::sha1_update(feed.m_sha1, bytes, length);
  if (feed.m_want.m_sha256) orv::sha256_update(feed.m_sha256, bytes, length);
  ++feed.m_chunks;
  if (feed.m_progress) {
    char text[64];
    snprintf(text, sizeof(text), "inode: %llu, chunk: %llu", (unsigned long long)feed.m_inode,
             (unsigned long long)feed.m_chunks);
    show_text(40, text);
  }
}

// Holes of up to this many bytes are always read, whatever the volume's size.
constexpr uint64_t k_min_hole_limit = 1ull << 32;

bool has_data(const attrib_row& row) {
  if (row.m_non_resident) return !row.m_runs.empty() && row.m_allocated_size != 0;
  return row.m_value_length != 0 && !row.m_value.empty();
}

// "[root]" in front of an absolute directory, separators as '-', blanks as '_', no colons:
// "c:\windows" becomes "c-windows".
std::wstring directory_reason(const std::wstring& text) {
  std::wstring out;
  if (!text.empty() && (text[0] == L'\\' || text[0] == L'/')) out = L"[root]";
  for (wchar_t c : text) {
    if (c == L'\\' || c == L'/') out += L'-';
    else if (c == L' ') out += L'_';
    else if (c != L':') out += c;
  }
  return out;
}

// The directory under the status directory that tells why the record was selected.
std::wstring reason_directory(const entry_record& entry) {
  if (entry.m_filter_name) return entry.m_filter_name_text;
  if (entry.m_filter_ext) return entry.m_filter_ext_text;
  if (entry.m_filter_dir) return directory_reason(entry.m_filter_dir_text);
  if (entry.m_filter_type) return entry.m_filter_type_text;
  if (entry.m_filter_pattern) return L"wildcard";
  if (entry.m_filter_inode) return L"inodes";
  return L"catchall";
}

bool make_dir(const std::wstring& path) {
  const std::string narrow = orv::to_utf8(path);
  if (::mkdir(narrow.c_str(), 0777) == 0) return true;
  struct stat st;
  return errno == EEXIST && ::stat(narrow.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Linux takes at most 255 bytes for one path component; a long volume name gives way, cut at a
// character, so that the stamp, the digest and the stream suffix stay whole.
constexpr size_t k_component_bytes = 255;

std::wstring fit_component(const std::wstring& head, const std::wstring& name, const std::wstring& tail) {
  const size_t fixed = orv::to_utf8(head).size() + orv::to_utf8(tail).size();
  std::wstring kept = name;
  while (!kept.empty() && fixed + orv::to_utf8(kept).size() > k_component_bytes) kept.pop_back();
  return head + kept + tail;
}

}  // namespace

std::wstring path_component(const std::wstring& name) {
  std::wstring out = name;
  for (wchar_t& c : out)
    if (c == L'/' || c < 0x20 || c == 0x7F) c = L'_';
  if (!out.empty() && out.find_first_not_of(L'.') == std::wstring::npos) out.assign(out.size(), L'_');
  return out;
}

std::wstring copy_source_name(const entry_record& entry) {
  if (entry.m_file_names.size() == 1) return entry.m_file_names.begin()->second.m_name;
  for (const auto& kv : entry.m_file_names) {
    const file_name_entry& fn = kv.second;
    const uint8_t space = fn.name_space();
    if ((space == 0 || space % 2 == 1) && fn.m_inode == entry.m_inode) return fn.m_name;
  }
  return std::wstring();
}

bool read_stream_to(std::ostream& out, entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan,
                    const attrib_item& attribute, const digest_request& digests) {
  entry.m_has_md5 = entry.m_has_sha1 = entry.m_has_sha256 = false;
  CNtfs* volume = scan.m_source.volume();
  const attrib_row row = row_of_item(entry, attribute, 0, 0xFFFFFFFFu);
  // An extracted $MFT holds resident values only.
  if (!has_data(row) || (row.m_non_resident && !volume)) return false;

  content_feed feed;
  feed.m_want = digests;
  feed.m_inode = entry.m_inode;
  feed.m_progress = ctx.m_progress != 0;
  if (digests.m_md5) orv::md5_init(feed.m_md5);
  if (digests.m_sha1) orv::sha1_init(feed.m_sha1);
  if (digests.m_sha256) orv::sha256_init(feed.m_sha256);

  copy_options options;
  options.m_raw = ctx.m_copy_raw != 0;
  options.m_skip_sparse = ctx.m_skip_sparse != 0;
  options.m_feed = feed_chunk;
  options.m_feed_user = &feed;
  options.m_log = &scan.log();
  // Holes may make a stream larger than its volume (a sparse disk image), but not without bound.
  if (volume) {
    uint64_t room = volume->volume_bytes();
    const uint64_t source = volume->m_disk ? volume->m_disk->size() : 0;
    if (source && (room == 0 || source < room)) room = source;  // a boot sector may claim anything
    options.m_max_hole_bytes = std::max(room, k_min_hole_limit);
  }
  uint64_t total = 0;
  const bool copied = copy_attrib_data(volume, row, out, options, total);
  if (options.m_holes_refused)
    print_message("prob reading inode 0x%llx: its sparse ranges claim more than the volume holds; not read "
                  "(-skip_sparse_clusters reads what is stored)\n",
                  (unsigned long long)entry.m_inode);
  if (!copied || total == 0) {
    entry.m_hash_failed = digests.any();
    return false;
  }
  if (digests.m_md5) orv::md5_final(feed.m_md5, entry.m_md5.data()), entry.m_has_md5 = true;
  if (digests.m_sha1) orv::sha1_final(feed.m_sha1, entry.m_sha1.data()), entry.m_has_sha1 = true;
  if (digests.m_sha256) orv::sha256_final(feed.m_sha256, entry.m_sha256.data()), entry.m_has_sha256 = true;
  return true;
}

bool extract_attribute(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan,
                       const attrib_item& attribute, std::wstring& destination) {
  destination.clear();
  if (!has_data(row_of_item(entry, attribute, 0, 0xFFFFFFFFu))) return false;

  // Instances of a -cpu run share the directory: each has a temporary file of its own.
  std::wstring temp = ctx.m_results_dir + L"/";
  if (ctx.m_instance_number != 0xFFFFFFFFu) temp += std::to_wstring(ctx.m_instance_number);
  temp += L"__temp__.bin";
  const std::string temp_narrow = orv::to_utf8(temp);
  ::unlink(temp_narrow.c_str());  // never write through whatever stands at that name

  digest_request digests;
  digests.m_md5 = true;  // the copy's name carries it
  digests.m_sha1 = ctx.m_hash_sha1 != 0;
  digests.m_sha256 = ctx.m_hash_sha256 != 0;
  {
    uni::fileio file;
    if (!file.open(temp, true)) {
      log_line(scan.log(), "prob opening %s for the copy of inode 0x%llx", temp_narrow.c_str(),
               (unsigned long long)entry.m_inode);
      return false;
    }
    uni::file_streambuf buffer(file);
    std::ostream out(&buffer);
    bool read = read_stream_to(out, entry, ctx, scan, attribute, digests);
    out.flush();
    if (!read || !out) {
      if (read) log_line(scan.log(), "prob writing the copy of inode 0x%llx", (unsigned long long)entry.m_inode);
      file.close();
      ::unlink(temp_narrow.c_str());
      return false;
    }
  }

  const char* status = scan.m_unalloc_pass ? "deleted-unalloc"
                       : (!entry.in_use() || entry.m_deleted_mark) ? "deleted-mft"
                                                                   : "valid";
  std::wstring dir = ctx.m_results_dir + L"/" + orv::to_wide(status);
  make_dir(dir);
  const std::wstring reason = path_component(reason_directory(entry));
  std::wstring target = dir + L"/" + (reason.empty() ? L"catchall" : reason);
  if (!make_dir(target)) {
    target = dir + L"/catchall";
    make_dir(target);
  }

  const uint64_t modified = entry.m_std_infos.empty() ? 0 : entry.m_std_infos.begin()->second.modified();
  std::wstring head;
  orv::format_compact_stamp(head, modified, true);
  std::string md5;
  orv::append_hex(md5, entry.m_md5.data(), entry.m_md5.size());
  head += L"_" + orv::to_wide(md5) + L"_";
  std::wstring tail;
  if (!attribute.m_name.empty()) tail += L"." + attribute.m_name;
  if (attribute.m_label != "unnamed data" && !attribute.m_label.empty()) tail += L"_" + orv::to_wide(std::string(attribute.m_label));
  if (!ctx.m_use_orig_ext) tail += L".bin";
  std::wstring name = path_component(fit_component(head, path_component(copy_source_name(entry)), tail));
  // The row names the copy with the separator character replaced: the copy carries the same name,
  // so the path in the row is the path on disk.
  if (ctx.m_replace_char && !ctx.m_quoted_fields)
    std::replace(name.begin(), name.end(), wchar_t(ctx.m_replace_char), wchar_t(ctx.m_replace_with));
  const std::wstring path = target + L"/" + name;

  // The same name means the same content at the same time: a copy already there is this copy.
  if (::rename(temp_narrow.c_str(), orv::to_utf8(path).c_str()) != 0 && errno != EEXIST) {
    log_line(scan.log(), "prob renaming %s to %s", temp_narrow.c_str(), orv::to_utf8(path).c_str());
    ::unlink(temp_narrow.c_str());
    return false;
  }
  ::unlink(temp_narrow.c_str());
  destination = path;
  return true;
}

size_t extract_record(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan,
                      const std::function<void(const attrib_item&, const std::wstring&)>& copied) {
  // Streams named by -filter_inode or -filter_file for this record are taken whatever the selection says.
  const std::set<std::wstring>* named = nullptr;
  auto listed = scan.m_filter_inodes.find(entry.m_inode);
  if (listed != scan.m_filter_inodes.end() && !listed->second.m_stream_names.empty())
    named = &listed->second.m_stream_names;

  size_t taken = 0;
  for (const auto& kv : entry.m_attribs) {
    const attrib_item& item = kv.second;
    if (!item.m_is_data) continue;
    bool take = named && named->count(orv::lowered(item.m_name));
    if (!take) {
      if (ctx.m_copy_all) take = true;
      else if (ctx.m_copy_named_data) take = !item.m_name.empty();
      else take = item.m_name.empty() && item.m_label == "unnamed data";
    }
    if (!take) continue;
    ++taken;
    std::wstring destination;
    extract_attribute(entry, ctx, scan, item, destination);
    entry.m_extracted_path = destination;
    copied(item, destination);
  }
  return taken;
}

size_t extract_record(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan) {
  return extract_record(entry, ctx, scan, [](const attrib_item&, const std::wstring&) {});
}

const attrib_item* hash_unnamed_data(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan) {
  digest_request digests;
  digests.m_md5 = ctx.m_hash_md5 != 0;
  digests.m_sha1 = ctx.m_hash_sha1 != 0;
  digests.m_sha256 = ctx.m_hash_sha256 != 0;
  if (!digests.any()) return nullptr;
  for (const auto& kv : entry.m_attribs) {
    const attrib_item& item = kv.second;
    if (!item.m_is_data || !item.m_name.empty() || item.m_label != "unnamed data" || item.type() != 0x80) continue;
    uni::null_streambuf nothing;
    std::ostream out(&nothing);
    read_stream_to(out, entry, ctx, scan, item, digests);
    return &item;  // once per record
  }
  return nullptr;
}
