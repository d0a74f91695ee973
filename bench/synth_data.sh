#!/bin/bash
# Writes N synthetic cases (csv) to standard output: five latent groups; each
# case draws its group, four correlated reals and five discrete values whose
# distribution depends on the group. The same N always gives the same cases.
#
# Usage: bench/synth_data.sh N
set -euo pipefail

awk -v n="${1:?number of cases}" 'BEGIN {
  srand(12345);
  for (i = 0; i < n; i++) {
    g = int(rand() * 5);
    z1 = sqrt(-2 * log(1 - rand())) * cos(6.283185307 * rand());
    z2 = sqrt(-2 * log(1 - rand())) * cos(6.283185307 * rand());
    z3 = sqrt(-2 * log(1 - rand())) * cos(6.283185307 * rand());
    z4 = sqrt(-2 * log(1 - rand())) * cos(6.283185307 * rand());
    line = sprintf("%.4f,%.4f,%.4f,%.4f", 3 * g + z1, -2 * g + z1 + z2, g * g + z3, z4 - g);
    for (a = 0; a < 5; a++) {
      v = (rand() < 0.6) ? (g + a) % 4 : int(rand() * 4);
      line = line sprintf(",v%d", v);
    }
    print line;
  }
}'
