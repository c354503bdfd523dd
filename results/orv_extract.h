#pragma once
// The content pass that runs ahead of a record's rows: copies of the selected streams into the
// results directory under names made of the modified time and the MD5 of what was written, and
// the digests of the unnamed stream.
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

class entry_record;
class mft_entries_ctx;
struct attrib_item;
struct scan_state;

// Which digests a read computes.
struct digest_request {
  bool m_md5 = false;
  bool m_sha1 = false;
  bool m_sha256 = false;
  bool any() const { return m_md5 || m_sha1 || m_sha256; }
};

// Reads one stream of the entry into `out`, hashing the same bytes, and leaves the digests in the
// entry. A resident value is taken from the record; a non-resident stream needs a volume.
// Compressed streams are expanded unless -raw asks for the stored bytes. False, with the digests
// cleared, when there is nothing to read or the read fails.
bool read_stream_to(std::ostream& out, entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan,
                    const attrib_item& attribute, const digest_request& digests);

// Copies one stream into the results directory; `destination` comes back with the path of the
// copy. False when nothing was copied.
bool extract_attribute(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan,
                       const attrib_item& attribute, std::wstring& destination);

// The streams of a record that extraction takes, each copied in turn; `copied(attribute,
// destination)` is called for every stream taken, with an empty destination when its copy failed.
// Gives the number of streams taken.
size_t extract_record(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan,
                      const std::function<void(const attrib_item&, const std::wstring&)>& copied);

// The same, for rows that do not name each copy: the last copy's path stays in the entry.
size_t extract_record(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan);

// The digests the options ask for, of the record's unnamed data stream, into the entry. Gives
// that stream (its digests cleared when the read failed), or null when the record has none.
const attrib_item* hash_unnamed_data(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan);

// The record's name that names its copies: its only name, or the first in sorted order that is
// not a DOS name alone (namespace 0 or odd) and sits in the record itself.
std::wstring copy_source_name(const entry_record& entry);

// A name from the volume made safe as one path component: '/', NUL and control characters become
// '_', and a name of dots alone ("." or "..") has its dots replaced.
std::wstring path_component(const std::wstring& name);
