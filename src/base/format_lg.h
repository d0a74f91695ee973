// Fast text of an extended real in the "%.<prec>Lg" conversion of printf,
// byte for byte, for writers of very many numbers (the dissimilarity file).
#ifndef VESK_BASE_FORMAT_LG_H
#define VESK_BASE_FORMAT_LG_H

enum { FORMAT_LG_SIZE = 64 };  // room for any result and its terminator

// Writes x as snprintf(dst, FORMAT_LG_SIZE, "%.*Lg", prec, x) would and
// returns the length; dst must have FORMAT_LG_SIZE bytes, and those after
// the terminator may be overwritten. Exact integer arithmetic on the binary
// value decides every digit and the rounding; what it does not cover
// (precisions above 19, magnitudes below about 10^(prec-39) or at least
// 10^prec, subnormals, infinities, NaN) goes through snprintf itself.
int format_lg(char *dst, long double x, int prec);

#endif
