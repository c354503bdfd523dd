#pragma once
// Reader of an extracted $MFT file. Records are served from a read-ahead window, so a walk reads
// the file in large sequential blocks instead of one system call per record.
#include <cstdint>
#include <string>
#include <vector>

#include "base/orv_background_task.h"
#include "base/orv_fileio.h"

class mft_file_reader {
 public:
  bool open(const std::wstring& path);
  uint64_t size() const { return m_size; }
  // Reads `length` bytes at `offset` into `out` (resized to what was read). False at or past the end.
  bool read(std::vector<uint8_t>& out, uint64_t length, uint64_t offset);

 private:
  void fill_window(uint64_t want, uint64_t offset);

  uni::fileio m_file;
  uint64_t m_size = 0;
  std::vector<uint8_t> m_window;
  uint64_t m_window_start = 0;
  uint64_t m_last_end = 0;
  orv::block_read_ahead m_ahead;  // the window after this one; last, so that its read stops first
};
