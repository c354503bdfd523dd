#pragma once
// Where the file records of a run come from: an extracted $MFT file, or the $MFT of a volume.
// The scans, the entry decoder and the path walk read every record through one of these.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class CNtfs;
class mft_file_reader;

class record_source {
 public:
  record_source();
  ~record_source();
  record_source(const record_source&) = delete;
  record_source& operator=(const record_source&) = delete;

  // Opens an extracted $MFT read-only. False when it cannot be opened.
  bool open_mftfile(const std::wstring& path);
  // Takes a validated volume (owned), or lends one that stays its owner's.
  void adopt_volume(std::unique_ptr<CNtfs> volume);
  void lend_volume(CNtfs* volume);
  void close();

  bool is_open() const;
  // Open and holding records: an extracted $MFT of some bytes, or a validated volume.
  bool readable() const;
  CNtfs* volume() const { return m_volume; }
  bool is_mftfile() const { return m_mftfile != nullptr; }
  // Bytes of the extracted $MFT, or of the disk under the volume; 0 when unknown.
  uint64_t size() const;

  // Record `number` as stored, without fixups. An extracted $MFT learns its record size from its
  // first record at the first read: (update sequence count - 1) x 512.
  bool read_raw(uint64_t number, std::vector<uint8_t>& out);
  // 1024 until an extracted $MFT has settled its size.
  uint32_t record_size() const;

 private:
  bool settle_record_size();

  std::unique_ptr<mft_file_reader> m_mftfile;
  std::unique_ptr<CNtfs> m_owned;
  CNtfs* m_volume = nullptr;
  uint32_t m_record_size = 1024;
  bool m_record_size_known = false;
};
