// Reading a parameter file into the model's working parameter set, and a
// hyperparameter file into its priors.
#ifndef VESK_MODEL_INSTALL_H
#define VESK_MODEL_INSTALL_H

// Reads the parameter file: its rows, checked, become the working parameter
// set of its class count.
void read_param();
// Reads the hyperparameter file: its rows, checked, become the priors of its
// class count.
void read_hparam();

#endif
