#pragma once
// Rows of a disk layout (MBR, extended chains, GPT) and the rule that decides whether a volume
// offset names a usable NTFS volume.
#include <array>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

class RAW_DISK_IO;

struct partition_record {
  uint64_t m_start_sector = 0;
  uint64_t m_sector_count = 0;
  uint16_t m_type = 0;  // MBR type; bit 15 marks a guess
  uint32_t m_sectors_per_cluster = 0;
  uint32_t m_sector_size = 512;
  std::vector<uint8_t> m_boot_bytes;
  bool m_volume_found = false;
  bool m_is_gpt = false;
  std::array<uint8_t, 16> m_type_guid{};
  std::array<uint8_t, 16> m_unique_guid{};
  uint64_t m_gpt_attributes = 0;
  std::string m_gpt_name;
  uint32_t m_serial = 0;
  std::string m_type_name;
  std::string m_partition_name;

  uint64_t byte_offset() const { return m_start_sector * m_sector_size; }
};
using partition_list = std::vector<partition_record>;

bool read_partitions(RAW_DISK_IO& disk, partition_list& list, bool force, bool with_gaps);
// Sectors per cluster as an NTFS boot sector keeps them (byte 13): up to 0x80 the count itself,
// above it 2^(256 - value), the form Windows writes for clusters of 128 KiB to 2 MiB. 0 for a
// power no volume can have.
uint32_t ntfs_sectors_per_cluster(uint8_t value);
// Buffer form, for a disk whose first sector is all that is at hand (VMDK).
bool read_partitions_buffer(const uint8_t* bytes, size_t length, partition_list& list, bool force);
// Appends to `list`: rows of MBR entries ahead of the protective entry stay.
bool read_gpt(RAW_DISK_IO& disk, partition_list& list, bool with_gaps);
bool volume_at(RAW_DISK_IO& disk, uint64_t offset);
std::string partition_type_name(uint16_t type);
bool is_recognised_mbr_type(uint8_t type);
void guess_volume(partition_record& record, const uint8_t* bytes, size_t length);
bool partition_is_ntfs(const partition_record& record);
// Name of a row as listed to the user: the type's name, else the name the volume guess gave.
std::string partition_row_name(const partition_record& record);
