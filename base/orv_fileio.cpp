#include "base/orv_fileio.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/orv_string.h"

namespace uni {

namespace {

constexpr uint64_t k_read_piece = 0x10000000;     // largest single read() call
constexpr uint64_t k_unseekable_guess = 0x40000;  // size assumed for /proc files that cannot seek

}  // namespace

fileio::~fileio() { close(); }

void fileio::close() {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
  m_size = 0;
  m_is_open = 0;
  m_is_writable = 0;
  m_memory.clear();
  m_position = 0;
  m_memory_mode = 0;
}

bool fileio::open(const std::wstring& path, bool writable) {
  close();
  m_path = path;
  orv::strip_trailing_slashes(m_path);
  if (m_path.empty()) return false;
  const std::string narrow = orv::to_utf8(m_path);

  int fd;
  if (writable) {
    // Keeping the content opens read-write as it is; otherwise the file is created or truncated.
    int flags = m_keep_open ? O_RDWR : (O_RDWR | O_CREAT | O_TRUNC);
    fd = ::open(narrow.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0606);
  } else {
    // Non-blocking so that opening a FIFO cannot wait for a writer; it is refused just below.
    fd = ::open(narrow.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  }
  if (fd < 0) return false;
  struct stat st;
  if (::fstat(fd, &st) != 0 || S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode)) {
    ::close(fd);
    return false;
  }
  int fl = ::fcntl(fd, F_GETFL);
  if (fl >= 0) ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);

  m_fd = fd;
  m_is_open = 1;
  m_is_writable = writable ? 1 : 0;
  m_size = fileio_size();
  return true;
}

bool fileio::open(const std::string& path, bool writable) { return open(orv::to_wide(path), writable); }

void fileio::open_memory(std::vector<uint8_t> bytes) {
  close();
  m_memory = std::move(bytes);
  m_memory_mode = 1;
  m_is_open = 1;
  m_size = m_memory.size();
}

uint64_t fileio::fileio_size() {
  if (m_memory_mode) return m_memory.size();
  if (m_fd < 0) return 0;
  off_t here = ::lseek(m_fd, 0, SEEK_CUR);
  off_t end = here < 0 ? off_t(-1) : ::lseek(m_fd, 0, SEEK_END);
  if (end < 0) {
    int err = errno;
    bool proc = m_path.compare(0, 5, L"/proc") == 0;
    return (err == EINVAL && proc) ? k_unseekable_guess : 0;
  }
  ::lseek(m_fd, here, SEEK_SET);
  return uint64_t(end);
}

uint64_t fileio::read_into(uint8_t* buffer, uint64_t length, uint64_t offset) {
  if (!m_is_open || !buffer || length == 0 || offset >= m_size) return 0;
  const uint64_t want = length < m_size - offset ? length : m_size - offset;
  if (m_memory_mode) {
    const uint64_t have = offset < m_memory.size() ? m_memory.size() - offset : 0;
    const uint64_t n = want < have ? want : have;
    if (n) std::copy(m_memory.begin() + ptrdiff_t(offset), m_memory.begin() + ptrdiff_t(offset + n), buffer);
    m_position = offset + n;
    return n;
  }
  // Positioned reads: no file offset is shared, so two threads may read one file at once.
  if (offset > uint64_t(INT64_MAX) - want) return 0;
  uint64_t done = 0;
  while (done < want) {
    uint64_t piece = want - done < k_read_piece ? want - done : k_read_piece;
    ssize_t n = ::pread(m_fd, buffer + done, size_t(piece), off_t(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += uint64_t(n);
  }
  return done;
}

bool fileio::read_at(std::vector<uint8_t>& buffer, uint64_t length, uint64_t offset) {
  if (!m_is_open || offset >= m_size) {
    buffer.clear();
    return false;
  }
  if (length == 0) {
    buffer.clear();
    return true;
  }
  // Never larger than what the file holds past the offset, whatever the caller asked for.
  buffer.resize(size_t(length < m_size - offset ? length : m_size - offset));
  buffer.resize(size_t(read_into(buffer.data(), buffer.size(), offset)));
  return !buffer.empty();
}

bool write_all(int fd, const void* data, size_t length) {
  const uint8_t* p = static_cast<const uint8_t*>(data);
  size_t done = 0;
  while (done < length) {
    ssize_t n = ::write(fd, p + done, length - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += size_t(n);
  }
  return true;
}

bool fileio::write(const void* data, size_t length) {
  if (m_fd < 0 || !m_is_writable || !write_all(m_fd, data, length)) return false;
  off_t at = ::lseek(m_fd, 0, SEEK_CUR);
  if (at > 0 && uint64_t(at) > m_size) m_size = uint64_t(at);
  return true;
}

file_streambuf::file_streambuf(fileio& file) : m_file(file), m_buffer(0x10000) {
  setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
}

file_streambuf::~file_streambuf() { sync(); }

int file_streambuf::sync() {
  const size_t pending = size_t(pptr() - pbase());
  setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
  return pending == 0 || m_file.write(m_buffer.data(), pending) ? 0 : -1;
}

file_streambuf::int_type file_streambuf::overflow(int_type c) {
  if (sync() != 0) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

std::streamsize file_streambuf::xsputn(const char* s, std::streamsize n) {
  if (n <= 0) return 0;
  if (size_t(n) <= size_t(epptr() - pptr())) {
    std::copy(s, s + n, pptr());
    pbump(int(n));
    return n;
  }
  if (sync() != 0) return 0;
  if (size_t(n) < m_buffer.size()) {
    std::copy(s, s + n, pptr());
    pbump(int(n));
    return n;
  }
  return m_file.write(s, size_t(n)) ? n : 0;
}

bool read_whole_file(const std::string& path, std::vector<uint8_t>& out) {
  out.clear();
  fileio file;
  if (!file.open(path)) return false;
  if (file.m_size == 0) return true;
  return file.read_at(out, file.m_size, 0);
}

}  // namespace uni
