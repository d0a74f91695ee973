// Reader of the hyperparameter file: per-class Dirichlet parameters of the
// class and value probabilities and the Normal-Wishart priors of the
// Gaussian groups. Runs after the case file is read (value texts are
// matched against its dictionaries).
#ifndef VESK_INPUT_READ_HPARAM_H
#define VESK_INPUT_READ_HPARAM_H

void read_hparam();
// Closes the file and frees the rows of a read that did not finish (the
// hyperparameter arrays belong to the model).
void release_read_hparam();

#endif
