#!/bin/bash
# Throughput figures of brimlock; prints them and nothing else. Not part of the test suite.
#
#   bench/run_bench.sh [BRIMLOCK] [RECORDS]
#
# BRIMLOCK: the built binary (default: the first of build*/brimlock next to the repository).
# RECORDS:  size of the synthesised $MFT (default 1000000).
# Cache (big files, kept between runs): $BENCH_CACHE, default /work/bench-cache.
#
# 1. An extracted $MFT of RECORDS records, cloned from the feature fixture's $MFT
#    (bench/synth_mft.py): default format, -csv, -csvl2t, -bodyfile, -csvperpath and
#    -filepath_only, each written to a file, next to `cat` of the
#    same $MFT.
# 2. A file of $BENCH_DIGEST_MIB (default 512) MiB of pseudo-random bytes, made once: the MD5,
#    SHA-1 and SHA-256 speed of bench_digest_speed (built next to BRIMLOCK with
#    -DBRIMLOCK_BENCH=ON; skipped otherwise) next to md5sum, sha1sum and sha256sum, all reading
#    the file from the page cache.
# 3. A volume image with many files, made once with mkntfs and ntfs-3g (needs root and FUSE;
#    skipped otherwise): `brimlock -image X -csv`, again with -action_include_ownersid, then
#    -bodyfile and -csvl2t, next to
#    `fls -r -m / X` (sleuthkit), when fls is installed, and `-filter_dir` of one of its
#    directories as a share of the full walk.
# 4. The same image as a VMDK (qemu-img, made once): the -vmdk walk against the -image walk; and
#    the carving of -regen_mft against `cat` of the image.
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
IMAGE_FILES="${BENCH_IMAGE_FILES:-200000}"
DIGEST_MIB="${BENCH_DIGEST_MIB:-512}"
mkdir -p "$CACHE"
OUT="$(mktemp -d /tmp/brimlock-bench.XXXXXX)"
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

# --- 1. synthesised $MFT ------------------------------------------------------------------
SRC="$CACHE/feature.mft"
MFT="$CACHE/synth-$RECORDS.mft"
gzip -dc "$REPO/tests/fixtures/data/feature.mft.gz" >"$SRC"
[ -f "$MFT" ] || python3 "$HERE/synth_mft.py" "$SRC" "$MFT" "$RECORDS" >/dev/null
MFT_BYTES=$(stat -c %s "$MFT")
echo "extracted \$MFT: $RECORDS records, $(mib "$MFT_BYTES") MiB ($MFT)"
cat "$MFT" >/dev/null  # warm the page cache, as for every run below

measure cat "$MFT"
row "cat \$MFT" "$WALL" "$RSS" "$RECORDS" - "$MFT_BYTES"

for fmt in default csv csvl2t bodyfile csvperpath filepath_only; do
  res="$OUT/$fmt.txt"
  args=(-mftfile "$MFT" -quiet -out "$res")
  [ "$fmt" = default ] || args+=("-$fmt")
  measure "$BIN" "${args[@]}"
  rows=$(( $(wc -l <"$res") - 4 ))
  bytes=$(stat -c %s "$res")
  row "brimlock -mftfile ($fmt)" "$WALL" "$RSS" "$RECORDS" "$rows" "$bytes"
  measure cat "$res"
  row "  cat of its results ($(mib "$bytes") MiB)" "$WALL" "$RSS" - - "$bytes"
  rm -f "$res"
done
echo

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

# --- 3. volume image with many files ---------------------------------------------------------
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
echo "volume image: $IMG, $(du -m "$IMG" | cut -f1) MiB on disk"
cat "$IMG" >/dev/null
res="$OUT/image.csv"
measure "$BIN" -image "$IMG" -csv -quiet -out "$res"
rows=$(( $(wc -l <"$res") - 4 ))
recs=$(awk -F, 'NR > 4 {print $1}' "$res" | sort -u | wc -l)
row "brimlock -image -csv" "$WALL" "$RSS" "$recs" "$rows" "$(stat -c %s "$res")"
FULL_WALL=$WALL
rm -f "$res"
# One directory of 1000 files by its path: its index gives the records to read.
measure "$BIN" -image "$IMG" -csv -quiet -filter_dir '\d050' -out "$res"
rows=$(( $(wc -l <"$res") - 4 ))
row "brimlock -image -csv -filter_dir" "$WALL" "$RSS" - "$rows" "$(stat -c %s "$res")"
echo "  -filter_dir of one directory: $(awk -v a="$WALL" -v b="$FULL_WALL" 'BEGIN { if (b <= 0) b = 0.001; printf "%.1f", 100 * a / b }')% of the full walk"
rm -f "$res"
# The same with owners: $Secure:$SDS read once, one lookup per record.
measure "$BIN" -image "$IMG" -csv -action_include_ownersid -quiet -out "$res"
row "  with -action_include_ownersid" "$WALL" "$RSS" "$recs" "$(( $(wc -l <"$res") - 4 ))" "$(stat -c %s "$res")"
rm -f "$res"
# The timeline formats side by side with fls, which users of bodyfiles compare first.
for fmt in bodyfile csvl2t; do
  measure "$BIN" -image "$IMG" "-$fmt" -quiet -out "$res"
  row "brimlock -image -$fmt" "$WALL" "$RSS" "$recs" "$(( $(wc -l <"$res") - 4 ))" "$(stat -c %s "$res")"
  [ "$fmt" = bodyfile ] && BODY_WALL=$WALL
  rm -f "$res"
done
if command -v fls >/dev/null; then
  measure sh -c "fls -r -m / '$IMG' > '$OUT/fls.body'"
  lines=$(wc -l <"$OUT/fls.body")
  row "fls -r -m / (sleuthkit)" "$WALL" "$RSS" - "$lines" "$(stat -c %s "$OUT/fls.body")"
  echo "  -bodyfile is $(awk -v a="$WALL" -v b="$BODY_WALL" 'BEGIN { if (b <= 0) b = 0.001; printf "%.1f", a / b }')x faster than fls -r -m /"
  rm -f "$OUT/fls.body"
else
  echo "fls not installed: no comparison"
fi

# --- 4. the same volume as a VMDK, and carved -----------------------------------------------
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
