#!/bin/bash
# Throughput figures of brimlock; prints them and nothing else. Not part of the test suite.
#
#   bench/run_bench.sh [BRIMLOCK] [RECORDS]
#
# BRIMLOCK: the built binary (default: the first of build*/brimlock next to the repository).
# RECORDS:  size of the synthesised $MFT (default 1000000).
# Cache (big files, kept between runs): $BENCH_CACHE, default /work/bench-cache.
#
# 1./3. The walk, one table: a volume image of $BENCH_IMAGE_FILES (default 1,000,000) files, made
#    once with mkntfs and ntfs-3g (needs root and FUSE; skipped otherwise), and its $MFT: brimlock
#    -mftfile -csv (also with -cpu 2), -image -csv, -image -bodyfile, next to `fls -r -m /`
#    (sleuthkit) and `fsntfsinfo -B -H` (libfsntfs) when installed, and the floor; seconds, the
#    ratio to brimlock, records/s and peak RSS, best of three runs.
# 2. A file of $BENCH_DIGEST_MIB (default 512) MiB of pseudo-random bytes, made once: the MD5,
#    SHA-1 and SHA-256 speed of bench_digest_speed (built next to BRIMLOCK with
#    -DBRIMLOCK_BENCH=ON; skipped otherwise) next to md5sum, sha1sum and sha256sum, all reading
#    the file from the page cache.
# 4. The same image as a VMDK (qemu-img, made once): the -vmdk walk against the -image walk; and
#    the carving of -regen_mft against `cat` of the image.
# 5. Synthetic $MFTs of RECORDS and 10 x RECORDS records with names of 100 characters
#    (bench/synth_mft.py): seconds against the floor, and microseconds per record.
# 0. Expansion of compressed streams in memory (bench_lznt1_speed next to BRIMLOCK, built with
#    -DBRIMLOCK_BENCH=ON; skipped with a note otherwise): MB/s of output.
set -euo pipefail

HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
REPO="$(dirname "$HERE")"
BIN="${1:-}"
if [ -z "$BIN" ]; then
  for b in "$REPO"/build*/brimlock "$REPO"/../build*/brimlock; do
    [ -x "$b" ] && { BIN="$b"; break; }
  done
fi
[ -x "$BIN" ] || { echo "usage: $0 BRIMLOCK [RECORDS]  (no built brimlock found)" >&2; exit 1; }
RECORDS="${2:-1000000}"
CACHE="${BENCH_CACHE:-/work/bench-cache}"
IMAGE_FILES="${BENCH_IMAGE_FILES:-1000000}"
DIGEST_MIB="${BENCH_DIGEST_MIB:-512}"
mkdir -p "$CACHE"
# Outputs go to a new directory under $BENCH_OUT (default /tmp), deleted at the end.
OUT="$(mktemp -d "${BENCH_OUT:-/tmp}/brimlock-bench.XXXXXX")"
trap 'rm -rf "$OUT"' EXIT

# Runs a command under /usr/bin/time -v; sets WALL (seconds) and RSS (KiB).
measure() {
  local log="$OUT/time.log"
  /usr/bin/time -v -o "$log" "$@" >/dev/null 2>"$OUT/stderr" || {
    echo "command failed: $*" >&2; tail -5 "$OUT/stderr" >&2; return 1; }
  WALL=$(awk -F': ' '/Elapsed \(wall clock\)/ {n = split($2, t, ":"); s = 0; for (i = 1; i <= n; i++) s = s * 60 + t[i]; print s}' "$log")
  RSS=$(awk -F': ' '/Maximum resident set size/ {print $2}' "$log")
}
rate() { awk -v n="$1" -v s="$2" 'BEGIN { if (s <= 0) s = 0.001; printf "%.0f", n / s }'; }
mib() { awk -v n="$1" 'BEGIN { printf "%.1f", n / 1048576 }'; }

row() { # label wall rss records rows bytes
  printf '%-34s %8.2f s %12s rec/s %12s rows/s %9s MiB/s out %8s MiB RSS\n' "$1" "$2" \
    "$( [ "$4" = - ] && echo - || rate "$4" "$2")" "$( [ "$5" = - ] && echo - || rate "$5" "$2")" \
    "$( [ "$6" = - ] && echo - || mib "$(rate "$6" "$2")")" "$(mib $(( $3 * 1024 )))"
}

echo "brimlock: $BIN"
echo "cpu: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ //'), $(nproc) cores"
echo

