#!/usr/bin/env bash
# Throughput of the dissimilarity file: 5,000 cases with one 2-dimensional
# Gaussian group and one discrete attribute, K = 5 (AutoClass priors keep
# every membership positive), written with --dissim. The case and Gaussian
# sections have 25,000,000 rows each. Prints the dissimilarity phase's CPU and
# elapsed time from the log, the file size, the peak memory of the run, and
# for comparison the time dd takes to write the same number of bytes to the
# same folder.
# Usage: bench/dissim_bench.sh [path/to/vesk] [cases] [folder]
set -euo pipefail

VESK=${1:-build/vesk}
CASES=${2:-5000}
VESK=$(cd "$(dirname "$VESK")" && pwd)/$(basename "$VESK")
WORK=$(mktemp -d "${3:-/tmp}/vesk_dissim_bench_XXXXXX")
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"

awk -v n="$CASES" 'BEGIN {
  srand(2011);
  for (i = 0; i < n; i++) {
    g = int(rand() * 5);
    z1 = sqrt(-2 * log(1 - rand())) * cos(6.283185307 * rand());
    z2 = sqrt(-2 * log(1 - rand())) * cos(6.283185307 * rand());
    v = (rand() < 0.7) ? g % 3 : int(rand() * 3);
    printf "%.3f,%.3f,w%d\n", 2 * g + z1, g - z1 + z2, v;
  }
}' > bench_freq.csv

run=("$VESK" -f bench -k 5 -x 3 -u 0-1 -A -m 30 -r 1 --dissim)
if [ -x /usr/bin/time ]; then
  /usr/bin/time -f '%M' -o rss.txt "${run[@]}" 2> msg.txt
else
  echo '?' > rss.txt
  "${run[@]}" 2> msg.txt
fi

row() { awk -F, -v sec="$1" -v lab="$2" '$0 == "#### ID:" sec {s = 1; next} s && $1 == lab {print $2; exit}' bench_log.csv; }
bytes=$(stat -c %s bench_dissim.csv)
rows=$(grep -vc '^#' bench_dissim.csv)
cpu=$(row CPUTIME "Computing dissimilarities")
lap=$(row LAPTIME "Computing dissimilarities")
rm -f bench_dissim.csv
sync
dd_start=$(date +%s.%N)
dd if=/dev/zero of=dd_out bs=1M count=$(( (bytes + 1048575) / 1048576 )) status=none
dd_end=$(date +%s.%N)
rm -f dd_out

printf '%s cases, K = 5: %s rows, %s bytes (%.2f GB)\n' "$CASES" "$rows" "$bytes" "$(echo "$bytes / 1000000000" | bc -l)"
printf 'dissimilarities: %s s CPU, %s s elapsed (%.1f ns per row)\n' "$cpu" "$lap" "$(echo "$lap * 1000000000 / $rows" | bc -l)"
printf 'dd writing the same bytes: %.2f s elapsed\n' "$(echo "$dd_end - $dd_start" | bc -l)"
printf 'peak resident memory of the run: %s kB\n' "$(cat rss.txt)"
