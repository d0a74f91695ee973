#include "model/install.h"

#include "base/misc.h"
#include "input/read_freq.h"
#include "input/read_hparam.h"
#include "input/read_param.h"
#include "model/allocate.h"
#include "settings/settings.h"

namespace {

int num_d() { return settings.tuple_size_d; }
int num_g() { return settings.gauss_size; }

void store_class_params(const ClassRows *b) {
  for (int k = 0; k < b->num_class; k++) {
    long double p = b->c[k];
    if (!(p >= 0.0L && p <= 1.0L)) die(conv_msg("Unexpected class parameter: %.Nf (class=%d)"), p, k);
    model.param_c[k] = p;
  }
  for (int k = 0; k < b->num_class && settings.mode_nominal; k++)
    for (int d = 0; d < num_d(); d++)
      for (int v = 0; v < cases.num_word[d]; v++) {
        long double p = b->w[k][d][v];
        if (!(p >= 0.0L && p <= 1.0L))
          die(conv_msg("Unexpected attribute parameter: %.Nf (class=%d, attribute=%d)"), p, k,
              discrete_column(d));
        model.param_w[k][d][v] = p;
      }
}

void store_pseudo_counts(const ClassRows *b) {
  for (int k = 0; k < b->num_class; k++) {
    long double x = b->c[k];
    if (x < -1.0L) die(conv_msg("Illegal class hyperparameter: %.Nf (class=%d)\n"), x, k);
    model.hparam_c[k] = x;
  }
  for (int k = 0; k < b->num_class && settings.mode_nominal; k++)
    for (int d = 0; d < num_d(); d++)
      for (int v = 0; v < cases.num_word[d]; v++) {
        long double x = b->w[k][d][v];
        if (x < -1.0L)
          die(conv_msg("Illegal attribute hyperparameter: %.Nf (class=%d, attribute=%d)\n"), x, k,
              discrete_column(d));
        model.hparam_w[k][d][v] = x;
      }
}

void store_gauss_priors(const HparamBuf *b) {
  for (int k = 0; k < b->rows.num_class; k++) {
    model.hparam_tau[k] = b->tau[k];
    for (int g = 0; g < num_g(); g++) model.hparam_alpha_w[k][g] = b->alpha[k][g];
  }
  store_gauss_rows(&b->rows, model.hparam_u, model.hparam_s, model.hparam_p, model.hparam_sdet, "read_hparam");
}

}  // namespace

void read_param() {
  const ClassRows *b = read_param_rows();
  model.num_class = b->num_class;
  alloc_param();
  store_class_params(b);
  if (settings.mode_gauss)
    store_gauss_rows(b, model.param_u, model.param_s, model.param_p, model.param_sdet, "read_param");
  end_read_param();
}

void read_hparam() {
  const HparamBuf *b = read_hparam_rows();
  model.num_class = b->rows.num_class;
  alloc_hparam_read();
  store_pseudo_counts(&b->rows);
  if (settings.mode_gauss) store_gauss_priors(b);
  end_read_hparam();
}
