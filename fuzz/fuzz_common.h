#pragma once
// Shared pieces of the fuzz targets: the input as an in-memory file that the program opens by
// path, and a cheap choice of options taken from the input bytes.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzz {

// An anonymous in-memory file holding `size` bytes, reachable as /proc/self/fd/N.
class memory_file {
 public:
  memory_file(const uint8_t* data, size_t size) {
    m_fd = memfd_create("brimlock-fuzz", 0);
    if (m_fd < 0) return;
    size_t done = 0;
    while (done < size) {
      ssize_t n = write(m_fd, data + done, size - done);
      if (n <= 0) break;
      done += size_t(n);
    }
    m_path = "/proc/self/fd/" + std::to_string(m_fd);
  }
  ~memory_file() {
    if (m_fd >= 0) close(m_fd);
  }
  memory_file(const memory_file&) = delete;
  memory_file& operator=(const memory_file&) = delete;
  bool ok() const { return m_fd >= 0; }
  const std::string& path() const { return m_path; }

 private:
  int m_fd = -1;
  std::string m_path;
};

// A small number mixed from every byte of the input, so each input always runs with the same
// options while mutations still move between option sets.
inline uint32_t input_hash(const uint8_t* data, size_t size) {
  uint32_t h = 2166136261u;
  for (size_t i = 0; i < size; i += 61) h = (h ^ data[i]) * 16777619u;
  return h ^ uint32_t(size);
}

// Where the copies of a fuzz run go: a directory of this process.
inline std::string copy_directory() { return "/tmp/brimlock-fuzz-copies-" + std::to_string(getpid()); }

// Output options of one run, chosen by `bits`.
inline void add_run_options(std::vector<std::string>& args, uint32_t bits) {
  static const char* const formats[] = {nullptr, "-csv", "-no_whitespace", "-pair_datetime"};
  if (const char* f = formats[bits & 3]) args.push_back(f);
  if (bits & 0x04) args.push_back("-filerecord_offset");
  if (bits & 0x08) args.push_back("-filter_deleted_files");
  if (bits & 0x10) args.push_back("-action_include_zoneinfo");
  if (bits & 0x20) args.push_back("-action_include_clusterinfo");
  if (bits & 0x40) args.insert(args.end(), {"-filter_ext", "txt|exe"});
  if (bits & 0x80) args.push_back("-base10");
  if (bits & 0x100) args.insert(args.end(), {"-filter_sig", "mz|hive|sqlite"});
  if (bits & 0x200) args.push_back("-hide_dos_fntimes");
  if (bits & 0x1000) args.insert(args.end(), {"-md5", "-sha256", "-action_find_strings_in_hdr"});
  if (bits & 0x2000) args.push_back("-csvperpath");
  // Copies go to a directory of this process that run_main empties after every run.
  if (bits & 0x10000) args.insert(args.end(), {"-hashfile", "md5|sha1"});
  if (bits & 0x20000) args.push_back("-action_include_ownersid");
  // The timeline formats, bare paths and the record dump of a record the input picks.
  static const char* const timelines[] = {nullptr, "-csvl2t", "-bodyfile", "-filepath_only"};
  if (const char* f = timelines[(bits >> 18) & 3]) args.push_back(f);
  if ((bits & 0x300000) == 0x300000) args.insert(args.end(), {"-find_mft", std::to_string((bits >> 22) & 0x3F)});
  if (bits & 0x10000000) args.push_back("-regen_mft");  // a volume carves its MFT first
  if (bits & 0x4000) args.insert(args.end(), {"-action_copy_files", copy_directory(), bits & 0x8000 ? "-raw" : "-all"});
  args.insert(args.end(), {"-quiet", "-out", "/dev/null"});
}

int run_main(std::vector<std::string> args);

}  // namespace fuzz
