#!/usr/bin/env bash
# EM speed on generated workloads: prints one row per workload and thread
# count with the reading time, the number of EM iterations, the time per EM
# iteration and the peak resident memory. Data are generated with fixed
# seeds; every fit runs a fixed number of iterations (-e 0 -m ITERS).
# Times come from vesk's own LAPTIME section; one iteration is the EM time
# divided by the number of updates of the single start. Each fit is run
# REPEAT times (default 3) and the fastest run is shown, with the median of
# the runs beside it: other work on the machine only ever slows a run down.
#
# Usage: [REPEAT=n] bench/em_table.sh [path/to/vesk] [iterations] [thread counts...]
#   thread counts default to "1 all" (all = OMP_NUM_THREADS unset).
set -euo pipefail

VESK=${1:-build/vesk}
ITERS=${2:-10}
shift $(($# > 2 ? 2 : $#))
THREADS=("$@")
[ ${#THREADS[@]} -eq 0 ] && THREADS=(1 all)
VESK=$(readlink -f "$VESK")
REPEAT=${REPEAT:-3}
WORK=$(mktemp -d /tmp/vesk_em_table_XXXXXX)
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"

# gen NAME CASES N_GAUSS N_DISCRETE N_VALUES MISSING_FRACTION SEED
# Cases come from 5 latent groups; continuous values are correlated normals
# shifted by the group, discrete values lean towards a group-dependent value.
gen() {
  awk -v n="$2" -v ng="$3" -v nd="$4" -v nv="$5" -v miss="$6" -v seed="$7" 'BEGIN {
    srand(seed);
    for (i = 0; i < n; i++) {
      g = int(rand() * 5); line = ""; prev = 0;
      for (j = 0; j < ng; j++) {
        z = sqrt(-2 * log(1 - rand())) * cos(6.283185307 * rand());
        v = ((j % 3) + 1) * g + z + 0.5 * prev; prev = z;
        f = (miss > 0 && rand() < miss) ? "NA" : sprintf("%.4f", v);
        line = line (j ? "," : "") f;
      }
      for (a = 0; a < nd; a++) {
        v = (rand() < 0.6) ? (g + a) % nv : int(rand() * nv);
        line = line ((ng + a) ? "," : "") "v" v;
      }
      print line;
    }
  }' > "$1_freq.csv"
}

gen g4 100000 4 0 4 0 101
gen g10 10000 10 0 4 0 102
gen mixed 100000 4 5 4 0 103
gen disc 100000 0 20 5 0 104
gen miss 100000 4 0 4 0.2 105

# name | description | vesk arguments
WORKLOADS=(
  "g4|100,000 cases, one 4-d Gaussian, K=5|-f g4 -k 5 -x 4 -u 0-3"
  "g10|10,000 cases, one 10-d Gaussian, K=10|-f g10 -k 10 -x 10 -u 0-9"
  "mixed|100,000 cases, 5 discrete + one 4-d Gaussian, K=5|-f mixed -k 5 -x 9 -u 0-3"
  "disc_log|100,000 cases, 20 discrete, K=10, -J -c 1 -w 1|-f disc -k 10 -x 20 -J -c 1 -w 1"
  "disc|100,000 cases, 20 discrete, K=10, plain scale|-f disc -k 10 -x 20"
  "miss|100,000 cases, one 4-d Gaussian, 20% missing, K=5|-f miss -k 5 -x 4 -u 0-3"
)

section_value() {  # section_value FILE SECTION LABEL
  awk -F, -v s="#### ID:$2" -v l="$3" '$0 == s {in_s = 1; next} /^#### ID:/ {in_s = 0}
    in_s && $1 == l {print $2; exit}' "$1"
}

printf '%-9s %-7s %9s %6s %10s %10s %9s  %s\n' workload threads "read(s)" iters "ms/iter" "(median)" "peak(MB)" description
for entry in "${WORKLOADS[@]}"; do
  IFS='|' read -r name desc args <<< "$entry"
  base=$(echo $args | awk '{print $2}')
  for nt in "${THREADS[@]}"; do
    : > runs.txt
    for ((r = 0; r < REPEAT; r++)); do
      rm -f "${base}_log.csv"
      # shellcheck disable=SC2086
      if [ "$nt" = all ]; then
        (unset OMP_NUM_THREADS; /usr/bin/time -f %M -o mem.txt "$VESK" $args -m "$ITERS" -e 0 -r 1 2> msg.txt)
      else
        OMP_NUM_THREADS=$nt /usr/bin/time -f %M -o mem.txt "$VESK" $args -m "$ITERS" -e 0 -r 1 2> msg.txt
      fi
      updates=$(awk -F, '/^#### ID:SEED/ {s = 1; next} s && !/^#/ {print $4; exit}' "${base}_log.csv")
      em=$(section_value "${base}_log.csv" LAPTIME EM)
      rd=$(section_value "${base}_log.csv" LAPTIME "Reading cases")
      echo "$(awk -v em="$em" -v u="$updates" 'BEGIN {print 1000 * em / u}') $rd $updates $(tail -1 mem.txt)" >> runs.txt
    done
    sort -n runs.txt | awk -v n="$name" -v t="$nt" -v d="$desc" '
      { ms[NR] = $1; rd[NR] = $2; u[NR] = $3; kb[NR] = $4 }
      END { m = ms[int((NR + 1) / 2)]
            printf "%-9s %-7s %9.3f %6d %10.1f %10.1f %9.1f  %s\n", n, t, rd[1], u[1], ms[1], m, kb[1] / 1024, d }'
  done
done
