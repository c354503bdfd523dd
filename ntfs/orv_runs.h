#pragma once
// Run lists of non-resident attributes, and reads of byte ranges through them.
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

struct run_entry {
  uint64_t m_lcn = 0;
  uint64_t m_vcn = 0;
  bool m_is_sparse = false;
  uint32_t m_count = 0;
};
using data_run_list = std::vector<run_entry>;

struct raw_run {
  uint64_t m_lcn = 0;          // running LCN
  uint64_t m_offset_abs = 0;   // absolute value of the stored offset
  uint32_t m_count = 0;
  uint64_t m_vcn = 0;
  bool m_negative = false;
  bool m_spare = false;
  uint32_t m_position = 0;     // position of the run within the attribute
  uint32_t m_attrib_type = 0;
  std::string m_label;
  std::vector<uint8_t> m_bytes;
  std::vector<uint8_t> m_following;
};
using raw_run_list = std::vector<raw_run>;

// Decodes the run list of a non-resident attribute (attribute bytes, header included, bounded by
// `attrib_length`). False for a null attribute or a length of 0.
bool decode_runs(const uint8_t* attribute, uint32_t attrib_length, raw_run_list& out);
void runs_to_list(const raw_run_list& raw, data_run_list& out);
// decode_runs + runs_to_list.
bool attribute_run_list(const uint8_t* attribute, uint32_t attrib_length, data_run_list& out);
// Counted decoder used for the volume's own records: signed running LCN, O = 0 gives LCN -1.
// True when at least one run was decoded. `replace` clears `out` first.
bool decode_run_bytes(const uint8_t* bytes, size_t length, uint64_t first_vcn, data_run_list& out, bool replace);
// Merges `more` into `list`: entries keyed by VCN (stored ones win), rewritten in VCN order with
// VCNs renumbered from 0 by adding counts.
void merge_run_lists(data_run_list& list, const data_run_list& more);
uint64_t list_bytes(const data_run_list& list, uint64_t cluster_size, bool skip_sparse);
data_run_list without_sparse(const data_run_list& list);
