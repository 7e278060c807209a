#!/bin/bash
# bench/stack.sh BUILD: the stacks of a process with 200 threads, by `qvx stack` and by eu-stack,
# in turns; and by DumpAllThreadsStack from inside, as qvx_bench_stack measures it.
set -euo pipefail
export LC_ALL=C
build=$(cd "$1" && pwd)
rounds=${QVX_BENCH_ROUNDS:-9}
work=$(mktemp -d)
trap 'kill "$victim" 2>/dev/null; rm -rf "$work"' EXIT

"$build/bench/qvx_bench_stack" >"$work/inside" &
victim=$!
until grep -q ready "$work/inside"; do sleep 0.05; done

milliseconds() {
  local began
  began=$(date +%s%N)
  "$@" >"$work/out" 2>&1
  echo $((($(date +%s%N) - began) / 1000))
}
median() { sort -n "$1" | sed -n "$(((rounds + 1) / 2))p"; }

for _ in $(seq "$rounds"); do
  milliseconds "$build/tools/qvx/qvx" stack "$victim" >>"$work/ours"
  milliseconds eu-stack -p "$victim" >>"$work/peer"
done
inside=$(sed -n 's/^inside //p' "$work/inside")
awk -v ours="$(median "$work/ours")" -v peer="$(median "$work/peer")" -v inside="$inside" 'BEGIN {
  printf "stacks of 200 threads: qvx %.1f ms, eu-stack %.1f ms, %.2f times its speed (aim 1.0: %s)\n",
         ours / 1000, peer / 1000, peer / ours, (peer >= ours ? "reached" : "MISSED")
  printf "DumpAllThreadsStack from inside %.1f ms, %.2f times its speed (aim 1.0: %s)\n",
         inside / 1000, peer / inside, (peer >= inside ? "reached" : "MISSED")
}'
