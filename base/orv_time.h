#pragma once
// One instant in every form the tool needs, and its rendering under -dateformat/-timeformat.
// NTFS times are FILETIME: 100 ns ticks since 1601-01-01 UTC. All text is UTC.
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

namespace orv {

enum type_time : uint32_t {
  type_filetime = 1,
  type_filetime_us = 2,
  type_unix_us = 4,
  type_unix_sec = 8,
  type_unix_ms = 16,
  type_ole_days = 256,
  type_unix32_2000 = 2048,
  type_ticks_0001 = 32768,
  type_flake_2015 = 0x20000,
  type_mac_2001 = 0x40000,
  type_hfs_1904 = 0x80000,
};

constexpr uint64_t FILETIME_UNIX_EPOCH = 116444736000000000ull;
constexpr uint64_t FILETIME_TICKS_PER_SECOND = 10000000ull;
constexpr uint64_t FILETIME_TICKS_PER_DAY = 864000000000ull;

struct _windows_systemtime {
  uint16_t m_year = 0;
  uint16_t m_month = 0;
  uint16_t m_day_of_week = 0;
  uint16_t m_day = 0;
  uint16_t m_hour = 0;
  uint16_t m_minute = 0;
  uint16_t m_second = 0;
  uint16_t m_milliseconds = 0;
  uint64_t m_microseconds = 0;
  uint64_t m_nanoseconds = 0;
  uint64_t m_picoseconds = 0;
};

class time {
 public:
  time() = default;
  time(uint64_t raw, type_time tag) { set_time(raw, tag); }
  virtual ~time() = default;

  // Empties the object, converts `raw` to FILETIME by its tag and derives all fields.
  // Returns m_valid. An unknown tag leaves the object empty.
  bool set_time(uint64_t raw, type_time tag);
  bool set_time_days(double days, type_time tag);                           // type_ole_days
  bool set_time_at(const uint8_t* bytes, size_t offset, type_time tag);     // reads a u64 from a buffer
  void clear();

  uint64_t m_unix_seconds = 0;
  uint64_t m_filetime = 0;
  uint64_t m_filetime_copy = 0;
  uint16_t m_dos_date = 0;
  uint16_t m_dos_time = 0;
  std::tm m_local_tm{};
  _windows_systemtime m_utc{};
  uint8_t m_valid = 0;
  uint8_t m_tm_failed = 0;
};

// UTC breakdown of a FILETIME; false for a value with the top bit set.
bool filetime_to_systemtime(uint64_t filetime, _windows_systemtime& out);
// Inverse, for the filter-time parsers; 0 when the fields are out of range.
uint64_t systemtime_to_filetime(const _windows_systemtime& st);
// A FILETIME is displayable when not 0, top bit clear, not in the first second of 1970, UTC year 1900..3000.
bool filetime_displayable(uint64_t filetime);
uint64_t current_filetime();

// Start/stop arguments: "mm/dd/yyyy" and "hh:mm:ss[.fff]". False when a field is missing.
bool parse_date_time(const std::string& date, const std::string& time, _windows_systemtime& out);
// Same with an order word such as "YMD", "MDY", "DMY".
bool parse_date_time_order(const std::string& date, const std::string& time, const std::string& order,
                           _windows_systemtime& out);

}  // namespace orv
