// Numeric guards shared by the computations, each defined once.
#ifndef VESK_BASE_GUARDS_H
#define VESK_BASE_GUARDS_H

// Floor of a probability or density: a case whose total probability is at
// most this gets no conditional probability, and a density below it counts
// as this.
constexpr long double kMinProb = 1e-60L;
constexpr long double kLogMinProb = -138.15510557964274L;  // logl(kMinProb)

// A covariance matrix whose determinant is below this in magnitude is singular.
constexpr long double kSingularDet = 1e-15L;

#endif
