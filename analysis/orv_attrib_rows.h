#pragma once
// The attributes of one record as rows, for reading whole attributes through the volume.
#include <cstdint>
#include <ostream>
#include <vector>

#include "ntfs/orv_stream.h"

class CNtfs;
class entry_record;
struct attrib_item;

// One attribute of a categorised entry as a row: sizes, runs and flags of a non-resident
// attribute; the value of a resident one (from its captured copy, or from its own bytes).
attrib_row row_of_item(const entry_record& entry, const attrib_item& item, uint64_t key, uint32_t record_size);

// The rows of record `inode`: with `with_header_row`, first the record summary, one row per
// standard information and per file name, then every attribute in key order; without it only the
// index root and index allocation rows. False when the record cannot be read.
bool list_attribs(CNtfs& volume, uint64_t inode, std::vector<attrib_row>& rows, bool with_header_row);
