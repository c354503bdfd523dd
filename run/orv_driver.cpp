// The road of one run: options, banner, results stream, the choice of scans, teardown.
#include "run/orv_driver.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>

#include "analysis/orv_mft_scan.h"
#include "analysis/orv_scan_state.h"
#include "analysis/orv_unalloc_scan.h"
#include "base/orv_console.h"
#include "base/orv_path.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "base/orv_version.h"
#include "ntfs/ntfs.h"
#include "results/orv_bodyfile_rows.h"
#include "results/orv_default_results.h"
#include "results/orv_hash_rows.h"
#include "results/orv_l2t_rows.h"
#include "results/orv_link_paths.h"
#include "results/orv_path_rows.h"
#include "results/orv_text_dump.h"
#include "run/mft_entries_ctx.h"
#include "run/orv_instances.h"
#include "run/orv_walk_options.h"

const char* const k_tool_name = "brimlock";
const char* const k_version_text = "ver: " BRIMLOCK_VERSION;

namespace {

const char* const k_usage_lines[] = {
    "usage:\n",
    "\n",
    " Running 'brimlock' on an extracted $MFT file\n",
    "  brimlock -mftfile <name> [-opts]        = source is extract $MFT file\n",
    "\n",
    " Running 'brimlock' on a disk/partition image captured w/ a 'dd' type tool\n",
    "  brimlock -image <file> [-offset <vol>]  = dd image\n",
    "\n",
    " Running 'brimlock' on a VMWare monolithic virtual volume\n",
    "  -vmdk \"disk1 | disk2 | ...\"             = VMWare VMDK disk(s)\n",
    "\n",
    " Filter 'OR' logic options\n",
    "  -filter_ext \"ext1 | ext2 | ...\"         = extract using exts\n",
    "  -filter_name \"name1 | name2 | ...\"      = extract using partial names\n",
    "  -filter_fullname \"name1 | name2 | ...\"  = extract using full names\n",
    "  -filter_dir \"dir1 | dir2 | ...\"         = extract using dirs\n",
    "  -filter_file \"path/file1 | ...\"         = extract specified files\n",
    "  -filter_dir_inode \"inode1 | inode2 ..\"  = extract using dir inodes\n",
    "  -filter_inode \"inode1 | inode2 | ...\"   = extract specified inodes\n",
    "  -filter_sig \"mz | hive | evt | sqlite\"  = extract using signatures\n",
    "  -filter_max_size <size>                 = extract if doesn't exceed size\n",
    "  -filter_min_ads_size <size>             = extract ADS sizes greater than\n",
    "\n",
    " Filter 'AND' logic options\n",
    "  -filter_start_time <date time>          = format \"mm/dd/yyyy hh:mm:ss\"\n",
    "  -filter_stop_time <date time>           = format \"mm/dd/yyyy hh:mm:ss\"\n",
    "  -filter_deleted_files                   = analyzes only filerecs in $MFT\n",
    "  -filter_deleted_files_all               = analyzes both $MFT and unalloc\n",
    "  -filter_unalloc_clusters                = analyze unallocated clusters\n",
    "  -filter_all_clusters                    = analyze $MFT & unalloc clusters\n",
    "\n",
    " Extraction options\n",
    "  -action_copy_files <dir> [-raw]         = extract file into dir\n",
    "         [-raw]                           = incl slack & skip sparse clusters\n",
    "         [-skip_sparse_clusters]          = don't incl sparse clusters\n",
    "  -action_include_header                  = extracts 0x20 bytes from file\n",
    "  -action_find_strings_in_hdr             = find strings in first 0x100 bytes\n",
    "  -action_include_clusterinfo             = show cluster info\n",
    "  -action_include_zoneinfo                = show any ADS: Zone info\n",
    "  -action_include_ownersid                = show owner SID\n",
    "\n",
    " Results file format options\n",
    "  -csv                                    = csv format, has most output\n",
    "  -csvl2t                                 = log2timeline format\n",
    "  -bodyfile                               = bodyfile format\n",
    "  -csvperpath                             = only one csv entry/pathfile\n",
    "  -hashfile  \"md5 | sha1 | sha256\"        = display hashes in output\n",
    "\n",
    " General purpose options\n",
    "  -out <results file>                     = output results to this file\n",
    "  -hide_dos_fntimes                       = don't include dos 8.3 fn time\n",
    "  -hostname <name>                        = output hostname\n",
    "  -base10                                 = use base10 vice std::hex \n",
    "  -use_orig_ext                           = only for [-action_copy_files]\n",
    "  -script <file>                          = use file to express options\n",
    "  -mftstart <value> [-mftrange <value>]   = only process these inodes\n",
    "  -filerecord_offset                      = output the offset of the filerec\n",
    "  -quiet                                  = suppress progress during run\n",
    "  -dateformat mm/dd/yy                    = \"yyyy-mm-dd\" is the default\n",
    "  -timeformat hh:mm:ss                    = \"hh:mm:ss.xxx\" is the default\n",
    "  -pair_datetime                          = combine date/time into 1 field\n",
    "  -no_whitespace                          = remove whitespace between delims\n",
    "  -csv_separator \"|\"                      = use a pipe char for separator\n",
    "\n",
    " Experimental option [split processing into multiple instances]\n",
    "  -cpu <#instances> -out <file> = merge instances into 1 file\n",
    "         [-tempdir <folder>]    = use this temp dir for file merge\n",
    "         [-separate_files]      = don't merge; each instance is separate file\n",
    "\n",
};

const char* const k_help_options[] = {"-h", "-help", "/?", "--help"};

std::string banner_line() { return std::string(k_tool_name) + " " + k_version_text; }

// Elapsed time of the run, reported when it is torn down; it goes last, after the context has
// closed the debug log, and so appends to that file by name.
class run_timer {
 public:
  run_timer() = default;
  virtual ~run_timer();
  void start(bool progress, bool profile, const std::string& diags_path) {
    m_progress = progress;
    m_profile = profile;
    m_diags_path = diags_path;
    m_start = std::chrono::steady_clock::now();
    m_started = true;
  }

