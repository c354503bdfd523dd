#include "ntfs/orv_record_source.h"

#include "base/orv_le.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_mft_file_reader.h"

record_source::record_source() = default;
record_source::~record_source() = default;

bool record_source::open_mftfile(const std::wstring& path) {
  close();
  auto reader = std::make_unique<mft_file_reader>();
  if (!reader->open(path)) return false;
  m_mftfile = std::move(reader);
  return true;
}

void record_source::adopt_volume(std::unique_ptr<CNtfs> volume) {
  close();
  m_owned = std::move(volume);
  m_volume = m_owned.get();
}

void record_source::lend_volume(CNtfs* volume) {
  close();
  m_volume = volume;
}

void record_source::close() {
  m_mftfile.reset();
  m_owned.reset();
  m_volume = nullptr;
  m_record_size = 1024;
  m_record_size_known = false;
}

bool record_source::is_open() const { return m_mftfile || m_volume; }

bool record_source::readable() const {
  if (m_mftfile) return m_mftfile->size() > 0;
  return m_volume && m_volume->validated();
}

uint64_t record_source::size() const {
  if (m_mftfile) return m_mftfile->size();
  return m_volume && m_volume->disk() ? m_volume->disk()->size() : 0;
}

uint32_t record_source::record_size() const {
  if (m_volume) return m_volume->record_size();
  return m_record_size ? m_record_size : 1024;
}

// Records are 1 or 4 KiB; a size past 64 KiB (up to 32 MiB from a count of 65535) is damage, and
// is refused like a count of 0 rather than read and walked for every record. A refusal fails this
// first read only: later reads go on with 1024.
bool record_source::settle_record_size() {
  m_record_size_known = true;
  std::vector<uint8_t> first;
  if (!m_mftfile->read(first, record_size(), 0) || first.size() < 8) return false;
  const uint16_t count = orv::le16(first.data() + 6);
  if (count == 0) return false;
  const uint64_t size = uint64_t(count - 1) * 512;
  if (size > 65536) return false;
  m_record_size = uint32_t(size);
  return true;
}

bool record_source::read_raw(uint64_t number, std::vector<uint8_t>& out) {
  if (m_mftfile) {
    if (!m_record_size_known && !settle_record_size()) return false;
    const uint64_t size = record_size();
    if (number > UINT64_MAX / size) return false;
    return m_mftfile->read(out, size, size * number);
  }
  if (!m_volume || !m_volume->validated()) return false;
  return m_volume->read_record_raw(number, out);
}
