#!/usr/bin/env bash
# Runs a matrix of fits with two vesk binaries (or one binary under several
# thread counts) and compares every result file, the message stream and the
# exit status byte for byte. Only the numbers of the CPUTIME and LAPTIME rows
# are masked. Every run is made at the default precision and again with
# --prec-out 21 --prec-msg 21.
#
# Usage: bench/compare_outputs.sh REFERENCE_VESK NEW_VESK [THREADS...]
#   REFERENCE_VESK runs with OMP_NUM_THREADS=1; NEW_VESK runs once per thread
#   count given (default: 1 2 3). Exit status 0 when everything matches.
set -uo pipefail

REF=$(readlink -f "${1:?reference binary}")
NEW=$(readlink -f "${2:?new binary}")
shift 2
THREADS=("$@")
[ ${#THREADS[@]} -eq 0 ] && THREADS=(1 2 3)
DATA=${VESK_DATA:-$(cd "$(dirname "$0")/../data" && pwd)}
WORK=$(mktemp -d /tmp/vesk_compare_XXXXXX)
trap 'rm -rf "$WORK"' EXIT

# A generated table with partly missing Gaussian groups of several sizes and
# missing discrete values: columns 0-5 continuous, 6-8 discrete.
awk 'BEGIN {
  srand(4242);
  for (i = 0; i < 3000; i++) {
    g = int(rand() * 3);
    for (j = 0; j < 6; j++) {
      z = sqrt(-2 * log(1 - rand())) * cos(6.283185307 * rand());
      v = (j + 1) * g + z + (j > 0 ? 0.5 * prev : 0);
      prev = z;
      f[j] = (rand() < 0.2) ? "NA" : sprintf("%.3f", v);
    }
    line = f[0];
    for (j = 1; j < 6; j++) line = line "," f[j];
    for (a = 0; a < 3; a++) {
      v = (rand() < 0.7) ? (g + a) % 3 : int(rand() * 4);
      line = line "," ((rand() < 0.1) ? "?" : "c" v);
    }
    print line;
  }
}' > "$WORK/gen_freq.csv"

# name | input files | one or more vesk command lines separated by ";"
CASES=(
  "iris_ml|iris_freq.csv|-f iris -k 3 -x 5 -u 0-3 -r 1 -n 3"
  "iris_ml_fail|iris_freq.csv|-f iris -k 2:6:1 -x 5 -u 0-3 -n 10 -r 7"
  "iris_map_cs|iris_freq.csv|-f iris -k 2:5:1 -x 5 -u 0-3 -n 4 -r 7 -A -g cs"
  "iris_daem|iris_freq.csv|-f iris -k 3 -x 5 -u 0-3 -r 3 -A -b -n 2"
  "iris_log|iris_freq.csv|-f iris -k 2:4:1 -x 5 -u 0-3 -r 5 -A -J -D --show-attr-memp"
  "iris_log_daem|iris_freq.csv|-f iris -k 3 -x 5 -u 0-3 -r 5 -A -J -b"
  "iris_groups|iris_freq.csv|-f iris -k 3 -x 5 -u 0-1#2#3 -r 2 -c 1 -w 1 -T 1 -D --show-attr-memp"
  "iris_verbose|iris_freq.csv|-f iris -k 3 -x 5 -u 0-3 -r 4 -A -m 4 --verbose"
  "iris_read|iris_freq.csv|-f iris -k 3 -x 5 -u 0-3 -r 1 -A -s a;-f iris -x 5 -u 0-3 -s a -R -D --show-attr-memp"
  "titanic_ml|titanic_freq.txt|-f titanic -k 3 -x 4 -r 2 -n 5 -D --show-attr-memp --show-attr-cluster"
  "titanic_log|titanic_freq.txt|-f titanic -k 2:4:1 -x 4 -r 2 -c 1 -w 1 -J -D --show-attr-memp"
  "titanic_log_daem|titanic_freq.txt|-f titanic -k 3 -x 4 -r 2 -c 1 -w auto -J -b -n 2"
  "titanic_daem|titanic_freq.txt|-f titanic -k 3 -x 4 -r 2 -b"
  "titanic_cs|titanic_freq.txt|-f titanic -k 2:5:1 -x 4 -r 9 -A -g cs -n 3"
  "titanic_read|titanic_freq.txt|-f titanic -k 3 -x 4 -r 2 -J -A;-f titanic -x 4 -R -J -A -D --show-attr-memp"
  "air_ml|airquality_freq.csv|-f airquality -k 2 -x 5 -u 0-3 -r 1 -D --show-attr-memp"
  "air_map|airquality_freq.csv|-f airquality -k 2:4:1 -x 5 -u 0-3 -r 3 -A -n 3 -D --show-attr-memp"
  "air_log|airquality_freq.csv|-f airquality -k 3 -x 5 -u 0-3 -r 3 -A -J -D --show-attr-memp"
  "air_daem|airquality_freq.csv|-f airquality -k 3 -x 5 -u 0-3 -r 3 -A -b"
  "air_log_daem|airquality_freq.csv|-f airquality -k 3 -x 5 -u 0-3 -r 3 -A -b -J"
  "air_groups|airquality_freq.csv|-f airquality -k 3 -x 5 -u 0-1#2-3 -r 3 -A -D --show-attr-memp"
  "air_three|airquality_freq.csv|-f airquality -k 2 -x 5 -u 0-2 -r 6 -A -J -g cs -D --show-attr-memp"
  "air_verbose|airquality_freq.csv|-f airquality -k 2 -x 5 -u 0-3 -r 2 -A -m 3 --verbose"
  "air_read|airquality_freq.csv|-f airquality -k 3 -x 5 -u 0-3 -r 3 -A;-f airquality -x 5 -u 0-3 -R -D --show-attr-memp"
  "gen_map|gen_freq.csv|-f gen -k 3 -x 9 -u 0-5 -r 11 -A -n 2 -D --show-attr-memp"
  "gen_ml|gen_freq.csv|-f gen -k 2:3:1 -x 9 -u 0-5 -r 12"
  "gen_log|gen_freq.csv|-f gen -k 4 -x 9 -u 0-5 -r 13 -A -J -D --show-attr-memp"
  "gen_daem|gen_freq.csv|-f gen -k 3 -x 9 -u 0-5 -r 14 -A -b -J"
  "gen_plain_daem|gen_freq.csv|-f gen -k 3 -x 9 -u 0-5 -r 14 -A -b"
  "gen_groups|gen_freq.csv|-f gen -k 3 -x 9 -u 0-2#3-4#5 -r 15 -A -g cs -D --show-attr-memp"
  "gen_read|gen_freq.csv|-f gen -k 3 -x 9 -u 0-5 -r 16 -A -J;-f gen -x 9 -u 0-5 -R -A -J -D --show-attr-memp"
  "iris_smem|iris_freq.csv|-f iris -k 2:5:1 -x 5 -u 0-3 -r 7 -A -n 2 --n-sm 3 --verbose"
  "iris_smem_daem|iris_freq.csv|-f iris -k 4 -x 5 -u 0-3 -r 7 -A -b -J --n-sm 2 --norm-jmerge"
  "titanic_smem|titanic_freq.txt|-f titanic -k 4 -x 4 -r 3 -n 2 --n-sm 3 -G 1"
  "air_smem|airquality_freq.csv|-f airquality -k 3 -x 5 -u 0-3 -r 3 -A --n-sm 2 -a 4"
  "gen_smem|gen_freq.csv|-f gen -k 4 -x 9 -u 0-5 -r 17 -A -J --n-sm 2"
  "iris_analyses|iris_freq.csv|-f iris -k 3 -x 5 -u 0-3 -E 4 -r 7 -A -z 5 --dissim -D"
  "titanic_analyses|titanic_freq.txt|-f titanic -k 3 -x 4 -E 3 -r 3 -c 1 -w 1 -z 0.3 --hide-rank --dissim"
  "air_analyses|airquality_freq.csv|-f airquality -k 3 -x 5 -u 0-3 -E 4 -r 3 -A -z 0 --dissim;-f airquality -x 5 -u 0-3 -E 4 -R -A -z 2 --dissim"
)

# Masks the numbers of the timing rows.
mask_times() {
  awk '/^#### ID:/ { t = ($0 == "#### ID:CPUTIME" || $0 == "#### ID:LAPTIME") }
       t && !/^####/ { sub(/[,\t][^,\t]*$/, "\tT") } { print }' "$1"
}

# run_one DIR BINARY THREADS FILES COMMANDS EXTRA...
run_one() {
  local dir=$1 bin=$2 nt=$3 files=$4 cmds=$5
  shift 5
  mkdir -p "$dir"
  local f
  for f in ${files//,/ }; do
    if [ -f "$DATA/$f" ]; then cp "$DATA/$f" "$dir/"; else cp "$WORK/$f" "$dir/"; fi
  done
  local i=0 cmd
  IFS=';' read -ra list <<< "$cmds"
  for cmd in "${list[@]}"; do
    # shellcheck disable=SC2086
    (cd "$dir" && OMP_NUM_THREADS=$nt "$bin" $cmd "$@" > "stdout.$i" 2> "stderr.$i"; echo $? > "status.$i")
    i=$((i + 1))
  done
  for f in "$dir"/*_log.*; do
    [ -f "$f" ] && mask_times "$f" > "$f.masked" && mv "$f.masked" "$f"
  done
}

fails=0
total=0
for prec in default 21; do
  extra=()
  [ "$prec" = 21 ] && extra=(--prec-out 21 --prec-msg 21)
  for entry in "${CASES[@]}"; do
    IFS='|' read -r name files cmds <<< "$entry"
    ref_dir="$WORK/ref/$prec/$name"
    run_one "$ref_dir" "$REF" 1 "$files" "$cmds" "${extra[@]}"
    for nt in "${THREADS[@]}"; do
      new_dir="$WORK/new$nt/$prec/$name"
      run_one "$new_dir" "$NEW" "$nt" "$files" "$cmds" "${extra[@]}"
      total=$((total + 1))
      if ! diff -r -q "$ref_dir" "$new_dir" > "$WORK/diff.txt"; then
        fails=$((fails + 1))
        echo "DIFFERS: $name (precision $prec, $nt threads)"
        sed 's/^/    /' "$WORK/diff.txt"
      fi
    done
  done
done
echo "$((total - fails)) of $total comparisons identical"
[ "$fails" -eq 0 ]
