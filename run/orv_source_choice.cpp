// Choosing the source of a run and checking the volume on it before anything is written.
#include "run/orv_source_choice.h"

#include <cstdio>
#include <cstring>
#include <sstream>

#include "base/orv_path.h"
#include "base/orv_string.h"
#include "run/mft_entries_ctx.h"
#include "storage/orv_raw_disk_io.h"
#include "storage/orv_validate_volume.h"
#include "storage/orv_vmdk.h"

namespace {

enum source_kind { source_image, source_mounted, source_drive, source_vmdk };

std::string narrow(const std::wstring& text) { return orv::to_utf8(text); }

// What a caller makes of the volume check. A partitioned source without a fitting -offset stops
// with the list of volumes; a single bare volume at offset 0 runs on; a VMDK chain runs on with
// the NTFS volume the check settled on.
bool volume_accepted(source_kind kind, bool offset_given, bool ok, bool found, uint64_t offset) {
  if (ok) return true;
  switch (kind) {
    case source_image:
      return !offset_given && found && offset == 0;
    case source_mounted:
    case source_drive:
      return found && offset == 0;
    case source_vmdk:
      return found;
  }
  return false;
}

// Runs the volume check on an opened disk; prints the gathered messages when the caller stops.
bool choose_volume(source_kind kind, RAW_DISK_IO& disk, uint64_t& offset, bool offset_given, bool ignore_size) {
  std::ostringstream messages;
  bool found = false;
  uint64_t checked = offset;
  bool ok = validate_volume(messages, found, checked, disk, ignore_size);
  if (!volume_accepted(kind, offset_given, ok, found, checked)) {
    fprintf(stderr, "%s\n", messages.str().c_str());
    return false;
  }
  offset = checked;
  return true;
}

int image_source(mft_entries_ctx& ctx, const std::wstring& value, std::vector<std::wstring>& list) {
  std::wstring path = orv::normalize_path(narrow(value), '/');
  RAW_DISK_IO disk;
  if (path.empty() || !disk.open_path(path, false, 0)) {
    fprintf(stderr, "prob reading: %s, aborting\n,", narrow(path.empty() ? value : path).c_str());
    return -1;
  }
  bool offset_given = ctx.m_volume_offset != 0;
  if (offset_given) ctx.m_ignore_image_size = find_flag(std::wstring(L"-ignore_image_size"), list, false) ? 1 : 0;
  uint64_t offset = ctx.m_volume_offset;
  if (!choose_volume(source_image, disk, offset, offset_given, ctx.m_ignore_image_size != 0)) return -1;
  if (!offset_given && offset == 0) {
    ctx.m_image_volume_path = path;  // the image is one bare volume
  } else {
    ctx.m_image_path = path;
    ctx.m_volume_offset = offset;
  }
  return 0;
}

int mounted_source(mft_entries_ctx& ctx, const std::wstring& value, std::vector<std::wstring>& list) {
  ctx.m_mounted_vmdk = value;
  RAW_DISK_IO disk;
  disk.open_path(value, false, 0);
  bool offset_given = ctx.m_volume_offset != 0;
  if (offset_given) ctx.m_ignore_image_size = find_flag(std::wstring(L"-ignore_image_size"), list, false) ? 1 : 0;
  uint64_t offset = ctx.m_volume_offset;
  if (!choose_volume(source_mounted, disk, offset, offset_given, ctx.m_ignore_image_size != 0)) return -1;
  ctx.m_volume_offset = offset;
  return 0;
}

int drive_source(mft_entries_ctx& ctx, const std::wstring& value, std::vector<std::wstring>& list) {
  orv::parse_u32(narrow(value), ctx.m_drive_num);
  RAW_DISK_IO disk;
  disk.open_disk(ctx.m_drive_num, false);
  bool offset_given = ctx.m_volume_offset != 0;
  if (offset_given) ctx.m_ignore_image_size = find_flag(std::wstring(L"-ignore_image_size"), list, false) ? 1 : 0;
  uint64_t offset = ctx.m_volume_offset;
  if (!choose_volume(source_drive, disk, offset, offset_given, ctx.m_ignore_image_size != 0)) return -1;
  ctx.m_volume_offset = offset;
  return 0;
}

std::string joined_names(const std::vector<std::wstring>& list) {
  std::string out;
  for (size_t i = 0; i < list.size(); ++i) {
    if (i) out += " | ";
    out += narrow(list[i]);
  }
  return out;
}

}  // namespace

