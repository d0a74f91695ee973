// Reader of the hyperparameter file: per-class Dirichlet parameters of the
// class and value probabilities and the Normal-Wishart priors of the
// Gaussian groups. Runs after the case file is read (value texts are
// matched against its dictionaries).
#ifndef VESK_INPUT_READ_HPARAM_H
#define VESK_INPUT_READ_HPARAM_H

#include "base/hash.h"
#include "input/read_param.h"

// Hyperparameter rows read so far: the rows both files share, the priors
// only this file has (`prior_cap` classes allocated), and the values listed
// for class 0 per discrete attribute.
struct HparamBuf {
  ClassRows rows;
  int prior_cap;
  long double *tau;     // [prior_cap]
  long double **alpha;  // [prior_cap][G]
  HashTable *listed;    // [D]
};

// The hyperparameter file's rows, read and checked for shape; the model takes
// its priors from them, then end_read_hparam frees them and ends the reader's
// message.
const HparamBuf *read_hparam_rows();
void end_read_hparam();
// Closes the file and frees the rows of a read that did not finish (the
// hyperparameter arrays belong to the model).
void release_read_hparam();

#endif
