#!/usr/bin/env bash
# Times the case file reader on a generated 1,000,000-line, 10-column file:
# once with 10 discrete columns (identical cases merged) and once with 5
# discrete and 5 continuous columns (one record per line). EM is limited to
# one iteration so that the run is dominated by reading and the statistics.
# Usage: bench/read_bench.sh [path/to/vesk] [lines]
set -euo pipefail

VESK=${1:-build/vesk}
LINES=${2:-1000000}
VESK=$(cd "$(dirname "$VESK")" && pwd)/$(basename "$VESK")
WORK=$(mktemp -d /tmp/vesk_read_bench_XXXXXX)
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"

# Deterministic data: discrete values from small alphabets, reals with 3 decimals.
awk -v n="$LINES" 'BEGIN {
  srand(7); OFS = ",";
  for (i = 0; i < n; i++) {
    printf "v%d,w%d,x%d,y%d,z%d", int(rand()*3), int(rand()*4), int(rand()*3), int(rand()*5), int(rand()*2);
    printf ",p%d,q%d,r%d,s%d,t%d\n", int(rand()*3), int(rand()*2), int(rand()*3), int(rand()*4), int(rand()*2);
  }
}' > disc_freq.csv
awk -v n="$LINES" 'BEGIN {
  srand(11); OFS = ",";
  for (i = 0; i < n; i++) {
    printf "v%d,w%d,x%d,y%d,z%d", int(rand()*3), int(rand()*4), int(rand()*3), int(rand()*5), int(rand()*2);
    printf ",%.3f,%.3f,%.3f,%.3f,%.3f\n", rand()*10, rand()*5 - 2, rand()*100, rand(), rand()*3 + rand();
  }
}' > mixed_freq.csv

run_case() {
  local base=$1; shift
  local size
  size=$(du -h "${base}_freq.csv" | cut -f1)
  local t0 t1
  t0=$(date +%s.%N)
  "$VESK" -f "$base" -k 2 -x 10 -m 1 -r 1 "$@" 2> "${base}.err" > /dev/null
  t1=$(date +%s.%N)
  local cpu lap
  cpu=$(awk -F, '/^#### ID:CPUTIME/ {s = 1; next} s && /^Reading cases,/ {print $2; exit}' "${base}_log.csv")
  lap=$(awk -F, '/^#### ID:LAPTIME/ {s = 1; next} s && /^Reading cases,/ {print $2; exit}' "${base}_log.csv")
  printf '%-6s %s lines (%s): reading cases %s s CPU, %s s elapsed; whole run %.2f s\n' \
    "$base" "$LINES" "$size" "${cpu:-?}" "${lap:-?}" "$(echo "$t1 - $t0" | bc)"
}

run_case disc
run_case mixed -u 5-9
