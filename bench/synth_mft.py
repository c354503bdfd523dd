#!/usr/bin/env python3
"""Synthesises a large extracted $MFT from the feature fixture's $MFT.

    synth_mft.py SOURCE.mft OUT.mft RECORDS [DIRECTORIES [NAME_LENGTH]]

Records 0..63 are copied from the source (system files and reserved records). Then come
DIRECTORIES clones of the source's "docs" directory record, in a tree of about three levels under
the root, and clones of its "readme.txt" record up to RECORDS in all, each in one of those
directories. Every clone gets its own record number (the 32-bit field at offset 44), its own
name of the template's length and a parent reference to a directory of the tree, so that every
path resolves. The $DATA size of record 0 is set to the new length.

The clones are patched in their raw on-disk form: none of the patched bytes lies at the end of a
512-byte sector, so the update sequence array stays valid.

With NAME_LENGTH, every file clone instead gets a name of that many characters and every directory
one of up to 60 (their records have less room), so paths run to hundreds of bytes, rebuilt through its update sequence array, and times
of its own: creation and access at one instant, modification and change a day later in the
standard information, so each file has two instants and two rows, as on a volume whose files
were written after they were made.
"""
import struct
import sys


def fixup(rec):
    rec = bytearray(rec)
    usa_ofs, usa_cnt = struct.unpack_from('<HH', rec, 4)
    for i in range(1, usa_cnt):
        rec[i * 512 - 2:i * 512] = rec[usa_ofs + 2 * i:usa_ofs + 2 * i + 2]
    return rec


def attrs(rec):
    off = struct.unpack_from('<H', rec, 20)[0]
    while off + 8 < len(rec):
        typ, length = struct.unpack_from('<II', rec, off)
        if typ == 0xFFFFFFFF or length == 0:
            return
        yield typ, off, length
        off += length


def fn_of(rec):
    """(offset of the $FILE_NAME value, name) of the record's first $FILE_NAME."""
    for typ, off, _ in attrs(rec):
        if typ == 0x30 and rec[off + 8] == 0:
            voff = struct.unpack_from('<H', rec, off + 20)[0]
            v = off + voff
            nlen = rec[v + 64]
            return v, rec[v + 66:v + 66 + 2 * nlen].decode('utf-16-le')
    return None, None


def refix(rec):
    """Puts the sector ends back into the update sequence array and the sequence number in their place."""
    usa_ofs, usa_cnt = struct.unpack_from('<HH', rec, 4)
    seq = rec[usa_ofs:usa_ofs + 2]
    for i in range(1, usa_cnt):
        rec[usa_ofs + 2 * i:usa_ofs + 2 * i + 2] = rec[i * 512 - 2:i * 512]
        rec[i * 512 - 2:i * 512] = seq
    return rec


def renamed(template, name, parent, number, t0):
    """A clean copy of `template` with its first $FILE_NAME holding `name`, times from t0."""
    rec = fixup(template)
    day = 864000000000
    for typ, off, length in attrs(rec):
        if typ == 0x10:
            v = off + struct.unpack_from('<H', rec, off + 20)[0]
            struct.pack_into('<QQQQ', rec, v, t0, t0 + day, t0 + day, t0)
        if typ == 0x30 and rec[off + 8] == 0:
            v = off + struct.unpack_from('<H', rec, off + 20)[0]
            struct.pack_into('<QQQQQ', rec, v, parent, t0, t0, t0, t0)
            old = 66 + 2 * rec[v + 64]
            value = bytearray(rec[v:v + 66]) + name.encode('utf-16-le')
            value[64] = len(name)
            value[65] = 1  # Win32 namespace: no DOS name beside it
            alen = (v - off + len(value) + 7) & ~7
            attr = bytearray(rec[off:v]) + value
            attr += b'\0' * (alen - len(attr))
            struct.pack_into('<I', attr, 4, alen)
            struct.pack_into('<I', attr, 16, len(value))
            used = struct.unpack_from('<I', rec, 24)[0]
            rest = rec[off + length:used]
            body = rec[:off] + attr + rest
            assert len(body) <= 1024 - 8, 'name too long for the record'
            rec[:len(body)] = body
            rec[len(body):1024] = b'\0' * (1024 - len(body))
            struct.pack_into('<I', rec, 24, len(body))
            break
    struct.pack_into('<I', rec, 44, number)
    struct.pack_into('<H', rec, 16, 1)
    return refix(rec)


