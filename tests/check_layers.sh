#!/usr/bin/env bash
# Fails when a source file includes a header of a layer above its own. The layers, lowest first:
# base storage ntfs analysis results run. analysis/ and results/ may read the option set
# (run/cmd_params.h, run/mft_entries_ctx.h), and nothing else above them.
set -u
cd "${1:-$(dirname "$0")/..}" || exit 2
rank() { case $1 in base) echo 0;; storage) echo 1;; ntfs) echo 2;; analysis) echo 3;; results) echo 4;; run) echo 5;; *) echo -1;; esac; }
bad=0
for file in base/* storage/* ntfs/* analysis/* results/* run/*; do
  case $file in *.h|*.cpp) ;; *) continue;; esac
  own=$(rank "${file%%/*}")
  while read -r header; do
    case $header in run/cmd_params.h|run/mft_entries_ctx.h) [ "$own" -ge 3 ] && continue;; esac
    if [ "$(rank "${header%%/*}")" -gt "$own" ]; then
      echo "$file includes $header, a layer above its own"
      bad=1
    fi
  done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([a-z_]*\/[a-z_.]*\)".*/\1/p' "$file")
done
[ $bad = 0 ] && echo "includes run down the layers"
exit $bad
