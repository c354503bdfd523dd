#pragma once
// Head bytes of a record's unnamed data streams, for header capture and the signature filters.
class entry_record;
class mft_entries_ctx;

void read_head_bytes(entry_record& entry, mft_entries_ctx& ctx);
