#include "results/orv_link_paths.h"

#include <algorithm>
#include <vector>

#include "analysis/entry_record.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "run/mft_entries_ctx.h"

void write_hard_link_paths(const entry_record& entry, const scan_state& scan, results_stream& out,
                           const std::string& stream) {
  (void)scan;
  if (entry.m_file_names.empty() || entry.m_is_extension || entry.is_directory()) return;
  // By the record that holds each name, names of one record in their sorted order. A name held by
  // an extension record was read with it when the entry was built: a record that could not be
  // read left no name behind.
  std::vector<const file_name_entry*> names;
  for (const auto& kv : entry.m_file_names) names.push_back(&kv.second);
  std::stable_sort(names.begin(), names.end(),
                   [](const file_name_entry* a, const file_name_entry* b) { return a->m_inode < b->m_inode; });
  static const std::string k_root = "[root]";
  static const std::string k_corrupted = "<path corrupted>";
  std::string line;
  for (const file_name_entry* fn : names) {
    auto parent = entry.m_parent_names.find(fn->parent_ref());
    if (parent == entry.m_parent_names.end()) continue;
    const std::string& path = parent->second.m_path;
    // A broken chain names no place the file can be found at.
    if (path.find(k_corrupted) != std::string::npos) continue;
    line.clear();
    const bool rooted = path.compare(0, k_root.size(), k_root) == 0;
    line.append(path, rooted ? k_root.size() : 0, std::string::npos);
    line.append(fn->m_name_utf8);
    if (!stream.empty()) line.append(":").append(stream);
    line.push_back('\n');
    out.write(line);
  }
}

static void link_paths_record(entry_record& entry, const scan_state& scan, link_paths_writer& w) {
  write_hard_link_paths(entry, scan, w.m_out, std::string());
}

record_sink link_paths_sink(link_paths_writer& writer) { return sink_of<link_paths_record>(writer); }
