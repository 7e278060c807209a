#!/bin/bash
# bench/file_service.sh BUILD: the file service of a built tree beside curl from nginx, sftp,
# scp, an rsync daemon and cp. One big file and a tree of small ones go both ways over loopback
# between folders of a tmpfs; rounds are interleaved, medians count. All servers are this
# script's own, on 127.0.0.1, with settings in a temporary folder, and end with it.
# QVX_BENCH_ROUNDS (5), QVX_BENCH_MIB (1024) and QVX_BENCH_FILES (10000) change the size.
set -euo pipefail
export LC_ALL=C

build=$(cd "$1" && pwd)
qvx=$build/tools/qvx/qvx
rounds=${QVX_BENCH_ROUNDS:-5}
mebibytes=${QVX_BENCH_MIB:-1024}
files=${QVX_BENCH_FILES:-10000}
[ -x "$qvx" ] || { echo "file_service: $qvx is missing" >&2; exit 1; }

for base in /dev/shm /tmp; do
  [ "$(stat -f -c %T "$base" 2>/dev/null)" = tmpfs ] && break
done
work=$(mktemp -d "$base/qvx_bench.XXXXXX")
chmod 755 "$work"
pids=()
finish() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 130' INT TERM

free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}
wait_port() {
  for _ in $(seq 200); do
    (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return
    sleep 0.05
  done
  echo "file_service: nothing listens on port $1" >&2
  exit 1
}

# --- servers --------------------------------------------------------------------------------

mkdir "$work/etc" "$work/from" "$work/to"
from=$work/from to=$work/to

start_qvx() {
  : >"$work/etc/qvx.out"
  "$qvx" serve --port 0 >"$work/etc/qvx.out" &
  pids+=($!)
  until grep -q 'serving on' "$work/etc/qvx.out"; do sleep 0.05; done
  qvx_server=127.0.0.1:$(sed -n 's/.*127\.0\.0\.1:\([0-9]*\).*/\1/p' "$work/etc/qvx.out")
}

start_nginx() {
  http_port=$(free_port)
  cat >"$work/etc/nginx.conf" <<CONF
daemon off; master_process off; pid $work/etc/nginx.pid; error_log $work/etc/nginx.log;
events {}
http {
  access_log off; sendfile on; tcp_nopush on;
  client_body_temp_path $work/etc/b; proxy_temp_path $work/etc/p; fastcgi_temp_path $work/etc/f;
  uwsgi_temp_path $work/etc/u; scgi_temp_path $work/etc/s;
  server { listen 127.0.0.1:$http_port; root $work; }
}
CONF
  nginx -c "$work/etc/nginx.conf" 2>/dev/null &
  pids+=($!)
  wait_port "$http_port"
}

start_sshd() {
  ssh_port=$(free_port)
  ssh-keygen -q -t ed25519 -N '' -f "$work/etc/host"
  ssh-keygen -q -t ed25519 -N '' -f "$work/etc/user"
  cp "$work/etc/user.pub" "$work/etc/authorized"
  cat >"$work/etc/sshd.conf" <<CONF
ListenAddress 127.0.0.1
Port $ssh_port
HostKey $work/etc/host
AuthorizedKeysFile $work/etc/authorized
PidFile none
StrictModes no
UsePAM no
PermitRootLogin yes
Subsystem sftp /usr/lib/openssh/sftp-server
CONF
  [ "$(id -u)" != 0 ] || mkdir -p /run/sshd
  /usr/sbin/sshd -D -f "$work/etc/sshd.conf" -E "$work/etc/sshd.log" &
  pids+=($!)
  wait_port "$ssh_port"
  ssh_options=(-q -o BatchMode=yes -o "IdentityFile=$work/etc/user" -o IdentitiesOnly=yes
    -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null)
}

start_rsync() {
  rsync_port=$(free_port)
  cat >"$work/etc/rsyncd.conf" <<CONF
address = 127.0.0.1
port = $rsync_port
use chroot = no
log file = $work/etc/rsync.log
[work]
path = $work
read only = no
uid = $(id -u)
gid = $(id -g)
CONF
  rsync --daemon --no-detach --config="$work/etc/rsyncd.conf" &
  pids+=($!)
  wait_port "$rsync_port"
}

# --- what is measured ------------------------------------------------------------------------

me=$(id -un)
sftp_do() { echo "$1" | sftp "${ssh_options[@]}" -P "$ssh_port" -b - "$me@127.0.0.1" >/dev/null; }
scp_do() { scp "${ssh_options[@]}" -P "$ssh_port" -r "$1" "$2"; }
rsync_do() { rsync -r "$1" "$2"; }
rsync_url() { echo "rsync://127.0.0.1:$rsync_port/work/${1#"$work"/}"; }

get_qvx() { "$qvx" get "$qvx_server" "$from/$1" "$to/$1" >/dev/null; }
put_qvx() { "$qvx" put "$qvx_server" "$from/$1" "$to/$1" >/dev/null; }
get_curl() { curl -sf -o "$to/$1" "http://127.0.0.1:$http_port/from/$1"; }
get_sftp() { sftp_do "get -r $from/$1 $to/$1"; }
put_sftp() { if [ -d "$from/$1" ]; then sftp_do "put -r $from/$1 $to"; else sftp_do "put $from/$1 $to/$1"; fi; }
get_scp() { scp_do "$me@127.0.0.1:$from/$1" "$to/$1"; }
put_scp() { scp_do "$from/$1" "$me@127.0.0.1:$to/$1"; }
get_rsync() { rsync_do "$(rsync_url "$from/$1")" "$to/"; }
put_rsync() { rsync_do "$from/$1" "$(rsync_url "$to")/"; }
get_cp() { cp -r "$from/$1" "$to/$1"; }

# Memory that a virtual machine's host has to find first would be paid for by whoever comes upon
# it: so as much as a run needs is taken and given back before each.
warm_up() {
  head -c $((mebibytes << 20)) /dev/zero >"$to/memory"
  rm "$to/memory"
}

declare -A times
measure() {  # DIRECTION WHAT PEER
  local begin end
  warm_up
  begin=$EPOCHREALTIME
  "$1_$3" "$2"
  end=$EPOCHREALTIME
  times[$1,$2,$3]+="$((${end/./} - ${begin/./})) "
  diff -rq "$from/$2" "$to/$2" >/dev/null || { echo "file_service: $1 of $2 by $3 differs" >&2; exit 1; }
  rm -rf "${to:?}/$2"
}
median() { tr ' ' '\n' <<<"$1" | sed '/^$/d' | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

run_all() {  # DIRECTION WHAT PEER...
  local direction=$1 what=$2 round peer
  shift 2
  for ((round = 0; round < rounds; round++)); do
    for peer in qvx "$@"; do measure "$direction" "$what" "$peer"; done
  done
}

print_all() {  # DIRECTION WHAT PEER=LEAST_RATIO...
  local direction=$1 what=$2 own peer least time
  shift 2
  own=$(median "${times[$direction,$what,qvx]}")
  awk -v d="$direction" -v w="$what" -v t="$own" \
    'BEGIN { printf "%-4s %-5s %-6s %9.3f s\n", d, w, "qvx", t / 1e6 }'
  for peer in "$@"; do
    least=${peer#*=} peer=${peer%%=*}
    time=$(median "${times[${direction/put/$([ "$peer" = curl ] && echo get || echo put)},$what,$peer]}")
    awk -v d="$direction" -v w="$what" -v p="$peer" -v t="$time" -v own="$own" -v least="$least" \
      'BEGIN { r = t / own
               printf "%-4s %-5s %-6s %9.3f s  %5.2f times its speed", d, w, p, t / 1e6, r
               if (least != "-") printf "  (aim %s: %s)", least, (r >= least + 0 ? "reached" : "MISSED")
               print "" }'
  done
}

start_qvx
start_nginx
start_sshd
start_rsync
head -c $((mebibytes << 20)) /dev/urandom >"$from/big"
python3 - "$from/tree" "$files" <<'CODE'
import os, sys
top, count = sys.argv[1], int(sys.argv[2])
for number in range(count):
    folder = os.path.join(top, "folder%03d" % (number // 100))
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "file%05d" % number), "wb") as out:
        out.write(os.urandom(4096))
CODE

echo "medians of $rounds interleaved rounds; big: $mebibytes MiB, tree: $files files of 4 KiB"
run_all get big curl sftp rsync cp
print_all get big curl=0.9 sftp=3 rsync=1.5 cp=-
# An upload stands beside the same download by curl, which has no server to send to here.
for ((round = 0; round < rounds; round++)); do
  measure put big qvx
  measure get big curl
  measure put big sftp
  measure put big rsync
done
times[put,big,cp]=${times[get,big,cp]}
print_all put big curl=0.9 sftp=3 rsync=1.5 cp=-
run_all get tree sftp scp rsync cp
print_all get tree sftp=2 scp=2 rsync=- cp=-
run_all put tree sftp scp rsync
print_all put tree sftp=2 scp=2 rsync=-
