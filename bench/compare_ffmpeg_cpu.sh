#!/usr/bin/env bash
# Whole-recording CPU of dvr_server against the ffmpeg command line doing the
# same job, side by side in one run: one 1920x1080 30 fps channel with both
# stamps, x264 ultrafast at 4 Mbps on one thread, AAC audio, 10-s MPEG-TS
# files; ffmpeg draws testsrc2 with two drawtext filters and writes with the
# segment muxer. Both in real-time pacing (-re for ffmpeg) and in fast pacing.
# Prints CPU ms per frame of each and their ratio (dvr_server / ffmpeg).
#
# Usage: bench/compare_ffmpeg_cpu.sh [SECONDS]   (default 30; build/ first)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build_dir="${DVR_BUILD_DIR:-$root/build}"
seconds="${1:-30}"
server="$build_dir/tools/dvr_server/dvr_server"
dvrctl="$build_dir/tools/dvrctl/dvrctl"
recinfo="$build_dir/tools/recinfo/recinfo"
font=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf
ticks="$(getconf CLK_TCK)"

# No capital S or T in the path: the service cuts a default file name's path
# at its first %, S or T (so specified), and dvrctl refuses such a path.
work="/tmp/dvr-cmp-$$"
mkdir -m 700 "$work"
server_pid=""
cleanup() {
  [ -n "$server_pid" ] && kill -TERM "$server_pid" 2>/dev/null && wait "$server_pid" || true
  rm -rf "$work"
}
trap cleanup EXIT

# CPU time (user + system) of a process so far, in ms.
cpu_ms() {
  awk -v t="$ticks" '{ print ($14 + $15) * 1000 / t }' "/proc/$1/stat"
}

# dvr_server recording for $seconds in pacing $1; prints "cpu_ms frames".
run_server() {
  # A short path: the service cuts default file names that run past its
  # name buffer, and dvrctl refuses a storage path that would be cut.
  local pacing="$1" dir="$work/${1:0:1}"
  mkdir -p "$dir/rec"
  export DVR_BINDER_DIR="$dir/binder" DVR_SVC_DIR="$dir/svc" DVR_MSG_DIR="$dir/msg"
  export DVR_VENDOR_DATA="$dir/vendor_data"
  printf '{"pacing": "%s", "cameras": [{"id": 10, "frameRate": 30, "width": 1920, "height": 1080, "stride": 1920}], "audioInputs": [{"id": 20}], "encoder": {"ids": [100], "preset": "ultrafast", "threads": 1}}\n' \
    "$pacing" >"$dir/sim.json"
  "$server" --runtime-cfg "$root/config/runtime.cfg" --sim-config "$dir/sim.json" 2>"$dir/server.log" &
  server_pid=$!
  "$dvrctl" --wait 20000 getRecorderCount >/dev/null
  "$dvrctl" attachCamera 100 10 >/dev/null
  "$dvrctl" attachAudio 100 20 >/dev/null
  "$dvrctl" setAudioRecording 100 on >/dev/null
  "$dvrctl" setBitRate 100 4 >/dev/null
  "$dvrctl" setFrameRate 100 30 >/dev/null
  "$dvrctl" setFileLength 100 10 >/dev/null
  "$dvrctl" setTimestamp 100 --enable on --x 32 --y 32 --size 3 --color 7 >/dev/null
  "$dvrctl" setSelfDefinedStamp 100 --enable on --x 32 --y 96 --size 3 --color 6 >/dev/null
  "$dvrctl" setStoragePath 100 "$dir/rec" >/dev/null
  "$dvrctl" nextFile 100 "$dir/rec/first.ts" >/dev/null
  local before after
  before="$(cpu_ms "$server_pid")"
  "$dvrctl" startRecord 100 >/dev/null
  sleep "$seconds"
  "$dvrctl" stopRecord 100 >/dev/null
  after="$(cpu_ms "$server_pid")"
  kill -TERM "$server_pid"
  wait "$server_pid" || true
  server_pid=""
  local frames
  frames="$("$recinfo" --json "$dir/rec" | awk -F: '/"videoFrames"/ { gsub(/[ ,]/, "", $2); s += $2 } END { print s }')"
  echo "$(awk -v a="$after" -v b="$before" 'BEGIN { print a - b }') $frames"
}

# The ffmpeg command line doing the same; $1 realtime or fast. Prints
# "cpu_ms frames".
run_ffmpeg() {
  local dir="$work/ffmpeg-$1" pace=()
  mkdir -p "$dir"
  [ "$1" = realtime ] && pace=(-re)
  local stamps="drawtext=fontfile=$font:text='%{localtime}':x=32:y=32:fontsize=48:fontcolor=white"
  stamps="$stamps,drawtext=fontfile=$font:text='USER STAMP':x=32:y=96:fontsize=48:fontcolor=yellow"
  local out
  out="$( { /usr/bin/env time -f '%U %S' ffmpeg -hide_banner -loglevel error "${pace[@]}" \
    -f lavfi -i "testsrc2=size=1920x1080:rate=30" "${pace[@]}" \
    -f lavfi -i "sine=frequency=440:sample_rate=16000" -t "$seconds" \
    -vf "$stamps" -pix_fmt nv12 -c:v libx264 -preset ultrafast -tune zerolatency -b:v 4M \
    -threads 1 -g 30 -c:a aac -ac 1 -f segment -segment_time 10 -segment_format mpegts \
    "$dir/out%03d.ts" ; } 2>&1 >/dev/null | tail -n 1)"
  echo "$(awk -v u="${out% *}" -v s="${out#* }" 'BEGIN { print (u + s) * 1000 }') $((seconds * 30))"
}

printf '%-9s %-10s %10s %8s %12s\n' pacing program cpu_ms frames ms_per_frame
for pacing in realtime fast; do
  # Through files, not command substitutions, so that a refused dvrctl call
  # ends the script (set -e) instead of yielding figures of a failed run.
  run_server "$pacing" >"$work/server.txt"
  run_ffmpeg "$pacing" >"$work/ffmpeg.txt"
  read -r server_cpu server_frames <"$work/server.txt"
  read -r ffmpeg_cpu ffmpeg_frames <"$work/ffmpeg.txt"
  server_per=$(awk -v c="$server_cpu" -v f="$server_frames" 'BEGIN { printf "%.3f", c / f }')
  ffmpeg_per=$(awk -v c="$ffmpeg_cpu" -v f="$ffmpeg_frames" 'BEGIN { printf "%.3f", c / f }')
  printf '%-9s %-10s %10.0f %8d %12s\n' "$pacing" dvr_server "$server_cpu" "$server_frames" "$server_per"
  printf '%-9s %-10s %10.0f %8d %12s\n' "$pacing" ffmpeg "$ffmpeg_cpu" "$ffmpeg_frames" "$ffmpeg_per"
  awk -v a="$server_per" -v b="$ffmpeg_per" -v p="$pacing" 'BEGIN { printf "%-9s ratio %.2f\n", p, a / b }'
done
