#!/bin/bash
# bench/stack.sh BUILD: the stacks of a process with 200 threads, by `qvx stack` and by eu-stack,
# in turns; and by DumpAllThreadsStack from inside, into a file. Ours tell
# source lines, which plain eu-stack does not: eu-stack -s does the same work, and the aim is to
# be no slower than the plain one. Where debug files are compressed, as those of Debian's C
# library, most of our time is spent on unpacking them for the lines.
set -euo pipefail
export LC_ALL=C
build=$(cd "$1" && pwd)
rounds=${QVX_BENCH_ROUNDS:-9}
work=$(mktemp -d)
trap 'kill "$victim" 2>/dev/null; rm -rf "$work"' EXIT

"$build/bench/qvx_bench_stack" "$work/dump" >"$work/inside" &
victim=$!
until grep -q ready "$work/inside"; do sleep 0.05; done

microseconds() {
  local began
  began=$(date +%s%N)
  "$@" >"$work/out" 2>&1
  echo $((($(date +%s%N) - began) / 1000))
}
median() { sort -n "$1" | sed -n "$(((rounds + 1) / 2))p"; }

for _ in $(seq "$rounds"); do
  microseconds "$build/tools/qvx/qvx" stack "$victim" >>"$work/ours"
  microseconds eu-stack -p "$victim" >>"$work/peer"
  microseconds eu-stack -s -p "$victim" >>"$work/lines"
done
inside=$(sed -n 's/^inside //p' "$work/inside")
awk -v ours="$(median "$work/ours")" -v peer="$(median "$work/peer")" \
  -v lines="$(median "$work/lines")" -v inside="$inside" '
function Tell(name, time) {
  printf "%s %.1f ms: %.2f times eu-stack (aim 1.0: %s), %.2f times eu-stack -s\n",
         name, time / 1000, peer / time, (peer >= time ? "reached" : "MISSED"), lines / time
}
BEGIN {
  printf "stacks of 200 threads: eu-stack %.1f ms, eu-stack -s %.1f ms\n", peer / 1000, lines / 1000
  Tell("qvx stack", ours)
  Tell("DumpAllThreadsStack from inside", inside)
}'
