// Byte access to files, images and physical drives. Sources are always opened read-only.
#include "storage/orv_raw_disk_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/orv_string.h"
#include "storage/orv_vmdk.h"

namespace {

// Drives are "/dev/sda" .. "/dev/sdt": the letter table has 20 entries, although numbers up to 24
// pass the first range test.
constexpr uint32_t DISK_NUMBER_LIMIT = 25;
constexpr uint32_t DISK_LETTER_COUNT = 20;

}  // namespace

RAW_DISK_IO::RAW_DISK_IO() = default;
RAW_DISK_IO::~RAW_DISK_IO() { close(); }

void RAW_DISK_IO::close() {
  m_vmdk.reset();
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
  m_open = 0;
  m_size = 0;
  m_kind = RAW_KIND_NONE;
  m_disk_number = -1;
}

// Non-blocking, so that a FIFO without a writer cannot hang the open. Directories and device
// nodes pass; a directory then fails on its first read.
int open_source_read_only(const char* path, uint64_t& size) {
  int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC, 0404);
  if (fd < 0) return -1;
  struct stat st;
  if (fstat(fd, &st) != 0 || S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode)) {
    ::close(fd);
    return -2;
  }
  off_t end = lseek(fd, 0, SEEK_END);
  if (end < 0) {
    ::close(fd);
    return -2;
  }
  lseek(fd, 0, SEEK_SET);
  size = uint64_t(end);
  return fd;
}

// `writable` is accepted for the shape of the call only: no source of this program is ever
// opened for writing.
bool RAW_DISK_IO::open_path(const std::wstring& path, bool writable, uint32_t kind) {
  close();
  if (path.empty() || kind > 3) return false;  // 1, 2 and 3 with a path all read as a file
  m_path = path;
  m_path_utf8 = orv::to_utf8(path);
  if (m_path_utf8.empty()) return false;
  uint64_t size = 0;
  int fd = open_source_read_only(m_path_utf8.c_str(), size);
  if (fd < 0) return false;
  m_fd = fd;
  m_size = size;
  m_kind = RAW_KIND_FILE;
  m_writable = 0;
  m_bytes_per_sector = 512;
  m_open = 1;
  return true;
}

bool RAW_DISK_IO::open_disk(uint32_t number, bool writable) {
  close();
  if (number >= DISK_NUMBER_LIMIT) return false;
  m_kind = RAW_KIND_DISK;
  m_disk_number = int32_t(number);
  if (number >= DISK_LETTER_COUNT) return false;  // no device letter for it
  std::string device = "/dev/sd";
  device += char('a' + number);
  m_path_utf8 = device;
  m_path = orv::to_wide(device);
  uint64_t size = 0;
  int fd = open_source_read_only(device.c_str(), size);
  if (fd < 0) {
    if (fd == -1) fprintf(stderr, "prob opening %s, error %d\n", device.c_str(), errno);
    return false;
  }
  m_fd = fd;
  m_size = size;
  m_writable = 0;
  m_bytes_per_sector = 512;
  m_open = 1;
  return true;
}

bool RAW_DISK_IO::open_vmdk(const std::vector<std::wstring>& list, bool writable) {
  close();
  if (list.empty()) return false;
  std::unique_ptr<vmdk_reader> reader(new vmdk_reader());
  if (!load_list(*reader, list) || !link_chain(*reader) || reader->disk_size() == 0) return false;
  m_kind = RAW_KIND_VMDK;
  m_path = reader->m_top->m_path;
  m_path_utf8 = reader->m_top->m_path_utf8;
  m_size = reader->disk_size();
  m_writable = 0;
  m_bytes_per_sector = 512;
  m_vmdk = std::move(reader);  // the reader owns every disk's descriptor; m_fd stays -1
  m_open = 1;
  return true;
}

uint64_t RAW_DISK_IO::size() const {
  if (!m_open) return 0;
  if (m_size) return m_size;
  return uint64_t(m_cylinders) * m_tracks_per_cylinder * m_sectors_per_track * m_bytes_per_sector;
}

// Kind 0: seek, clamp at the end of the source, read. A single read() may legally deliver fewer
// bytes than asked even from a regular file, so this loops until the clamped length is in or the
// source returns 0; the caller sees the same result as from one complete read. Bytes that never
// arrive leave the buffer as it was.
// Positioned reads leave no file offset behind: one call per read, and two threads may read
// one source at once (the carving reads ahead while records are decoded).
static bool read_file(int fd, uint8_t* buffer, uint32_t& length, uint64_t offset, uint64_t size) {
  if (offset > uint64_t(INT64_MAX)) return false;
  if (uint64_t(length) > size - offset) length = uint32_t(size - offset);
  uint32_t done = 0;
  while (done < length) {
    ssize_t got = ::pread(fd, buffer + done, length - done, off_t(offset + done));
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (got == 0) break;
    done += uint32_t(got);
  }
  return true;
}

// Kind 3: devices take whole sectors only. An unaligned request goes through a temporary buffer
// that covers it; an aligned one lands straight in the caller's buffer. There is no clamp: a read
// across the end of the device simply comes back short. A device error (-1) is not a failure of
// the read: the sectors it covers read as zeros, so a bad sector never stops an examination.
static bool read_sectors(int fd, uint8_t* buffer, uint32_t length, uint64_t offset, uint32_t sector) {
  uint64_t head = offset % sector;
  uint64_t span = (head + length + sector - 1) / sector * sector;
  bool aligned = head == 0 && span == length;
  std::vector<uint8_t> temp;
  uint8_t* target = buffer;
  if (!aligned) {
    temp.assign(size_t(span), 0);
    target = temp.data();
  }
  if (offset - head > uint64_t(INT64_MAX)) return false;
  ssize_t got = ::pread(fd, target, size_t(span), off_t(offset - head));
  if (got == 0) return false;
  if (got < 0 && aligned) memset(buffer, 0, length);
  if (!aligned) memcpy(buffer, temp.data() + head, length);
  return true;
}

bool RAW_DISK_IO::read(uint8_t* buffer, uint32_t& length, uint64_t offset, bool snapshot) {
  if (!buffer || !m_open || length == 0 || offset >= m_size) return false;
  switch (m_kind) {
    case RAW_KIND_FILE:
      return read_file(m_fd, buffer, length, offset, m_size);
    case RAW_KIND_DISK:
      if (m_closed_for_reads) return false;
      return read_sectors(m_fd, buffer, length, offset, m_bytes_per_sector ? m_bytes_per_sector : 512);
    case RAW_KIND_VMDK:
      // The chain zero-fills holes itself; like a file, a read is clamped at the disk's end.
      if (!m_vmdk) return false;
      if (uint64_t(length) > m_size - offset) length = uint32_t(m_size - offset);
      return m_vmdk->read(buffer, offset, length);
    default:
      return false;
  }
}
