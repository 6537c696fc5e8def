#!/usr/bin/env bash
# Saves per second of `ombrine places save` and `ombrine trips add` with 1 and with 8 processes
# at once, and how many acknowledged saves (exit 0) are missing afterwards (goal: 0).
#
#   bench/concurrent_saves.sh [path/to/ombrine] [saves per process]
#
# Each run gets a container, configuration and cache folder of its own in a temporary folder,
# removed at the end. Prints one line per (command, processes).
set -euo pipefail

program=${1:-build/release/bin/ombrine}
saves=${2:-25}
program=$(realpath "$program")
work=$(mktemp -d "${TMPDIR:-/tmp}/ombrine-bench-saves-XXXXXX")
trap 'rm -rf "$work"' EXIT

run_places() {  # processes -> prints "seconds acknowledged stored"
  local processes=$1 root="$work/places-$1"
  mkdir -p "$root"
  export OMBRINE_CONTAINER="$root/c" XDG_CONFIG_HOME="$root/config" XDG_CACHE_HOME="$root/cache"
  unset OMBRINE_SYNC_DIR
  local start end
  start=$(date +%s.%N)
  for p in $(seq "$processes"); do
    (
      for i in $(seq "$saves"); do
        if "$program" places save --at "$p.$i,1" --name "p$p-$i" >/dev/null 2>&1; then echo "p$p-$i"; fi
      done >"$root/acks-$p"
    ) &
  done
  wait
  end=$(date +%s.%N)
  "$program" places list --json >"$root/list"
  local acked stored
  acked=$(cat "$root"/acks-* | sort -u)
  stored=$(python3 -c 'import json,sys; print("\n".join(f["displayName"] for f in json.load(open(sys.argv[1]))["favorites"]))' "$root/list" | sort -u)
  echo "$(echo "$end - $start" | bc) $(echo "$acked" | grep -c .) $(comm -23 <(echo "$acked") <(echo "$stored") | grep -c . || true)"
}

run_trips() {  # processes -> prints "seconds acknowledged lost"
  local processes=$1 root="$work/trips-$1"
  mkdir -p "$root"
  export OMBRINE_CONTAINER="$root/c" XDG_CONFIG_HOME="$root/config" XDG_CACHE_HOME="$root/cache"
  unset OMBRINE_SYNC_DIR
  "$program" places home --at 48.85,2.35 >/dev/null 2>&1
  local start end
  start=$(date +%s.%N)
  for p in $(seq "$processes"); do
    (
      for i in $(seq "$saves"); do
        # Days far apart, so that no two trips conflict: each process has a year of its own.
        local day
        day=$(date -d "2040-01-01 + $((p * 400 + i * 3)) days" +%F)
        if "$program" trips add --at "$p.$i,1" --from "$day" --name "t$p-$i" >/dev/null 2>&1; then echo "t$p-$i"; fi
      done >"$root/acks-$p"
    ) &
  done
  wait
  end=$(date +%s.%N)
  "$program" trips list --json >"$root/list"
  local acked stored
  acked=$(cat "$root"/acks-* | sort -u)
  stored=$(python3 -c 'import json,sys; print("\n".join(t["trip"]["destination"].get("displayName") or "" for t in json.load(open(sys.argv[1]))))' "$root/list" | sort -u)
  echo "$(echo "$end - $start" | bc) $(echo "$acked" | grep -c .) $(comm -23 <(echo "$acked") <(echo "$stored") | grep -c . || true)"
}

printf '%-14s %9s %7s %12s %14s %6s\n' command processes saves seconds saves/second lost
for kind in places trips; do
  for processes in 1 8; do
    read -r seconds acked lost < <("run_$kind" "$processes")
    printf '%-14s %9d %7d %12.2f %14.1f %6d\n' "$kind" "$processes" "$acked" "$seconds" \
      "$(echo "$acked / $seconds" | bc -l)" "$lost"
  done
done
