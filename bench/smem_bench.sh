#!/bin/bash
# Cost of split-and-merge EM: the fit of iris (K = 4) and of a synthetic data
# set (one 4-dimensional Gaussian and 5 discrete attributes, K = 5), each with
# AutoClass priors, once by plain EM and once with --n-sm 5. Prints the CPU
# seconds of the fit, the rows of its objective traces in the log (the
# updates of the kept runs) and the candidates tried.
#
# Usage: bench/smem_bench.sh [path/to/vesk] [cases] [restarts]
set -euo pipefail

VESK=${1:-build/vesk}
CASES=${2:-10000}
RESTARTS=${3:-1}
VESK=$(cd "$(dirname "$VESK")" && pwd)/$(basename "$VESK")
DATA=$(cd "$(dirname "$0")/../data" && pwd)
BENCH=$(cd "$(dirname "$0")" && pwd)
WORK=$(mktemp -d /tmp/vesk_smem_bench_XXXXXX)
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"
cp "$DATA/iris_freq.csv" .

"$BENCH/synth_data.sh" "$CASES" > synth_freq.csv

# run NAME BASE ARGS...: fits, then prints the EM CPU time, the trace rows
# and the candidates tried.
run() {
  local name=$1 base=$2
  shift 2
  "$VESK" -f "$base" "$@" -r 7 -n "$RESTARTS" -A 2> msg.txt
  local cpu updates tried
  cpu=$(awk -F, '/^#### ID:CPUTIME/ {s = 1; next} s && $1 == "EM" {print $2; exit}' "${base}_log.csv")
  updates=$(awk -F, '/^#### ID:(LOGLIKE-K|LOGLIKE-SMEM-K)/ {s = 1; next} /^#### ID:/ {s = 0} s && !/^#/ {n++} END {print n + 0}' "${base}_log.csv")
  tried=$(grep -c '    Candidate ' msg.txt || true)
  printf "%-22s em_cpu_seconds=%-10s trace_rows=%-7s candidates_tried=%s\n" "$name" "$cpu" "$updates" "$tried"
}

run "iris plain" iris -k 4 -x 5 -u 0-3
run "iris --n-sm 5" iris -k 4 -x 5 -u 0-3 --n-sm 5
run "synth plain" synth -k 5 -x 9 -u 0-3
run "synth --n-sm 5" synth -k 5 -x 9 -u 0-3 --n-sm 5
