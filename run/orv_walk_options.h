#pragma once
// The walk's own options: from the raw arguments to a filled mft_entries_ctx.
#include <string>
#include <vector>

class mft_entries_ctx;

// Parses the whole command line into the context: 0 go on, -1 refused (reason printed),
// -2 too short / common parse failed, -3 no source named.
int parse_walk_options(mft_entries_ctx& ctx, const std::vector<std::string>& arguments,
                       const std::string& version_text, const std::string& second_text,
                       const std::string& source_type);