# --- 0. expansion of compressed streams --------------------------------------------------------
SPEED="$(dirname "$BIN")/bench/bench_lznt1_speed"
if [ -x "$SPEED" ]; then "$SPEED"; else echo "lznt1 expand: skipped, $SPEED not built (-DBRIMLOCK_BENCH=ON)"; fi
echo

# --- 1. the walk: one table ------------------------------------------------------------------
# The 1M-file volume (made once, in section 3) and its extracted $MFT; then synthetic $MFTs of
# RECORDS and 10 x RECORDS records with long names (section 5). brimlock beside sleuthkit,
# libfsntfs and the floor (reading the $MFT plus writing an output of the -csv size), all from
# the page cache, each output written to a new file. "ratio" is the row's seconds over brimlock's
# for the same job: -image -bodyfile for fls and fsntfsinfo, the one-instance run for -cpu 2,
# the floor for the synthetic runs.
table_head() {
  printf '%-40s %9s %7s %12s %9s\n' "$1" seconds ratio "records/s" "RSS MiB"
}
table_row() { # label seconds reference-seconds records rss-kib
  printf '%-40s %9.2f %7s %12s %9s\n' "$1" "$2" \
    "$( [ "$3" = - ] && echo - || awk -v a="$2" -v b="$3" 'BEGIN { if (b <= 0) b = 0.001; printf "%.2f", a / b }')" \
    "$( [ "$4" = - ] && echo - || rate "$4" "$2")" "$( [ "$5" = - ] && echo - || mib $(( $5 * 1024 )))"
}
# Best of three: the page cache and the machine's neighbours make single runs noisy.
best_of_3() { # command...; sets WALL and RSS of the fastest run
  local best="" best_rss=""
  for _ in 1 2 3; do
    rm -f "$OUT"/run.*
    measure "$@"
    if [ -z "$best" ] || awk -v a="$WALL" -v b="$best" 'BEGIN { exit !(a < b) }'; then best=$WALL; best_rss=$RSS; fi
  done
  WALL=$best; RSS=$best_rss
  rm -f "$OUT"/run.*
}
# Reading $1 and writing $2 bytes to a new file: the least any walk of $1 can cost.
floor_of() {
  head -c "$2" /dev/zero >"$OUT/floor.src"
  cat "$OUT/floor.src" >/dev/null
  best_of_3 sh -c "cat '$1' >/dev/null; cat '$OUT/floor.src' >'$OUT/run.floor'"
  rm -f "$OUT/floor.src"
}

# --- 2. digests of a file in the page cache --------------------------------------------------
DIGEST_BIN="$(dirname "$BIN")/bench/bench_digest_speed"
DIGEST_FILE="$CACHE/random-$DIGEST_MIB-mib.bin"
if [ ! -x "$DIGEST_BIN" ]; then
  echo "digest case skipped: $DIGEST_BIN is not built (configure with -DBRIMLOCK_BENCH=ON)"
else
  if [ ! -f "$DIGEST_FILE" ]; then
    head -c $(( DIGEST_MIB * 1048576 )) /dev/urandom >"$DIGEST_FILE.tmp"
    mv "$DIGEST_FILE.tmp" "$DIGEST_FILE"
  fi
  DIGEST_BYTES=$(stat -c %s "$DIGEST_FILE")
  echo "digests: $(mib "$DIGEST_BYTES") MiB of pseudo-random bytes ($DIGEST_FILE)"
  cat "$DIGEST_FILE" >/dev/null
  "$DIGEST_BIN" "$DIGEST_FILE" >"$OUT/digests.txt"
  printf '%-8s %16s %16s %-10s %s\n' digest brimlock coreutils "" "time brimlock/coreutils"
  while read -r name speed _ seconds _ hex; do
    measure sh -c "${name}sum '$DIGEST_FILE' > '$OUT/sum.txt'"
    theirs=$(awk -v n="$DIGEST_BYTES" -v s="$WALL" 'BEGIN { if (s <= 0) s = 0.001; printf "%.1f", n / 1048576 / s }')
    ratio=$(awk -v a="$seconds" -v b="$WALL" 'BEGIN { if (b <= 0) b = 0.001; printf "%.2f", a / b }')
    same=$([ "$(cut -d' ' -f1 "$OUT/sum.txt")" = "$hex" ] && echo "" || echo "  DIGESTS DIFFER")
    printf '%-8s %10s MiB/s %10s MiB/s %-10s %6s%s\n' "$name" "$speed" "$theirs" "${name}sum" "$ratio" "$same"
  done <"$OUT/digests.txt"
