#pragma once
// The road of one run: options, banner, results stream, the choice of scans, teardown.
#include <cstdint>
#include <string>
#include <vector>

class mft_entries_ctx;

extern const char* const k_tool_name;     // "brimlock"
extern const char* const k_version_text;  // "ver: " and the version of the build

int brimlock_main(int argc, char** argv);
// The usage text, exactly as printed to standard error.
std::string usage_text();
// Banner line, then the quoted command line ("-pipe" adds its prefix).
std::string build_run_banner(const std::vector<std::string>& arguments);

