#!/usr/bin/env bash
# dvr-web's CPU with its page open in headless Chromium: first with the
# channels idle (the page polls the channels every 2 s, the recordings every
# 5 s, keeps its event stream), then with both channels recording (a live
# picture of each channel every second on top).
#   bench/dvr_web/web_cpu.sh [BUILD_DIR] [SECONDS]
# Two simulated 640x480 30 fps cameras, 4 Mbps, 10-s files, SECONDS (default
# 60) per phase. Prints dvr-web's user+system CPU seconds and share of a core.
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
build="$(cd "${1:-$root/build}" && pwd)"
seconds="${2:-60}"
work="$(mktemp -d)"
cleanup() {
  for pid in ${web_pid:-} ${keeper_pid:-} ${server_pid:-}; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap cleanup EXIT
cd "$work"
sed "s|^DVR_DEFAULT_PATH=.*|DVR_DEFAULT_PATH=default|" "$root/config/runtime.cfg" > runtime.cfg
cat > sim.json <<JSON
{"pacing": "realtime",
 "cameras": [{"id": 10, "type": 4, "frameRate": 30, "width": 640, "height": 480, "stride": 640},
             {"id": 11, "type": 4, "frameRate": 30, "width": 640, "height": 480, "stride": 640}],
 "audioInputs": [{"id": 20}], "encoder": {"ids": [100, 101]},
 "arena": {"path": "$work/arena"}}
JSON
mkdir recordings
export DVR_BINDER_DIR="$work/binder"
TMPDIR="$work" "$build/tools/dvr_server/dvr_server" --runtime-cfg runtime.cfg \
  --sim-config sim.json --state-dir svc --data vendor_data --binder-dir binder \
  --msg-dir msg 2> server.log &
server_pid=$!
ctl="$build/tools/dvrctl/dvrctl"
"$ctl" --wait 20000 getRecorderCount > /dev/null
"$build/tools/dvr_keeper/dvr-keeper" --db "$work/catalog.db" run --dir "$work/recordings" \
  --server-dir "$work" 2> keeper.log &
keeper_pid=$!
"$build/tools/dvr_web/dvr-web" --listen 127.0.0.1:0 --db "$work/catalog.db" \
  --storage "$work/recordings" --arena "$work/arena" > web.out 2> web.log &
web_pid=$!
for encoder in 100 101; do
  "$ctl" attachCamera $encoder $((encoder - 90)) > /dev/null
  "$ctl" setAudioRecording $encoder off > /dev/null
  "$ctl" setBitRate $encoder 4 > /dev/null
  "$ctl" setFileLength $encoder 10 > /dev/null
  "$ctl" setStoragePath $encoder recordings > /dev/null
done
url=""
for _ in $(seq 1 100); do
  url="$(sed -n 's|^dvr-web: listening on \(http://.*\)$|\1|p' web.out)"
  [ -n "$url" ] && break
  sleep 0.1
done
[ -n "$url" ] || { echo "web_cpu: dvr-web did not start" >&2; cat web.log >&2; exit 1; }
cpu() { awk '{print $14 + $15}' "/proc/$1/stat"; }
ticks=$(getconf CLK_TCK)
report() {
  awk -v name="$1" -v t="$2" -v hz="$ticks" -v s="$seconds" \
    'BEGIN { printf "%-28s %6.2f s CPU  %6.3f %% of a core\n", name, t / hz, 100 * t / hz / s }'
}
# Measures one phase: the page opened, then SECONDS with it open.
phase() {
  local name="$1" start end
  coproc page { /usr/bin/python3 "$root/bench/dvr_web/page_open.py" "$url" "$seconds"; }
  read -r _ <&"${page[0]}"
  start=$(cpu $web_pid)
  wait "$page_PID"
  end=$(cpu $web_pid)
  report "$name" $((end - start))
}
echo "load: $(cut -d' ' -f1-3 /proc/loadavg); ${seconds} s per phase"
phase "dvr-web, channels idle"
curl -s -X POST "$url/api/channels/100/start" > /dev/null
curl -s -X POST "$url/api/channels/101/start" > /dev/null
phase "dvr-web, both recording"
"$ctl" stopRecordAll > /dev/null
echo "requests served: $(wc -l < web.log); load: $(cut -d' ' -f1-3 /proc/loadavg)"