bool check_vmdk_files(const std::vector<std::wstring>& list, std::ostringstream& messages,
                      std::vector<std::wstring>& suggested) {
  return validate_vmdk_list(list, messages, suggested);
}

bool open_vmdk_files(RAW_DISK_IO& disk, const std::vector<std::wstring>& list) { return disk.open_vmdk(list, false); }

bool parse_vmdk(cmd_params& p, std::vector<std::wstring>& list, vmdk_check_function open_function,
                vmdk_open_function probe_function, bool quiet) {
  std::wstring value;
  if (!find_value(std::wstring(L"-vmdk"), value, list)) return true;
  p.m_vmdk_list.clear();
  for (const std::wstring& name : orv::split(value, L"|,;", true))
    if (!name.empty()) p.m_vmdk_list.push_back(name);
  while (find_value(std::wstring(L"-vmdk"), value, list)) {
    std::wstring name = orv::trim(value);
    if (!name.empty()) p.m_vmdk_list.push_back(name);
  }
  if (find_value(std::wstring(L"-offset"), value, list)) orv::parse_u64(narrow(value), p.m_vmdk_offset);
  if (p.m_vmdk_list.empty()) {
    if (!quiet) fprintf(stderr, "%s can't be opened\n", narrow(value).c_str());
    return false;
  }

  std::ostringstream messages;
  std::vector<std::wstring> suggested;
  bool chain_ok = open_function && open_function(p.m_vmdk_list, messages, suggested);
  if (!quiet && !messages.str().empty()) fprintf(stderr, "%s\n", messages.str().c_str());
  if (!chain_ok) {
    if (!quiet && !suggested.empty())
      fprintf(stderr, "suggested array: %s \"%s\"\n", "-vmdk", joined_names(suggested).c_str());
    return false;
  }
  // The check found every parent: the run reads the whole chain.
  if (!suggested.empty()) p.m_vmdk_list = suggested;

  RAW_DISK_IO disk;
  if (!probe_function || !probe_function(disk, p.m_vmdk_list)) {
    if (!quiet) fprintf(stderr, "%s can't be opened\n", narrow(p.m_vmdk_list.front()).c_str());
    return false;
  }
  bool offset_given = p.m_vmdk_offset != 0;
  bool ignore_size = offset_given && find_flag(std::wstring(L"-ignore_image_size"), list, false);
  std::ostringstream volume_messages;
  bool found = false;
  uint64_t offset = p.m_vmdk_offset;
  bool ok = validate_volume(volume_messages, found, offset, disk, ignore_size);
  if (!volume_accepted(source_vmdk, offset_given, ok, found, offset)) {
    if (!quiet) fprintf(stderr, "%s\n", volume_messages.str().c_str());
    return false;
  }
  p.m_vmdk_offset = offset;
  return true;
}

int choose_source(mft_entries_ctx& ctx, std::vector<std::wstring>& list) {
  std::wstring value;
  if (find_value(std::wstring(L"-image"), value, list)) return image_source(ctx, value, list);
  if (find_value(std::wstring(L"-mounted_vmdk"), value, list)) return mounted_source(ctx, value, list);
  if (find_value(std::wstring(L"-drivenum"), value, list)) return drive_source(ctx, value, list);
  if (has_arg(std::wstring(L"-vmdk"), list, 0) || !ctx.m_vmdk_list.empty()) {
    if (!parse_vmdk(ctx, list, check_vmdk_files, open_vmdk_files, false)) return -1;
    ctx.m_volume_offset = ctx.m_vmdk_offset;
    return 0;
  }
  if (find_value(std::wstring(L"-indxfile"), value, list)) {
    ctx.m_indx_file = value;
    return 0;
  }
  if (!ctx.m_partition.empty() || !ctx.m_mftfile_path.empty()) return 0;
  fprintf(stderr, "error: need to specify at least an input source [-mftfile, -image, -drivenum, -partition, -vmdk]\n");
  return -3;
}
