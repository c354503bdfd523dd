#pragma once
// The one byte source below CNtfs: a file, image, or physical drive, read at a 64-bit byte offset.
// Every source is opened read-only; nothing in this program writes to one.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class vmdk_reader;

// Opens `path` read-only and non-blocking, refusing FIFOs and sockets, and finds its size by
// seeking to the end. The descriptor, or -1 when the open itself failed (errno tells why), -2 when
// the file was refused or cannot seek.
int open_source_read_only(const char* path, uint64_t& size);

enum raw_kind : uint32_t { RAW_KIND_FILE = 0, RAW_KIND_DISK = 3, RAW_KIND_VMDK = 4, RAW_KIND_NONE = 8 };

class RAW_DISK_IO {
 public:
  // Out of line: the VMDK reader is an incomplete type here, and an inline constructor would need
  // its destructor in every file that builds a RAW_DISK_IO.
  RAW_DISK_IO();
  virtual ~RAW_DISK_IO();
  RAW_DISK_IO(const RAW_DISK_IO&) = delete;
  RAW_DISK_IO& operator=(const RAW_DISK_IO&) = delete;

  // kind 0..3 with a path all open as a file (kind 0). FIFOs and sockets are refused.
  bool open_path(const std::wstring& path, bool writable, uint32_t kind);
  // "/dev/sd" + ('a' + number); numbers from 25 up fail at once.
  bool open_disk(uint32_t number, bool writable);
  // Kind 4: a VMDK disk or snapshot chain, named in any order; the reader links it by CID.
  bool open_vmdk(const std::vector<std::wstring>& list, bool writable);
  void close();

  // Reads up to `length` bytes at `offset`; `length` comes back reduced when the read is clamped
  // at the end of a file. False on a null buffer, zero length, closed source or offset >= size.
  bool read(uint8_t* buffer, uint32_t& length, uint64_t offset, bool snapshot = false);
  uint64_t size() const;
  bool is_open() const { return m_open != 0; }
  // Files and drives are read with pread and may be read from two threads at once; a VMDK chain
  // keeps its grain tables between reads and may not.
  bool reads_concurrently() const { return m_kind == RAW_KIND_FILE || m_kind == RAW_KIND_DISK; }

  std::unique_ptr<vmdk_reader> m_vmdk;
  int32_t m_disk_number = -1;
  uint8_t m_writable = 0;
  uint8_t m_closed_for_reads = 0;
  int32_t m_fd = -1;
  uint32_t m_cylinders = 0, m_tracks_per_cylinder = 0, m_sectors_per_track = 0;
  uint32_t m_bytes_per_sector = 512;
  uint64_t m_start_offset = 0;
  std::string m_path_utf8;
  std::wstring m_path;
  uint32_t m_kind = RAW_KIND_NONE;
  uint32_t m_open = 0;
  uint64_t m_size = 0;
};