 private:
  bool m_started = false;
  bool m_progress = false;
  bool m_profile = false;
  std::string m_diags_path;
  std::chrono::steady_clock::time_point m_start;
};

run_timer::~run_timer() {
  if (m_progress) erase_progress();
  if (!m_started) return;
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
  char text[64];
  snprintf(text, sizeof(text), "->%.3f secs", seconds);
  if (m_profile) fprintf(stderr, "%s\n", text);
  if (!m_diags_path.empty()) {
    int fd = ::open(m_diags_path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0) {
      std::string line = std::string(text) + "\n";
      ssize_t written = ::write(fd, line.data(), line.size());
      (void)written;
      ::close(fd);
    }
  }
}

// Only records that the scan can list select: those of inode filters, and of directory filters
// whose indexes gave their children (a size filter beside them selects files anywhere).
bool only_listed_records(const mft_entries_ctx& c, const scan_state& scan) {
  const bool sizes = c.m_filter_max_size || c.m_filter_min_size || c.m_filter_min_ads_size;
  return scan.m_dirs_listed && (scan.m_filter_dir_inodes.empty() || !sizes) && c.m_filter_names.empty() &&
         c.m_filter_ext.empty() && c.m_filter_wildcards.empty() &&
         !c.m_filter_deleted && !c.m_filter_deleted_all && c.m_signature_filters.empty() &&
         !scan.m_listed_records.empty();
}

// What a scan could not do, said once on standard error; the run goes on as the options ask.
void say_problem(scan_state& scan) {
  if (scan.m_problem.empty()) return;
  print_message("prob reading %s: %s, aborting\n", orv::to_utf8(scan.m_source_text).c_str(), scan.m_problem.c_str());
  scan.m_problem.clear();
}

// A volume the image or drive holds only in part: records and content past the end are missing.
void say_shortfall(const scan_state& scan) {
  const CNtfs* volume = scan.m_source.volume();
  if (!volume || !volume->m_disk) return;
  const uint64_t have = volume->m_disk->size(), need = volume->m_volume_offset + volume->volume_bytes();
  if (!have || need <= have) return;
  log_line(scan.log(), "source holds 0x%llx of 0x%llx bytes", (unsigned long long)have, (unsigned long long)need);
  print_message("prob reading %s: it holds 0x%llx of the 0x%llx bytes the volume needs; what lies past its end "
                "cannot be read\n",
                orv::to_utf8(scan.m_source_text).c_str(), (unsigned long long)have, (unsigned long long)need);
}

// The writer of the run, first match wins: the record dump of -find_mft, -csv's default rows, the
// timeline formats, the hash list; then -csvperpath (set also by -action_copy_files), bare paths,
// and the default rows for all else.
record_sink choose_sink(const mft_entries_ctx& c, default_writer& rows, path_writer& paths, hash_writer& hashes,
                        l2t_writer& timeline, bodyfile_writer& body, text_dump_writer& dump, link_paths_writer& links) {
  if (c.m_find_mft) return text_dump_sink(dump);
  if (c.m_fmt_csv) return default_rows_sink(rows);
  if (c.m_fmt_bodyfile) return bodyfile_rows_sink(body);
  if (c.m_fmt_l2t) return l2t_rows_sink(timeline);
  if (c.m_hash_list_format) return hash_rows_sink(hashes);
  if (c.m_csvperpath) return path_rows_sink(paths);
  if (c.m_filepath_only) return link_paths_sink(links);
  return default_rows_sink(rows);
}

// Picks the scans: the inode list alone, or a full scan, an unallocated pass, or both in turn.
void run_scans(const mft_entries_ctx& c, results_stream& out) {
  scan_state scan;
  scan_state_for(scan, c);
  default_writer writer(c, out);
  path_writer paths(c, out);
  hash_writer hashes(c, out);
  l2t_writer timeline(c, out);
  bodyfile_writer body(c, out);
  text_dump_writer dump(c, out);
  link_paths_writer links(c, out);
  const record_sink sink = choose_sink(c, writer, paths, hashes, timeline, body, dump, links);
  if (!ensure_source_open(c, scan)) return say_problem(scan);
  say_shortfall(scan);
  for (const std::string& text : scan.m_notices)
    print_message("prob reading %s: %s\n", orv::to_utf8(scan.m_source_text).c_str(), text.c_str());
  if (only_listed_records(c, scan)) {
    inode_list_scan(c, scan, sink);
    return say_problem(scan);
  }
  if (c.m_filter_all_clusters || c.m_filter_deleted_all) {
    // $MFT first: every record, or the deleted ones alone; then free clusters.
    scan.m_deleted_only = scan.m_and_logic = !c.m_filter_all_clusters;
    full_scan(c, scan, sink);
    say_problem(scan);
    if (c.m_progress) print_message("finished scanning MFT records from $MFT... proceeding to unallocated clusters\n");
    scan.m_deleted_only = false;
    scan.m_and_logic = true;
  } else if (!c.m_scan_unalloc) {
    full_scan(c, scan, sink);
    return say_problem(scan);
  }
  unalloc_scan(c, scan, sink);
  say_problem(scan);
}

std::string directory_of(const std::string& path) {
  std::string dir, name, ext;
  orv::split_path(path, dir, name, ext);
  return dir;
}

int multi_instance_run(const mft_entries_ctx& c, std::vector<std::string> child_args, const std::string& banner) {
  if (!c.m_out_given) {
    fprintf(stderr, "Need to specify an output file to put the merged results in [-out <file>]\n");
    return -1;
  }
  if (c.m_filter_deleted_all || c.m_scan_unalloc || c.m_filter_all_clusters) {
    fprintf(stderr, "The -cpu option only supports MFT analysis\n");
    return -1;
  }
  std::string work;
  std::vector<std::string> probe = child_args;
  std::string tempdir;
  if (!c.m_separate_files && find_value(std::string("-tempdir"), tempdir, probe)) {
    work = tempdir + "/";
  } else {
    work = directory_of(orv::to_utf8(c.m_results_path)) + "/";
  }
  orv::make_directory_tree(work);

  std::string value;
  for (const char* name : {"-cpu", "-out", "-outfile", "-tempdir", "-cpuinst"})
    while (find_value(std::string(name), value, child_args)) {
    }
  for (const char* name : {"-profile", "-separate_files", "-cpuappend"})
    while (find_flag(std::string(name), child_args, false)) {
    }
  return run_instances(c, c.m_instance_count, child_args, work, banner) - 1;
}

int single_instance_run(const mft_entries_ctx& c, const std::string& banner) {
  results_stream out;
  const std::string path = orv::to_utf8(c.m_results_path);
  if (!path.empty()) {
    if (!out.open_file(path, c.m_instance_appends != 0)) {
      fprintf(stderr, "prob opening file %s for output, aborting\n ", path.c_str());
      return -1;
    }
    if (!c.m_instance_appends) out << banner << "\n";
  }
  run_scans(c, out);
  if (!out.close() && !path.empty()) {
    // Safety over silence: a results file missing rows must never look like a finished run.
    fprintf(stderr, "prob writing results file %s, aborting\n", path.c_str());
    log_line(c, "prob writing results file %s", path.c_str());
    return -1;
  }
  return 0;
}

// Everything after the parse; the context is torn down by the caller.
int run_parsed(const mft_entries_ctx& c, const std::vector<std::string>& child_args, const std::string& banner,
               run_timer& timer) {
  timer.start(c.m_progress != 0, c.m_profile != 0, c.m_diags_path);

  if (!c.m_results_path.empty()) {
    std::string path = orv::to_utf8(c.m_results_path);
    std::string dir = directory_of(path);
    if (!dir.empty() && !orv::make_directory_tree(dir)) {
      fprintf(stderr, "prob creating archive file: %s, aborting\n", path.c_str());
      return -1;
    }
  }
  // A child instance never divides its slice again, whatever its options say.
  if (c.m_instance_count > 1 && c.m_instance_number == 0xFFFFFFFFu) return multi_instance_run(c, child_args, banner);
  return single_instance_run(c, banner);
}

}  // namespace

