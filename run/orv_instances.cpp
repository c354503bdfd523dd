// -cpu runs: the record range cut into slices, one child process of this program per slice,
// and the children's results merged in slice order into the -out file.
#include "run/orv_instances.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>

#include "analysis/entry_record.h"
#include "analysis/orv_mft_scan.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_console.h"
#include "base/orv_fileio.h"
#include "base/orv_path.h"
#include "base/orv_string.h"
#include "run/mft_entries_ctx.h"

namespace {

// Children beyond this many only compete for the same disk; more are not started.
constexpr uint32_t k_max_instances = 64;
// The banner and heading of a child's file must lie within this many bytes.
constexpr size_t k_merge_probe = 16384;

// Children and their temporary files, for a signal that ends the run part-way: the children
// are ended with the parent and nothing is left behind. Names are kept as C strings, which the
// handler may use.
struct children_in_flight {
  std::vector<pid_t> m_pids;
  std::vector<std::unique_ptr<char[]>> m_temp_files;
};
children_in_flight* g_in_flight = nullptr;

void end_children(int sig) {
  if (children_in_flight* run = g_in_flight) {
    for (pid_t pid : run->m_pids)
      if (pid > 0) ::kill(pid, SIGTERM);
    for (const auto& name : run->m_temp_files) ::unlink(name.get());
  }
  ::signal(sig, SIG_DFL);
  ::raise(sig);
}

// Starts this program with `args`, its standard output (the banner) thrown away. -1 on failure.
pid_t spawn_child(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

std::string hex_text(uint64_t value) {
  char text[32];
  snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

std::string random_text(std::mt19937_64& generator, size_t length) {
  static const char k_chars[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::uniform_int_distribution<size_t> pick(0, sizeof(k_chars) - 2);
  std::string out;
  for (size_t i = 0; i < length; ++i) out += k_chars[pick(generator)];
  return out;
}

// Records of the source: the size of the $MFT data stream over the record size.
uint64_t count_records(const mft_entries_ctx& c) {
  scan_state scan;
  scan_state_for(scan, c);
  if (!ensure_source_open(c, scan)) return 0;
  // A carved MFT counts its own records: record 0 still tells the size of the $MFT that was lost.
  if (c.m_regen_mft && scan.m_mft_total) return scan.m_mft_total;
  entry_record entry;
  uint64_t total = 0;
  if (read_entry(entry, scan, 0, false)) {
    for (const auto& item : entry.m_attribs) {
      if (item.second.type() != 0x80) continue;
      uint64_t size = item.second.non_resident() ? item.second.real_size() : item.second.value_length();
      total = size / scan.m_source.record_size();
      break;
    }
  }
  return total;
}

// Appends what is left of `in` to `out`: copied inside the kernel where it can be, through a
// buffer where not (another file system, an old kernel).
bool copy_rest(int in, int out) {
  for (;;) {
    ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, size_t(1) << 30, 0);
    if (n == 0) return true;
    if (n < 0) break;
  }
  if (errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP) return false;
  std::vector<char> buffer(1 << 20);
  ssize_t n;
  while ((n = ::read(in, buffer.data(), buffer.size())) > 0)
    if (!uni::write_all(out, buffer.data(), size_t(n))) return false;
  return n == 0;
}

bool is_blank_line(const std::string& text, size_t begin, size_t end) {
  for (size_t i = begin; i < end; ++i)
    if (!strchr(" \t\r\n", text[i])) return false;
  return true;
}

}  // namespace

std::vector<instance_slice> instance_slices(uint64_t total, uint32_t instance_count, uint64_t first_start) {
  std::vector<instance_slice> out;
  if (instance_count == 0) return out;
  uint64_t size = total / instance_count;
  uint64_t start = first_start;
  for (uint32_t i = 0; i < instance_count; ++i) {
    out.push_back({start, size});
    start += size;
    // The last slice takes the remainder; it is measured from the total, not from first_start.
    if (i + 2 == instance_count) size = total > start ? total - start : 0;
  }
  return out;
}

// Where a child's rows begin: the first instance keeps its heading line, the others drop it.
// npos when the place is not within the bytes given.
size_t merge_start(const std::string& head, bool first_instance) {
  size_t pos = 0;
  bool seen_empty = false;
  while (pos < head.size()) {
    size_t eol = head.find('\n', pos);
    if (eol == std::string::npos) return std::string::npos;
    bool empty = is_blank_line(head, pos, eol);
    pos = eol + 1;
    if (!seen_empty) {
      if (!empty) continue;
      seen_empty = true;
      if (!first_instance) continue;
    } else if (empty) {
      continue;
    }
    while (pos < head.size() && (head[pos] == '\r' || head[pos] == '\n')) ++pos;
    return pos;
  }
  return std::string::npos;
}

int run_instances(const mft_entries_ctx& c, uint32_t instance_count, const std::vector<std::string>& child_arguments,
                  const std::string& work_directory, const std::string& banner) {
  if (instance_count > k_max_instances) instance_count = k_max_instances;
  if (instance_count == 0) return 0;
  uint64_t total = c.m_mft_range ? c.m_mft_range : count_records(c);
  if (total == 0) {
    fprintf(stderr, "prob handling your options, aborting\n");
    return 0;
  }
  if (c.m_out_path.empty()) return 0;

  const std::string out_path = c.m_out_path;
  bool written = true;  // every byte of the merged file went out
  if (c.m_separate_files) {
    struct stat st;
    if (::lstat(out_path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) ::unlink(out_path.c_str());
  } else {
    int fd = ::open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0) {
      fprintf(stderr, "prob writing to output file: %s\n", out_path.c_str());
      log_line(c, "prob writing to output file: %s", out_path.c_str());
      return 0;
    }
    if (banner.empty()) log_line(c, "banner not present");
    std::string head = banner + "\n";
    written = uni::write_all(fd, head.data(), head.size());
    ::close(fd);
  }

  // The children are this same program, found through the running image where possible.
  std::vector<std::string> base_args = child_arguments;
  char self[4096];
  ssize_t self_length = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
  if (self_length > 0 && !base_args.empty()) base_args[0].assign(self, size_t(self_length));

  std::string out_dir, out_name, out_ext;
  orv::split_path(out_path, out_dir, out_name, out_ext);
  if (!out_ext.empty()) out_name += "." + out_ext;

  std::mt19937_64 generator(std::random_device{}());
  std::vector<std::string> names(instance_count);
  children_in_flight children;
  const std::vector<instance_slice> slices = instance_slices(total, instance_count, c.m_mft_start);
  // The first child adds its rows to the results file straight after the banner; the others
  // write files of their own, appended to it in order once the first is done.
  const bool first_appends = !c.m_separate_files;
  for (uint32_t i = 0; i < instance_count; ++i) {
    if (c.m_separate_files) {
      char number[16];
      snprintf(number, sizeof(number), "%05u", i + 1);
      names[i] = work_directory + out_name + "." + number;
    } else if (i == 0 && first_appends) {
      names[i] = out_path;
    } else {
      names[i] = work_directory + std::to_string(i) + "_" + random_text(generator, 10) + "_temp.bin";
      children.m_temp_files.emplace_back(new char[names[i].size() + 1]);
      std::memcpy(children.m_temp_files.back().get(), names[i].c_str(), names[i].size() + 1);
    }
  }
  g_in_flight = &children;
  auto previous_int = ::signal(SIGINT, end_children);
  auto previous_term = ::signal(SIGTERM, end_children);
  for (uint32_t i = 0; i < instance_count; ++i) {
    std::vector<std::string> args = base_args;
    args.insert(args.end(), {"-mftstart", hex_text(slices[i].m_start), "-mftrange", hex_text(slices[i].m_count),
                             "-quiet", "-cpuinst", std::to_string(i), "-cpu", std::to_string(instance_count), "-out",
                             names[i]});
    if (i == 0 && first_appends) args.push_back("-cpuappend");
    // Each child keeps a debug log of its own beside the parent's.
    for (size_t k = 1; k + 1 < args.size(); ++k)
      if (orv::lowered(args[k]) == "-diags") args[k + 1] += "." + std::to_string(i);
    children.m_pids.push_back(spawn_child(args));
  }
  fprintf(stderr, "%2d instances spawned\n", int(instance_count));

  bool headed = false;  // the merged file has its heading line
  // Bare paths and the record dump have no heading line: every child's lines are rows.
  const bool headings = c.m_header_line && !c.m_filepath_only && !c.m_find_mft;
  for (uint32_t i = 0; i < instance_count; ++i) {
    int status = 0;
    if (children.m_pids[i] > 0) ::waitpid(children.m_pids[i], &status, 0);
    children.m_pids[i] = -1;
    fprintf(stderr, "instance %2d done\n", int(i));
    if (c.m_separate_files) continue;
    if (i == 0 && first_appends) {
      // Its rows are in place; a child that could not write them all ends with a failure.
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) written = false;
      struct stat st;
      if (::stat(out_path.c_str(), &st) == 0 && uint64_t(st.st_size) > banner.size() + 1) headed = true;
      continue;
    }

    int in = ::open(names[i].c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (in < 0) {
      log_line(c, "prob accessing %s - for merge", names[i].c_str());
    } else {
      std::string head(k_merge_probe, '\0');
      ssize_t got = ::read(in, &head[0], head.size());
      head.resize(got > 0 ? size_t(got) : 0);
      // The heading comes from the first child that wrote one: a first slice that selected
      // nothing wrote none.
      size_t from = merge_start(head, !headed || !headings);
      if (from != std::string::npos && from < head.size()) headed = true;
      // Not O_APPEND, which the kernel's copy refuses: the end is sought once, nobody else writes.
      int out = from == std::string::npos ? -1 : ::open(out_path.c_str(), O_WRONLY | O_CLOEXEC);
      if (out >= 0 && ::lseek(out, 0, SEEK_END) < 0) written = false;
      if (out >= 0) {
        bool ok = uni::write_all(out, head.data() + from, head.size() - from) && copy_rest(in, out);
        if (::close(out) != 0 || !ok) written = false;
      }
      ::close(in);
    }
    ::unlink(names[i].c_str());
  }
  ::signal(SIGINT, previous_int);
  ::signal(SIGTERM, previous_term);
  g_in_flight = nullptr;
  if (!written) {
    fprintf(stderr, "prob writing results file %s, aborting\n", out_path.c_str());
    return 0;
  }
  return 1;
}
