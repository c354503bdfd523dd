#include "ntfs/orv_mft_file_reader.h"

#include <algorithm>
#include <cstring>

namespace {
// Records of an extracted $MFT are served from a window of this size, so a walk costs one read
// per megabyte rather than one per record.
constexpr uint64_t k_window_bytes = 1 << 20;
}

bool mft_file_reader::open(const std::wstring& path) {
  m_ahead.drop();
  m_window.clear();
  m_window_start = 0;
  if (!m_file.open(path, false)) return false;
  m_size = m_file.fileio_size();
  return true;
}

// Fills the window from `offset` on: from the read-ahead when it holds exactly these bytes. The
// window after it is then read on the read-ahead thread while this one is used.
void mft_file_reader::fill_window(uint64_t want, uint64_t offset) {
  const uint64_t span = std::min(std::max(want, k_window_bytes), m_size - offset);
  if (!m_ahead.take(offset, span, m_window)) {
    m_window.resize(span);
    m_window.resize(m_file.read_into(m_window.data(), span, offset));
  }
  m_window_start = offset;
  const uint64_t next = offset + m_window.size();
  if (m_window.size() != span || next >= m_size) return;
  m_ahead.start(next, std::min(k_window_bytes, m_size - next),
                [this](uint8_t* into, uint64_t length, uint64_t at) { return m_file.read_into(into, length, at); });
}

bool mft_file_reader::read(std::vector<uint8_t>& out, uint64_t length, uint64_t offset) {
  if (offset >= m_size || length == 0) return false;
  uint64_t want = std::min(length, m_size - offset);
  uint64_t window_end = m_window_start + m_window.size();
  bool inside = offset >= m_window_start && offset + want <= window_end;
  if (!inside) {
    // Only a walk that goes on where it left off refills the window; a lookup elsewhere (a parent
    // directory, an extension record) is read on its own and leaves the window in place.
    bool sequential = m_window.empty() || offset == window_end || offset == m_last_end;
    if (!sequential) {
      out.resize(want);
      out.resize(m_file.read_into(out.data(), want, offset));
      m_last_end = offset + out.size();
      return !out.empty();
    }
    fill_window(want, offset);
    if (m_window.empty()) return false;
  }
  uint64_t from = offset - m_window_start;
  uint64_t avail = std::min<uint64_t>(want, m_window.size() - from);
  out.assign(m_window.begin() + long(from), m_window.begin() + long(from + avail));
  m_last_end = offset + out.size();
  return !out.empty();
}
