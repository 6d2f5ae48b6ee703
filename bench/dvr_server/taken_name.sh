#!/usr/bin/env bash
# How fast and how cheaply a second dvr_server with a taken name gives up,
# against what it cost before the name was checked first: building the whole
# service (device discovery, recorders, callback thread) up to the point of
# publishing, which is what a fresh server does before it logs "Serving".
#
#   bench/dvr_server/taken_name.sh [BUILD_DIR] [RUNS] [EARLIER_SERVER]
#
# EARLIER_SERVER, a dvr_server built before the name was checked first, has
# its refusal timed as well (it builds the service, fails to publish and
# tears the service down). Prints the median wall and CPU (user + system)
# time of each over RUNS runs (default 10), with "dvr_server --version", the
# same process doing nothing (loading its libraries is most of it), as the
# floor. Small simulated cameras (320x240), as in the tests; on a board the
# service's construction also waits for the encoder service to run, without
# a time limit.
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
build_dir="${1:-$root/build}"
runs="${2:-10}"
earlier="${3:-}"
server="$build_dir/tools/dvr_server/dvr_server"

work="$(mktemp -d)"
first_pid=""
cleanup() {
  [ -n "$first_pid" ] && kill -TERM "$first_pid" 2>/dev/null && wait "$first_pid" || true
  rm -rf "$work"
}
trap cleanup EXIT
sed "s|^DVR_DEFAULT_PATH=.*|DVR_DEFAULT_PATH=$work/default|" "$root/config/runtime.cfg" \
  >"$work/runtime.cfg"
cat >"$work/sim.json" <<'JSON'
{"pacing": "realtime",
 "cameras": [{"id": 10, "type": 4, "frameRate": 10, "width": 320, "height": 240, "stride": 320},
             {"id": 11, "type": 4, "frameRate": 10, "width": 320, "height": 240, "stride": 320}],
 "audioInputs": [{"id": 20}], "encoder": {"ids": [100, 101]}, "arena": {"bytes": 16777216}}
JSON
export DVR_BINDER_DIR="$work/binder" DVR_SVC_DIR="$work/svc" DVR_MSG_DIR="$work/msg"
common=(--runtime-cfg "$work/runtime.cfg" --sim-config "$work/sim.json")
TIMEFORMAT='%R %U %S'

# The median of column $2 (1 wall, 2 CPU) of the "wall user sys" lines in $1,
# in milliseconds.
median_ms() {
  awk -v c="$2" '{ print (c == 1 ? $1 : $2 + $3) * 1000 }' "$1" | sort -n |
    awk '{ v[NR] = $1 } END { printf "%d", v[int((NR + 1) / 2)] }'
}

# Runs "$@" RUNS times, each expected to fail, timing each into $work/$label.
time_refusals() {
  local label="$1"
  shift
  for i in $(seq "$runs"); do
    if { time "$@" --data "$work/vd$i" --msg-dir "$work/msg$i" 2>/dev/null; } \
      2>>"$work/$label"; then
      echo "taken_name: the second server did not refuse the name" >&2
      exit 1
    fi
  done
}

report() {
  printf '%-28s wall %4d ms, CPU %4d ms\n' "$1" "$(median_ms "$work/$2" 1)" \
    "$(median_ms "$work/$2" 2)"
}

"$server" "${common[@]}" --data "$work/vd0" 2>"$work/first.log" &
first_pid=$!
until grep -qs "Serving 'dvr'" "$work/first.log"; do sleep 0.05; done

for i in $(seq "$runs"); do
  { time "$server" --version >/dev/null; } 2>>"$work/floor"
done
time_refusals refused "$server" "${common[@]}"
[ -z "$earlier" ] || time_refusals earlier "$earlier" "${common[@]}"

# A fresh server up to "Serving": its wall time from the log's appearance,
# its CPU time from the process at that moment (clock ticks).
for i in $(seq "$runs"); do
  log="$work/other$i.log"
  start=$(date +%s%N)
  "$server" "${common[@]}" --name "other$i" --data "$work/vo$i" --msg-dir "$work/mo$i" \
    2>"$log" &
  pid=$!
  until grep -qs "Serving 'other$i'" "$log"; do sleep 0.005; done
  wall=$((($(date +%s%N) - start) / 1000))
  ticks=$(awk '{ print $14 + $15 }' "/proc/$pid/stat")
  kill -TERM "$pid"
  wait "$pid"
  awk -v w="$wall" -v t="$ticks" -v hz="$(getconf CLK_TCK)" \
    'BEGIN { printf "%.6f %.6f 0\n", w / 1e6, t / hz }' >>"$work/built"
done

echo "load: $(cut -d' ' -f1-3 /proc/loadavg), $runs runs, medians"
report "dvr_server --version" floor
report "taken name refused" refused
[ -z "$earlier" ] || report "earlier server refusing" earlier
report "service built to publish" built
