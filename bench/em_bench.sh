#!/bin/bash
# EM throughput on synthetic data: 100,000 cases with one 4-dimensional
# Gaussian group and 5 discrete attributes, K = 5, a fixed number of EM
# iterations. Prints the wall time per EM iteration.
#
# Usage: bench/em_bench.sh [path/to/vesk] [iterations] [cases]
set -euo pipefail

VESK=${1:-build/vesk}
ITERS=${2:-20}
CASES=${3:-100000}
VESK=$(cd "$(dirname "$VESK")" && pwd)/$(basename "$VESK")
BENCH=$(cd "$(dirname "$0")" && pwd)
WORK=$(mktemp -d /tmp/vesk_bench_XXXXXX)
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"

"$BENCH/synth_data.sh" "$CASES" > bench_freq.csv

start=$(date +%s.%N)
"$VESK" -f bench -k 5 -x 9 -u 0-3 -m "$ITERS" -e 0 -r 1 2> msg.txt
end=$(date +%s.%N)

updates=$(awk -F, '/^#### ID:SEED/ {s = 1; next} s && !/^#/ {print $4; exit}' bench_log.csv)
em_time=$(awk -F, '/^#### ID:LAPTIME/ {s = 1; next} s && $1 == "EM" {print $2; exit}' bench_log.csv)
em_time=${em_time:-$(echo "$end - $start" | bc -l)}
echo "cases=$CASES classes=5 updates=$updates em_seconds=$em_time"
awk -v t="$em_time" -v u="$updates" 'BEGIN { printf "seconds per EM iteration: %.4f\n", t / u }'
