#pragma once
// -cpu runs: the record range cut into slices, one child process of this program per slice, and
// the children's results merged in slice order into the -out file.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class mft_entries_ctx;

// Multi-instance run: divides the record range over child processes of this program and merges
// their results into the -out file. 1 when the merge ended, 0 on failure.
int run_instances(const mft_entries_ctx& ctx, uint32_t instance_count, const std::vector<std::string>& child_arguments,
                  const std::string& work_directory, const std::string& banner);
// Offset in the head of a child's results file where its rows begin (the first instance keeps its
// heading line); npos when the place is not found there.
size_t merge_start(const std::string& head, bool first_instance);
struct instance_slice {
  uint64_t m_start = 0;
  uint64_t m_count = 0;
};
// Equal slices of the record range; the last one takes the remainder of the division.
std::vector<instance_slice> instance_slices(uint64_t total, uint32_t instance_count, uint64_t first_start);
