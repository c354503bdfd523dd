// Timestamp anomaly analysis. Tools that rewrite a file's times usually reach only the standard
// information; the file-name times stay behind. Comparing the two within one record leaves one
// short warning for the writers. The first rule that fires decides.
#include "analysis/orv_time_analysis.h"

#include "analysis/entry_record.h"
#include "base/orv_time.h"

namespace {

const file_name_entry* first_long_name_under(const entry_record& entry, uint64_t parent_number) {
  for (const auto& pair : entry.m_file_names) {
    const file_name_entry& fn = pair.second;
    if (!fn.m_is_dos_name && fn.parent_number() == parent_number) return &fn;
  }
  return nullptr;
}

void warn(entry_record& entry, const std::string& text) {
  entry.m_time_warning = text;
  entry.m_has_time_warning = true;
}

}  // namespace

void analyse_timestamps(entry_record& entry, const mft_entries_ctx& ctx) {
  (void)ctx;
  entry.m_time_warning.clear();
  entry.m_has_time_warning = false;

  // An extension record carries no standard information of its own; only its names are tested.
  const si_entry* si = nullptr;
  if (entry.m_std_infos.empty()) {
    if (!entry.m_is_extension) {
      warn(entry, "si:time absent");
      return;
    }
  } else {
    si = &entry.m_std_infos.begin()->second;
  }
  if (entry.m_file_names.empty()) {
    warn(entry, "fn:time absent");
    return;
  }
  if (si && si->m_time_anomaly) {
    warn(entry, "si:time " + si->m_anomaly_text);
    return;
  }

  const uint64_t day = orv::FILETIME_TICKS_PER_DAY;
  for (const auto& pair : entry.m_file_names) {
    const file_name_entry& fn = pair.second;
    if (fn.m_time_anomaly) {
      warn(entry, "fn:time " + fn.m_anomaly_text);
      return;
    }
    if (fn.m_is_dos_name) {
      // The short and the long name of one file are written together: a differing access time
      // means one of them was set by hand. Only the first long name in the directory counts.
      const file_name_entry* long_name = first_long_name_under(entry, fn.parent_number());
      if (long_name && long_name->accessed() != fn.accessed()) {
        warn(entry, "fnSL:time diff");
        return;
      }
    }
    // Created and MFT-changed standard times more than a day before the file-name times.
    if (si && si->created() + day < fn.created() && si->mft_modified() + day < fn.mft_modified()) {
      warn(entry, "**:time warning");
      return;
    }
  }
}
