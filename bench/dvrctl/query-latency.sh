#!/usr/bin/env bash
# One dvrctl query as a script makes it (process start to exit):
# "dvrctl getBitRate 100" against a throwaway dvr_server, timed with
# hyperfine next to /bin/true (the cost of starting any process) and, when
# given, another dvrctl build (for example main's) in the same run.
#   bench/dvrctl/query-latency.sh [BUILD_DIR] [OTHER_DVRCTL]
# Prints hyperfine's table and the median of each command in ms.
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
build_dir="${1:-$root/build}"
other="${2:-}"
command -v hyperfine >/dev/null || { echo "query-latency: needs hyperfine (scripts/install-deps)" >&2; exit 1; }

run_dir="$(mktemp -d)"
server_pid=""
cleanup() {
  [ -n "$server_pid" ] && kill -TERM "$server_pid" 2>/dev/null && wait "$server_pid" || true
  rm -rf "$run_dir"
}
trap cleanup EXIT

sed "s|^DVR_DEFAULT_PATH=.*|DVR_DEFAULT_PATH=$run_dir/default|" "$root/config/runtime.cfg" \
  >"$run_dir/runtime.cfg"
export DVR_BINDER_DIR="$run_dir/binder"
"$build_dir/tools/dvr_server/dvr_server" --runtime-cfg "$run_dir/runtime.cfg" \
  --state-dir "$run_dir/svc" --data "$run_dir/vendor_data" --binder-dir "$DVR_BINDER_DIR" \
  --msg-dir "$run_dir/msg" --name dvr 2>"$run_dir/server.log" &
server_pid=$!
dvrctl="$build_dir/tools/dvrctl/dvrctl"
"$dvrctl" --wait 20000 getRecorderCount >/dev/null

commands=(/bin/true "$dvrctl getBitRate 100")
[ -n "$other" ] && commands+=("$other getBitRate 100")
echo "load: $(cut -d' ' -f1-3 /proc/loadavg)"
hyperfine -N --warmup 10 --runs "${RUNS:-300}" --export-json "$run_dir/times.json" "${commands[@]}"
python3 - "$run_dir/times.json" <<'PY'
import json, statistics, sys
for result in json.load(open(sys.argv[1]))["results"]:
    print(f'median {statistics.median(result["times"]) * 1000:7.2f} ms  {result["command"]}')
PY
