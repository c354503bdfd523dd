#pragma once
// All file access other than raw block sources goes through uni::fileio.
#include <cstdint>
#include <streambuf>
#include <string>
#include <vector>

namespace uni {

// Writes all `length` bytes to `fd`, again after short writes and interruptions. False when some
// byte could not be written: a full disk, a broken device.
bool write_all(int fd, const void* data, size_t length);

class fileio {
 public:
  fileio() = default;
  virtual ~fileio();
  fileio(const fileio&) = delete;
  fileio& operator=(const fileio&) = delete;

  // Read-only unless `writable`; writing creates and truncates (mode 0606). FIFOs and sockets
  // are refused. The path loses trailing slashes.
  bool open(const std::wstring& path, bool writable = false);
  bool open(const std::string& path, bool writable = false);
  // Memory form: reads come from `bytes`.
  void open_memory(std::vector<uint8_t> bytes);
  void close();
  bool is_open() const { return m_is_open != 0; }

  // Size by seeking to the end and back. An unseekable "/proc" path gives 0x40000; other failures 0.
  uint64_t fileio_size();
  // False at or past the end; true with a zero length. `buffer` is resized to
  // min(length, size - offset) and cut by whatever the reads could not deliver.
  bool read_at(std::vector<uint8_t>& buffer, uint64_t length, uint64_t offset);
  // Reads into caller memory; returns bytes read (0 at or past the end, or on failure).
  uint64_t read_into(uint8_t* buffer, uint64_t length, uint64_t offset);
  bool write(const void* data, size_t length);

  int m_fd = -1;
  uint64_t m_size = 0;
  uint8_t m_is_writable = 0;
  uint8_t m_is_open = 0;
  uint8_t m_keep_open = 0;
  std::wstring m_path;
  std::vector<uint8_t> m_memory;
  uint64_t m_position = 0;
  uint16_t m_memory_mode = 0;
};

// A std::ostream's buffer over a file opened for writing: small writes gather in 64 KiB, large
// ones go straight through. After a failed write the stream reports bad.
class file_streambuf : public std::streambuf {
 public:
  explicit file_streambuf(fileio& file);
  ~file_streambuf() override;

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* s, std::streamsize n) override;
  int sync() override;

 private:
  fileio& m_file;
  std::vector<char> m_buffer;
};

// A std::ostream's buffer that takes every byte and keeps none: a copy made for its digests only.
class null_streambuf : public std::streambuf {
 protected:
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

// Whole-file read; false when the file cannot be opened or read.
bool read_whole_file(const std::string& path, std::vector<uint8_t>& out);

}  // namespace uni