fi
echo

# --- 3. the 1M-file volume --------------------------------------------------------------------
IMG="$CACHE/many-$IMAGE_FILES.img"
if [ ! -f "$IMG" ]; then
  if [ "$(id -u)" != 0 ] || ! command -v mkntfs >/dev/null || ! command -v ntfs-3g >/dev/null || [ ! -e /dev/fuse ]; then
    echo "image case skipped: building $IMG needs root, mkntfs, ntfs-3g and FUSE"
    exit 0
  fi
  echo "building $IMG ($IMAGE_FILES files, once) ..."
  MNT="$OUT/mnt"
  mkdir -p "$MNT"
  # 1 KiB per record of $MFT, a cluster for every tenth file, directory indexes: 4 KiB a file is ample.
  truncate -s "$(( (IMAGE_FILES * 4096 >> 30) + 1 ))G" "$IMG.tmp"
  mkntfs -F -q -f -c 4096 -L MANY "$IMG.tmp" >/dev/null 2>&1
  ntfs-3g -o no_def_opts "$IMG.tmp" "$MNT"
  python3 - "$MNT" "$IMAGE_FILES" <<'EOF'
import os, sys
m, n = sys.argv[1], int(sys.argv[2])
per = 1000
for i in range(n):
    d = '%s/d%03d' % (m, i // per)
    if i % per == 0:
        os.mkdir(d)
    with open('%s/file-%06d.txt' % (d, i), 'wb') as f:
        if i % 10 == 0:
            f.write(b'x' * 2000)
EOF
  sync
  umount "$MNT"
  mv "$IMG.tmp" "$IMG"
fi
# Its $MFT as a file for -mftfile, copied out by sleuthkit's icat when it is there.
VMFT="$CACHE/many-$IMAGE_FILES.mft"
if [ ! -f "$VMFT" ] && command -v icat >/dev/null; then icat -f ntfs "$IMG" 0 >"$VMFT.tmp" && mv "$VMFT.tmp" "$VMFT"; fi
cat "$IMG" >/dev/null
measure "$BIN" -quiet -out "$OUT/run.out" -image "$IMG" -csv
recs=$(awk -F, 'NR > 4 {print $1}' "$OUT/run.out" | sort -u | wc -l)
csv_bytes=$(stat -c %s "$OUT/run.out")
echo "volume image: $IMG ($recs records with rows, $(mib "$csv_bytes") MiB of -csv)"
table_head "job"
floor_of "$( [ -f "$VMFT" ] && echo "$VMFT" || echo "$IMG")" "$csv_bytes"
table_row "floor: read \$MFT, write -csv's bytes" "$WALL" - "$recs" "$RSS"
if [ -f "$VMFT" ]; then
  cat "$VMFT" >/dev/null
  best_of_3 "$BIN" -quiet -out "$OUT/run.out" -mftfile "$VMFT" -csv
  ONE=$WALL
  table_row "brimlock -mftfile -csv" "$WALL" - "$recs" "$RSS"
  best_of_3 "$BIN" -quiet -out "$OUT/run.out" -mftfile "$VMFT" -csv -cpu 2
  table_row "brimlock -mftfile -csv -cpu 2" "$WALL" "$ONE" "$recs" "$RSS"
else
  echo "-mftfile rows skipped: icat (sleuthkit) copies the \$MFT out"
fi
best_of_3 "$BIN" -quiet -out "$OUT/run.out" -image "$IMG" -csv
table_row "brimlock -image -csv" "$WALL" - "$recs" "$RSS"
FULL_WALL=$WALL
best_of_3 "$BIN" -quiet -out "$OUT/run.out" -image "$IMG" -csv -cpu 2
table_row "brimlock -image -csv -cpu 2" "$WALL" "$FULL_WALL" "$recs" "$RSS"
best_of_3 "$BIN" -quiet -out "$OUT/run.out" -image "$IMG" -bodyfile
BODY_WALL=$WALL
table_row "brimlock -image -bodyfile" "$WALL" - "$recs" "$RSS"
if command -v fls >/dev/null; then
  measure sh -c "fls -r -m / '$IMG' > '$OUT/run.fls'"
  table_row "fls -r -m / (sleuthkit)" "$WALL" "$BODY_WALL" "$recs" "$RSS"
else
  echo "fls: not installed"
fi
if command -v fsntfsinfo >/dev/null; then
  measure sh -c "fsntfsinfo -B '$OUT/run.fsntfs' -H '$IMG' > /dev/null"
  table_row "fsntfsinfo -B -H (libfsntfs)" "$WALL" "$BODY_WALL" "$recs" "$RSS"
else
  echo "fsntfsinfo: not installed"
fi
rm -f "$OUT"/run.*
# One directory of 1000 files by its path: its index gives the records to read.
measure "$BIN" -quiet -out "$OUT/run.out" -image "$IMG" -csv -filter_dir '\d050'
echo "  -filter_dir of one directory: $(awk -v a="$WALL" -v b="$FULL_WALL" 'BEGIN { if (b <= 0) b = 0.001; printf "%.1f", 100 * a / b }')% of the full walk"
measure "$BIN" -quiet -out "$OUT/run.out" -image "$IMG" -csv -action_include_ownersid
echo "  with -action_include_ownersid: $(awk -v a="$WALL" -v b="$FULL_WALL" 'BEGIN { if (b <= 0) b = 0.001; printf "%.2f", a / b }')x the full walk"
rm -f "$OUT"/run.*
echo

# --- 4. the same volume as a VMDK, and carved -----------------------------------------------
res="$OUT/run.out"
# A walk through a monolithic sparse VMDK of the image (qemu-img, made once) against the walk of
# the raw image; then -regen_mft's carving of the whole image (-mftrange 1 keeps the walk after
# it short) next to `cat` of the image, both from the page cache.
if command -v qemu-img >/dev/null; then
  VMDK="$CACHE/many-$IMAGE_FILES.vmdk"
  if [ ! -f "$VMDK" ]; then qemu-img convert -O vmdk "$IMG" "$VMDK.tmp" && mv "$VMDK.tmp" "$VMDK"; fi
  cat "$VMDK" >/dev/null
  measure "$BIN" -vmdk "$VMDK" -csv -quiet -out "$res"
  row "brimlock -vmdk -csv" "$WALL" "$RSS" "$recs" "$(( $(wc -l <"$res") - 4 ))" "$(stat -c %s "$res")"
  echo "  -vmdk walk is $(awk -v a="$WALL" -v b="$FULL_WALL" 'BEGIN { if (b <= 0) b = 0.001; printf "%.2f", a / b }')x the -image walk"
  rm -f "$res"
else
  echo "qemu-img not installed: no VMDK row"
fi
cat "$IMG" >/dev/null
measure sh -c "cat '$IMG' >/dev/null"
CAT_WALL=$WALL
img_bytes=$(stat -c %s "$IMG")
row "cat of the image (MiB/s read)" "$WALL" "$RSS" - - "$img_bytes"
measure "$BIN" -image "$IMG" -regen_mft -mftrange 1 -csv -quiet -out "$res"
row "brimlock -regen_mft (carving; MiB/s read)" "$WALL" "$RSS" - - "$img_bytes"
echo "  carving reads at $(awk -v a="$CAT_WALL" -v b="$WALL" 'BEGIN { if (b <= 0) b = 0.001; printf "%.0f", 100 * a / b }')% of the speed of cat"
rm -f "$res"
echo

# --- 5. synthetic $MFTs: the cost in the number of records -----------------------------------
SRC="$CACHE/feature.mft"
gzip -dc "$REPO/tests/fixtures/data/feature.mft.gz" >"$SRC"
table_head "synthetic \$MFT, long names, -csv"
PER=""
for n in "$RECORDS" $(( RECORDS * 10 )); do
  MFT="$CACHE/synth-long-$n.mft"
  [ -f "$MFT" ] || python3 "$HERE/synth_mft.py" "$SRC" "$MFT" "$n" 5000 100 >/dev/null
  cat "$MFT" >/dev/null
  measure "$BIN" -quiet -out "$OUT/run.out" -mftfile "$MFT" -csv
  bytes=$(stat -c %s "$OUT/run.out")
  rm -f "$OUT/run.out"
  floor_of "$MFT" "$bytes"
  FLOOR=$WALL
  table_row "floor, $n records" "$WALL" - "$n" "$RSS"
  best_of_3 "$BIN" -quiet -out "$OUT/run.out" -mftfile "$MFT" -csv
  table_row "brimlock, $n records" "$WALL" "$FLOOR" "$n" "$RSS"
  PER="$PER $(awk -v s="$WALL" -v n="$n" 'BEGIN { printf "%.3f", s * 1e6 / n }')"
  [ "$n" = "$RECORDS" ] || rm -f "$MFT"  # ten times the records: made again when asked for
done
echo "  microseconds per record:$PER (linear when the two agree)"
echo
