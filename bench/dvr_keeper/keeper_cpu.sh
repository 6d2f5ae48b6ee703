#!/usr/bin/env bash
# The keeper daemon's CPU while two channels record in real time, next to
# dvrctl watch (a client that only prints the same notifications).
#   bench/dvr_keeper/keeper_cpu.sh [BUILD_DIR] [SECONDS] [FILE_SECONDS]
# Two simulated 640x480 30 fps cameras, 4 Mbps, files of FILE_SECONDS
# (default 10) for SECONDS (default 120), into a directory the keeper manages.
# Prints each process's user+system CPU seconds and its share of one core.
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
build="${1:-$root/build}"
seconds="${2:-120}"
file_seconds="${3:-10}"
work="$(mktemp -d)"
cleanup() {
  for pid in ${watch_pid:-} ${keeper_pid:-} ${server_pid:-}; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap cleanup EXIT
cd "$work"
sed "s|^DVR_DEFAULT_PATH=.*|DVR_DEFAULT_PATH=default|" "$root/config/runtime.cfg" > runtime.cfg
cat > sim.json <<'JSON'
{"pacing": "realtime",
 "cameras": [{"id": 10, "type": 4, "frameRate": 30, "width": 640, "height": 480, "stride": 640},
             {"id": 11, "type": 4, "frameRate": 30, "width": 640, "height": 480, "stride": 640}],
 "audioInputs": [{"id": 20}], "encoder": {"ids": [100, 101]}}
JSON
mkdir recordings
export DVR_BINDER_DIR="$work/binder"
TMPDIR="$work" "$build/tools/dvr_server/dvr_server" --runtime-cfg runtime.cfg \
  --sim-config sim.json --state-dir svc --data vendor_data --binder-dir binder \
  --msg-dir msg 2> server.log &
server_pid=$!
ctl="$build/tools/dvrctl/dvrctl"
"$ctl" getRecorderCount > /dev/null
"$build/tools/dvr_keeper/dvr-keeper" --db "$work/catalog.db" run --dir "$work/recordings" \
  --server-dir "$work" 2> keeper.log &
keeper_pid=$!
"$ctl" watch > watch.log 2>&1 &
watch_pid=$!
for encoder in 100 101; do
  "$ctl" attachCamera $encoder $((encoder - 90)) > /dev/null
  "$ctl" attachAudio $encoder 20 > /dev/null
  "$ctl" setBitRate $encoder 4 > /dev/null
  "$ctl" setFileLength $encoder "$file_seconds" > /dev/null
  "$ctl" setStoragePath $encoder recordings > /dev/null
  "$ctl" nextFile $encoder "recordings/first_$encoder.ts" > /dev/null
done
cpu() { awk '{print $14 + $15}' "/proc/$1/stat"; }
keeper_start=$(cpu $keeper_pid)
watch_start=$(cpu $watch_pid)
"$ctl" startRecord 100 > /dev/null
"$ctl" startRecord 101 > /dev/null
sleep "$seconds"
keeper_end=$(cpu $keeper_pid)
watch_end=$(cpu $watch_pid)
"$ctl" stopRecordAll > /dev/null
ticks=$(getconf CLK_TCK)
files=$(grep -c ' finish ' watch.log || true)
report() {
  awk -v name="$1" -v t="$2" -v hz="$ticks" -v s="$seconds" \
    'BEGIN { printf "%-14s %6.2f s CPU  %6.3f %% of a core\n", name, t / hz, 100 * t / hz / s }'
}
echo "load: $(cut -d' ' -f1-3 /proc/loadavg); ${seconds} s, ${files} files finished"
report "dvr-keeper" $((keeper_end - keeper_start))
report "dvrctl watch" $((watch_end - watch_start))