std::string usage_text() {
  std::string out(77, '-');
  out += "\n\n" + banner_line() + "\n\n";
  for (const char* line : k_usage_lines) out += line;
  return out;
}

std::string build_run_banner(const std::vector<std::string>& arguments) {
  std::string out = banner_line() + "\n\"cmd:";
  if (has_arg(std::string("-pipe"), arguments, 1)) out += "<filelist> ... | ";
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (i) out += ' ';
    if (arguments[i].find(' ') != std::string::npos) out += "'" + arguments[i] + "'";
    else out += arguments[i];
  }
  out += "\"\n";
  return out;
}

int brimlock_main(int argc, char** argv) {
  std::vector<std::string> args;
  for (int i = 0; i < argc; ++i) args.push_back(argv && argv[i] ? argv[i] : "");
  const std::vector<std::string> child_args = args;

  bool help = args.size() <= 1;
  for (const char* name : k_help_options) help = find_flag(std::string(name), args, false) || help;
  if (help) {
    std::string text = usage_text();
    fwrite(text.data(), 1, text.size(), stderr);
    fflush(stderr);
    return 0;
  }

  const std::string banner = build_run_banner(args);
  fwrite(banner.data(), 1, banner.size(), stdout);
  fflush(stdout);

  run_timer timer;  // declared first: it reports last, after the context is gone
  int status = 0;
  {
    std::unique_ptr<mft_entries_ctx> ctx(new mft_entries_ctx);
    int parsed = parse_walk_options(*ctx, args, k_version_text, std::string(), "NTFS$MFT");
    if (parsed == -2) {
      fprintf(stderr, "invalid cmd options, aborting\n");
      status = -1;
    } else if (parsed == -1) {
      status = -1;
    } else {
      status = run_parsed(*ctx, child_args, banner, timer);
    }
  }
  fflush(stdout);
  return status;
}
