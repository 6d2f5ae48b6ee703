#!/usr/bin/env bash
# How fast a second dvr_server with a taken name gives up, against what it
# cost before the name was checked first: building the whole service (device
# discovery, recorders, callback thread) up to the point of publishing, which
# is what a fresh server does before it logs "Serving".
#
#   bench/dvr_server/taken_name.sh [BUILD_DIR] [RUNS]
#
# Prints the median wall time of each over RUNS runs (default 10), their
# ratio, and the floor: "dvr_server --version", the same process doing
# nothing (loading its libraries is most of it). Small simulated cameras
# (320x240), as in the tests; on a board the service's construction also
# waits for the encoder service to run, without a time limit.
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
build_dir="${1:-$root/build}"
runs="${2:-10}"
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

now_us() { echo $(($(date +%s%N) / 1000)); }
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

"$server" "${common[@]}" --data "$work/vd0" 2>"$work/first.log" &
first_pid=$!
until grep -qs "Serving 'dvr'" "$work/first.log"; do sleep 0.05; done

refused=()
for i in $(seq "$runs"); do
  start=$(now_us)
  if "$server" "${common[@]}" --data "$work/vd$i" --msg-dir "$work/msg$i" 2>/dev/null; then
    echo "taken_name: the second server did not refuse the name" >&2
    exit 1
  fi
  refused+=($(($(now_us) - start)))
done

floor=()
for i in $(seq "$runs"); do
  start=$(now_us)
  "$server" --version >/dev/null
  floor+=($(($(now_us) - start)))
done

built=()
for i in $(seq "$runs"); do
  log="$work/other$i.log"
  start=$(now_us)
  "$server" "${common[@]}" --name "other$i" --data "$work/vo$i" --msg-dir "$work/mo$i" \
    2>"$log" &
  pid=$!
  until grep -qs "Serving 'other$i'" "$log"; do sleep 0.005; done
  built+=($(($(now_us) - start)))
  kill -TERM "$pid"
  wait "$pid"
done

refused_us=$(printf '%s\n' "${refused[@]}" | median)
built_us=$(printf '%s\n' "${built[@]}" | median)
floor_us=$(printf '%s\n' "${floor[@]}" | median)
echo "load: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "taken name refused:        median $((refused_us / 1000)) ms over $runs runs"
echo "service built to publish:  median $((built_us / 1000)) ms over $runs runs"
echo "dvr_server --version:      median $((floor_us / 1000)) ms over $runs runs"
awk -v a="$built_us" -v b="$refused_us" 'BEGIN { printf "ratio: %.1f x faster\n", a / b }'
