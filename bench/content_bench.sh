#!/bin/bash
# Content throughput of brimlock: extracting with MD5 a large plain file and a large NTFS-compressed
# file from a volume image in the page cache, next to md5sum and sha256sum of the same bytes in
# the same run. Prints figures and nothing else; not part of the test suite.
#
#   bench/content_bench.sh [BRIMLOCK] [MIB]
#
# MIB: size of each of the two files (default 256). The image is made once with mkntfs and
# ntfs-3g (needs root and FUSE) and kept in $BENCH_CACHE (default /work/bench-cache).
set -euo pipefail

HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
REPO="$(dirname "$HERE")"
BIN="${1:-}"
if [ -z "$BIN" ]; then
  for b in "$REPO"/build*/brimlock "$REPO"/../build*/brimlock; do
    [ -x "$b" ] && { BIN="$b"; break; }
  done
fi
[ -x "$BIN" ] || { echo "usage: $0 BRIMLOCK [MIB]  (no built brimlock found)" >&2; exit 1; }
MIB="${2:-256}"
CACHE="${BENCH_CACHE:-/work/bench-cache}"
IMG="$CACHE/content-$MIB.img"
mkdir -p "$CACHE"
OUT="$(mktemp -d /tmp/brimlock-content.XXXXXX)"
trap 'mountpoint -q "$OUT/mnt" 2>/dev/null && umount "$OUT/mnt"; rm -rf "$OUT"' EXIT

if [ ! -f "$IMG" ]; then
  if [ "$(id -u)" != 0 ] || ! command -v mkntfs >/dev/null || ! command -v ntfs-3g >/dev/null || [ ! -e /dev/fuse ]; then
    echo "content case skipped: building $IMG needs root, mkntfs, ntfs-3g and FUSE"
    exit 0
  fi
  echo "building $IMG (once) ..."
  mkdir -p "$OUT/mnt"
  truncate -s $(( MIB * 3 ))M "$IMG.tmp"
  mkntfs -F -q -f -c 4096 -L CONTENT "$IMG.tmp" >/dev/null 2>&1
  ntfs-3g -o compression,no_def_opts "$IMG.tmp" "$OUT/mnt"
  mkdir "$OUT/mnt/packed"
  setfattr -n system.ntfs_attrib_be -v 0x00000800 "$OUT/mnt/packed"
  # Plain: bytes that do not compress. Compressed: log-like text, about 4:1 under LZNT1.
  head -c $(( MIB << 20 )) /dev/urandom >"$OUT/mnt/plain.bin"
  python3 - "$OUT/mnt/packed/text.log" "$MIB" <<'EOF'
import random, sys
path, mib = sys.argv[1], int(sys.argv[2])
rng = random.Random(7)
words = ['error', 'warning', 'volume', 'cluster', 'record', 'index', 'stream', 'open', 'close', 'read']
with open(path, 'w') as f:
    n = 0
    while n < mib << 20:
        line = '2026-11-%02d %02d:%02d:%02d.%03d %s %s %d\n' % (rng.randint(1, 28), rng.randint(0, 23),
               rng.randint(0, 59), rng.randint(0, 59), rng.randint(0, 999), rng.choice(words),
               ' '.join(rng.choice(words) for _ in range(6)), rng.randint(0, 99999))
        f.write(line)
        n += len(line)
    f.truncate(mib << 20)
EOF
  sync
  umount "$OUT/mnt"
  mv "$IMG.tmp" "$IMG"
fi

inode_of() { "$BIN" -image "$IMG" -csv -quiet -filter_fullname "$1" -base10 | awk -F, 'NR > 3 {print $1; exit}'; }
seconds() { # command... -> wall seconds of its best of three runs
  local best=999999 t
  for _ in 1 2 3; do
    /usr/bin/time -f %e -o "$OUT/time" "$@" >/dev/null 2>&1
    t=$(tail -1 "$OUT/time")
    best=$(awk -v a="$best" -v b="$t" 'BEGIN { print (b < a ? b : a) }')
  done
  echo "$best"
}
rate() { awk -v b="$1" -v s="$2" 'BEGIN { if (s <= 0) s = 0.001; printf "%.0f", b / 1048576 / s }'; }

echo "brimlock: $BIN"
echo "image: $IMG ($(du -m "$IMG" | cut -f1) MiB)"
cat "$IMG" >/dev/null
for name in plain.bin text.log; do
  inode=$(inode_of "$name")
  rm -rf "$OUT/copies"
  # One run to get the copy, then timed runs into a fresh directory each time.
  "$BIN" -image "$IMG" -quiet -action_copy_files "$OUT/copies" -filter_inode "$inode" -out "$OUT/rows.csv" >/dev/null
  copy=$(find "$OUT/copies" -type f | head -1)
  bytes=$(stat -c %s "$copy")
  t_extract=$(seconds sh -c "rm -rf '$OUT/c2'; '$BIN' -image '$IMG' -quiet -action_copy_files '$OUT/c2' -filter_inode $inode -out '$OUT/r2.csv'")
  cat "$copy" >/dev/null
  t_md5=$(seconds md5sum "$copy")
  t_sha=$(seconds sha256sum "$copy")
  t_cat=$(seconds cat "$copy")
  printf '%-9s %5d MiB  extract+MD5 %5s MiB/s   md5sum %5s MiB/s   sha256sum %5s MiB/s   cat %5s MiB/s   extract/md5sum %s\n' \
    "$name" $(( bytes >> 20 )) "$(rate "$bytes" "$t_extract")" "$(rate "$bytes" "$t_md5")" \
    "$(rate "$bytes" "$t_sha")" "$(rate "$bytes" "$t_cat")" \
    "$(awk -v a="$t_md5" -v b="$t_extract" 'BEGIN { printf "%.0f%%", (b > 0 ? a / b : 0) * 100 }')"
done