def long_name(n, length, ext):
    stem = 'synthetic-name-%d-' % n
    stem += 'x' * max(0, length - len(stem) - len(ext))
    return stem[:length - len(ext)] + ext


def safe(offset, length):
    for end in (510, 1022, 1534, 2046, 2558, 3070, 3582, 4094):
        assert not (offset < end + 2 and end < offset + length), 'patch over a sector end'


def main():
    src, out, total = sys.argv[1], sys.argv[2], int(sys.argv[3])
    ndirs = int(sys.argv[4]) if len(sys.argv) > 4 else 1000
    name_length = int(sys.argv[5]) if len(sys.argv) > 5 else 0
    data = open(src, 'rb').read()
    rs = 1024
    records = [data[i:i + rs] for i in range(0, len(data) - rs + 1, rs)]
    templates = {}
    for n, raw in enumerate(records):
        if raw[:4] != b'FILE':
            continue
        v, name = fn_of(fixup(raw))
        if name in ('docs', 'readme.txt'):
            templates[name] = (n, v)
    dir_n, dir_v = templates['docs']
    file_n, file_v = templates['readme.txt']
    first = 64
    assert total > first + ndirs
    with open(out, 'wb') as f:
        rec0 = bytearray(records[0])
        for typ, off, _ in attrs(fixup(records[0])):
            if typ == 0x80 and rec0[off + 8] == 1:
                for field in (40, 48, 56):  # allocated, real, initialised size
                    safe(off + field, 8)
                    struct.pack_into('<Q', rec0, off + field, total * rs)
                break
        f.write(rec0)
        for n in range(1, first):
            f.write(records[n] if n < len(records) and records[n][:4] == b'FILE' else b'\0' * rs)
        for kind, (tn, v), count, start in (('dir', templates['docs'], ndirs, first),
                                             ('file', templates['readme.txt'], total - first - ndirs,
                                              first + ndirs)):
            base = bytearray(records[tn])
            nlen = base[v + 64]
            safe(44, 4)
            safe(16, 2)
            safe(v, 8)
            safe(v + 66, 2 * nlen)
            for k in range(count):
                n = start + k
                if name_length:
                    if kind == 'dir':
                        parent = 5 if k < 10 else first + k // 10 - 1
                    else:
                        parent = first + n % ndirs
                    ref = parent | ((5 if parent == 5 else 1) << 48)
                    t0 = 132000000000000000 + n * 100000
                    f.write(renamed(base, long_name(n, min(name_length, 60), '') if kind == 'dir' else long_name(n, name_length, '.txt'), ref, n, t0))
                    continue
                rec = bytearray(base)
                struct.pack_into('<I', rec, 44, n)
                struct.pack_into('<H', rec, 16, 1)
                if kind == 'dir':
                    parent = 5 if k < 10 else first + k // 10 - 1
                    name = '%0*d' % (nlen, k)
                else:
                    parent = first + n % ndirs
                    name = ('%0*d' % (nlen - 4, n % 10 ** (nlen - 4))) + '.txt'
                struct.pack_into('<Q', rec, v, parent | ((5 if parent == 5 else 1) << 48))
                rec[v + 66:v + 66 + 2 * nlen] = name[-nlen:].encode('utf-16-le')
                f.write(rec)
    print('%d records (%d directories) written to %s' % (total, ndirs, out))


if __name__ == '__main__':
    main()
