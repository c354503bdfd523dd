#pragma once
// The attributes of one record as rows, for reading whole attributes through the volume.
#include <cstdint>
#include <ostream>
#include <vector>

#include "ntfs/orv_stream.h"

class CNtfs;

// The rows of record `inode`: with `with_header_row`, first the record summary, one row per
// standard information and per file name, then every attribute in key order; without it only the
// index root and index allocation rows. False when the record cannot be read.
bool list_attribs(CNtfs& volume, uint64_t inode, std::vector<attrib_row>& rows, bool with_header_row);
// Copies the unnamed data stream of record `inode` to `out`. False when it has none or the copy
// fails.
bool read_unnamed_data(CNtfs& volume, uint64_t inode, std::ostream& out, const copy_options& options, uint64_t& total);
