#!/bin/bash
# bench/http.sh BUILD: `qvx fetch` of a built tree beside curl and aria2c, from an nginx of this
# script's own on 127.0.0.1 into a tmpfs. Rounds are interleaved, medians count; every file is
# compared with the original. QVX_BENCH_ROUNDS (5) and QVX_BENCH_MIB (1024) change the size.
set -euo pipefail
export LC_ALL=C

build=$(cd "$1" && pwd)
qvx=$build/tools/qvx/qvx
rounds=${QVX_BENCH_ROUNDS:-5}
mebibytes=${QVX_BENCH_MIB:-1024}
[ -x "$qvx" ] || { echo "http: $qvx is missing" >&2; exit 1; }
unset http_proxy all_proxy ALL_PROXY

for base in /dev/shm /tmp; do
  [ "$(stat -f -c %T "$base" 2>/dev/null)" = tmpfs ] && break
done
work=$(mktemp -d "$base/qvx_bench.XXXXXX")
server=
finish() {
  [ -z "$server" ] || kill "$server" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 130' INT TERM

start_nginx() {
  port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  cat >"$work/conf" <<CONF
daemon off; master_process off; pid $work/pid; error_log $work/log;
events {}
http {
  access_log off; sendfile on; tcp_nopush on;
  client_body_temp_path $work/b; proxy_temp_path $work/p; fastcgi_temp_path $work/f;
  uwsgi_temp_path $work/u; scgi_temp_path $work/s;
  server { listen 127.0.0.1:$port; root $work/from; }
}
CONF
  nginx -c "$work/conf" -e "$work/log" 2>/dev/null &
  server=$!
  for _ in $(seq 200); do
    (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && return
    sleep 0.05
  done
  echo "http: nginx does not serve" >&2
  exit 1
}

one_qvx() { "$qvx" fetch "$url" -o "$to" >/dev/null; }
one_curl() { curl -sf -o "$to" "$url"; }
four_qvx() { "$qvx" fetch "$url" -o "$to" -j 4 >/dev/null; }
four_aria2c() { aria2c -q -x4 -s4 -d "$(dirname "$to")" -o "$(basename "$to")" "$url"; }
# Each piece goes to its own place in one file.
four_curl() {
  local quarter=$((size / 4)) i pieces=()
  truncate -s "$size" "$to"
  for i in 0 1 2 3; do
    curl -sf -r "$((i * quarter))-$(((i + 1) * quarter - 1))" "$url" |
      dd of="$to" bs=1M seek="$((i * quarter))" oflag=seek_bytes iflag=fullblock conv=notrunc status=none &
    pieces+=($!)
  done
  wait "${pieces[@]}"
}

declare -A times
measure() {  # KIND PEER
  local begin end
  begin=$EPOCHREALTIME
  "$1_$2"
  end=$EPOCHREALTIME
  times[$1,$2]+="$((${end/./} - ${begin/./})) "
  cmp -s "$work/from/big" "$to" || { echo "http: $1 by $2 differs" >&2; exit 1; }
  rm -f "$to"
}
median() { tr ' ' '\n' <<<"$1" | sed '/^$/d' | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

compare() {  # KIND PEER=LEAST_RATIO...
  local kind=$1 round peer own time least
  shift
  for ((round = 0; round < rounds; round++)); do
    for peer in qvx "${@%%=*}"; do measure "$kind" "$peer"; done
  done
  own=$(median "${times[$kind,qvx]}")
  awk -v k="$kind" -v t="$own" 'BEGIN { printf "%-5s %-7s %9.3f s\n", k, "qvx", t / 1e6 }'
  for peer in "$@"; do
    least=${peer#*=} peer=${peer%%=*}
    time=$(median "${times[$kind,$peer]}")
    awk -v k="$kind" -v p="$peer" -v t="$time" -v own="$own" -v least="$least" \
      'BEGIN { r = t / own
               printf "%-5s %-7s %9.3f s  %5.2f times its speed  (aim %s: %s)\n", k, p, t / 1e6, r,
                 least, (r >= least + 0 ? "reached" : "MISSED") }'
  done
}

mkdir "$work/from" "$work/to"
head -c $((mebibytes << 20)) /dev/urandom >"$work/from/big"
size=$((mebibytes << 20))
to=$work/to/big
start_nginx
url=http://127.0.0.1:$port/big
echo "medians of $rounds interleaved rounds of $mebibytes MiB"
compare one curl=0.95
compare four aria2c=1.5 curl=1.0
