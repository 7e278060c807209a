#!/bin/bash
# bench/archive.sh BUILD: packing and unpacking a tree of text beside zip and unzip, in a tmpfs;
# rounds are interleaved, medians count, and each result is compared with the tree.
# QVX_BENCH_ROUNDS (5) and QVX_BENCH_MIB (200) change the size.
set -euo pipefail
export LC_ALL=C

build=$(cd "$1" && pwd)
qvx=$build/tools/qvx/qvx
rounds=${QVX_BENCH_ROUNDS:-5}
mebibytes=${QVX_BENCH_MIB:-200}
[ -x "$qvx" ] || { echo "archive: $qvx is missing" >&2; exit 1; }

for base in /dev/shm /tmp; do
  [ "$(stat -f -c %T "$base" 2>/dev/null)" = tmpfs ] && break
done
work=$(mktemp -d "$base/qvx_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM
cd "$work"

# Words of a made-up language, as often as words are in real ones, in files of all sizes.
python3 - tree "$mebibytes" <<'CODE'
import os, random, sys
top, wanted = sys.argv[1], int(sys.argv[2]) << 20
rng = random.Random(1)
words = ["".join(rng.choices("etaoinshrdlucmfwypvbgk", k=rng.randint(1, 11))) for _ in range(20000)]
weights = [1 / (rank + 3) for rank in range(len(words))]
number = done = 0
while done < wanted:
    folder = os.path.join(top, "folder%03d" % (number // 100))
    os.makedirs(folder, exist_ok=True)
    text = " ".join(rng.choices(words, weights, k=int(rng.paretovariate(1.2) * 700) % 300000 + 10))
    with open(os.path.join(folder, "file%05d.txt" % number), "w") as out:
        out.write(text)
    done += len(text)
    number += 1
CODE

pack_qvx() { "$qvx" zip -f qvx.zip tree >/dev/null; }
pack_zip() { rm -f zip.zip; zip -q6r zip.zip tree; }
unpack_qvx() { "$qvx" unzip zip.zip -d out >/dev/null; }
unpack_unzip() { unzip -q zip.zip -d out; }

declare -A times
measure() {  # WHAT PEER
  local begin end
  begin=$EPOCHREALTIME
  "$1_$2"
  end=$EPOCHREALTIME
  times[$1,$2]+="$((${end/./} - ${begin/./})) "
  if [ "$1" = unpack ]; then
    diff -rq tree out/tree >/dev/null || { echo "archive: $2 unpacked something else" >&2; exit 1; }
    rm -rf out
  fi
}
median() { tr ' ' '\n' <<<"$1" | sed '/^$/d' | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

print_pair() {  # WHAT PEER LEAST
  awk -v what="$1" -v peer="$2" -v least="$3" -v own="$(median "${times[$1,qvx]}")" \
    -v other="$(median "${times[$1,$2]}")" \
    'BEGIN { r = other / own
             printf "%-7s qvx %7.3f s  %-6s %7.3f s  %5.2f times its speed  (aim %s: %s)\n", what,
               own / 1e6, peer, other / 1e6, r, least, (r >= least + 0 ? "reached" : "MISSED") }'
}

for ((round = 0; round < rounds; round++)); do
  for pair in "pack qvx" "pack zip" "unpack qvx" "unpack unzip"; do
    # shellcheck disable=SC2086  # two words on purpose
    measure $pair
  done
done
unzip -tqq qvx.zip || [ $? = 1 ]
files=$(find tree -type f | wc -l)
echo "medians of $rounds interleaved rounds; $files files, $mebibytes MiB of text"
print_pair pack zip 1.0
print_pair unpack unzip 1.3
echo "sizes: qvx $(stat -c %s qvx.zip), zip $(stat -c %s zip.zip)"
