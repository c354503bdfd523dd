#pragma once
// Small NTFS volumes built in memory for the volume and stream tests: a boot sector, $MFT records
// placed at the clusters their run list names, and an image file to open them from.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/orv_le.h"
#include "base/orv_string.h"
#include "ntfs/ntfs.h"
#include "tests/test_util.h"

namespace testvol {

using bytes = std::vector<uint8_t>;

// (LCN, count) extents; an LCN of -1 is a hole.
using extents = std::vector<std::pair<int64_t, uint32_t>>;

// Encodes extents as an on-disk run list, end byte included: 4-byte counts, 8-byte offsets.
inline bytes encode_runs(const extents& list) {
  bytes out;
  int64_t prev = 0;
  for (auto& e : list) {
    out.push_back(e.first < 0 ? 0x04 : 0x84);
    for (unsigned i = 0; i < 4; ++i) out.push_back(uint8_t(e.second >> (8 * i)));
    for (unsigned i = 0; e.first >= 0 && i < 8; ++i) out.push_back(uint8_t(uint64_t(e.first - prev) >> (8 * i)));
    if (e.first >= 0) prev = e.first;
  }
  out.push_back(0);
  return out;
}

inline uint64_t extent_clusters(const extents& list) {
  uint64_t n = 0;
  for (auto& e : list) n += e.second;
  return n;
}

// A volume image under construction. Cluster 0 holds the boot sector.
struct image {
  uint16_t m_sector = 512;
  uint8_t m_spc = 8;             // 4096-byte clusters
  int8_t m_per_record = -10;     // 1024-byte records
  uint64_t m_mft_lcn = 4;
  bytes m_bytes;

  explicit image(uint64_t clusters = 64, uint8_t spc = 8) : m_spc(spc), m_bytes(clusters * 512 * spc, 0) {}
  uint64_t cluster() const { return uint64_t(m_sector) * m_spc; }

  void boot() {
    uint8_t* b = m_bytes.data();
    std::memcpy(b, "\xEB\x52\x90NTFS    ", 11);
    orv::put_le16(b + 11, m_sector);
    b[13] = m_spc;
    orv::put_le64(b + 40, m_bytes.size() / m_sector - 1);
    orv::put_le64(b + 48, m_mft_lcn);
    b[64] = uint8_t(m_per_record);
    b[68] = 1;
    orv::put_le16(b + 510, 0xAA55);
  }

  void put(uint64_t offset, const bytes& data) {
    if (offset + data.size() > m_bytes.size()) m_bytes.resize(offset + data.size(), 0);
    std::memcpy(m_bytes.data() + offset, data.data(), data.size());
  }

  // Byte position of MFT record `n` when the MFT lies in `runs` with `stride`-byte records.
  uint64_t record_pos(const extents& runs, uint64_t n, uint32_t stride) const {
    uint64_t byte = n * stride, c = cluster(), vcn = byte / c, first = 0;
    for (auto& e : runs) {
      if (vcn < first + e.second) return (uint64_t(e.first) + vcn - first) * c + byte % c;
      first += e.second;
    }
    return 0;
  }
  void put_record(const extents& runs, uint64_t n, const bytes& record) {
    put(record_pos(runs, n, uint32_t(record.size())), record);
  }
};

// Record 0: $STANDARD_INFORMATION, $FILE_NAME "$MFT", unnamed $DATA over `runs`, $BITMAP.
inline testutil::record_builder mft_record(const extents& runs, uint64_t cluster_size, uint32_t record_size = 1024) {
  testutil::record_builder rb;
  rb.m_size = record_size;
  rb.m_record_number = 0;
  rb.resident(0x10, testutil::si_value(1, 2, 3, 4, 6));
  rb.resident(0x30, testutil::fn_value(5 | (uint64_t(5) << 48), u"$MFT", 3, 1, 2, 3, 4));
  uint64_t bytes_total = extent_clusters(runs) * cluster_size;
  rb.nonresident(0x80, encode_runs(runs), bytes_total, bytes_total, bytes_total, u"", -1, 0, 0,
                 extent_clusters(runs) - 1);
  return rb;
}

// A plain in-use record carrying its number in a resident $DATA value, so reads can be told apart.
inline bytes plain_record(uint32_t number, uint32_t record_size = 1024) {
  testutil::record_builder rb;
  rb.m_size = record_size;
  rb.m_record_number = number;
  bytes tag(16);
  for (int i = 0; i < 16; ++i) tag[i] = uint8_t(number * 7 + i);
  rb.resident(0x80, tag);
  return rb.build();
}

// The image written to a temporary file; the volume opened on it on request.
struct image_file : testutil::temp_file {
  explicit image_file(const bytes& data) : temp_file(data, "ntfsvol") {}
  std::unique_ptr<CNtfs> open(uint64_t offset = 0) const { return open_volume_path(orv::to_wide(m_path), offset); }
  // A volume object on the file that is not validated; geometry set by the caller.
  std::unique_ptr<CNtfs> raw(uint32_t cluster_size) const {
    std::unique_ptr<RAW_DISK_IO> disk(new RAW_DISK_IO());
    disk->open_path(orv::to_wide(m_path), false, 0);
    std::unique_ptr<CNtfs> v(new CNtfs(std::move(disk), 0));
    v->m_cluster_size = int32_t(cluster_size);
    orv::put_le16(v->m_boot.m_bytes + 11, 512);
    return v;
  }
};

}  // namespace testvol
