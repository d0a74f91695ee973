#include "model/allocate.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/matrix.h"
#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "input/stat.h"

Model model;

namespace {

const char kModule[] = "allocate.cpp";

int num_k() { return model.num_class; }
int num_a() { return settings.tuple_size_d; }
int num_g() { return settings.gauss_size; }
int dim(int g) { return settings.gauss_attr_size[g]; }

long double *new_reals(int n) {
  return static_cast<long double *>(calloc_str0(sizeof(long double) * (n > 0 ? n : 1), kModule, 1));
}

// A rows x cols table in one zero-filled block: the row pointers, then the
// rows. One allocation however many rows, freed with one free.
template <typename T>
T **new_table(int rows, int cols, int site) {
  size_t r = rows > 0 ? rows : 1, c = cols > 0 ? cols : 1;
  size_t head = (sizeof(T *) * r + alignof(T) - 1) / alignof(T) * alignof(T);
  char *block = static_cast<char *>(calloc_str0(head + sizeof(T) * r * c, kModule, site));
  T **p = reinterpret_cast<T **>(block);
  T *data = reinterpret_cast<T *>(block + head);
  for (int i = 0; i < rows; i++) p[i] = data + static_cast<size_t>(i) * c;
  return p;
}

template <typename T>
void free_table(T **&p) {
  free(p);
  p = nullptr;
}

long double **new_reals2(int rows, int cols) { return new_table<long double>(rows, cols, 2); }

void free_reals2(long double **&p, int) { free_table(p); }

void free_reals(long double *&p) {
  free(p);
  p = nullptr;
}

// [K][A][V_a] discrete value tables.
long double ***new_w(int k_size) {
  long double ***w = static_cast<long double ***>(calloc_str0(sizeof(long double **) * (k_size > 0 ? k_size : 1), kModule, 3));
  for (int k = 0; k < k_size; k++) {
    w[k] = static_cast<long double **>(calloc_str0(sizeof(long double *) * (num_a() > 0 ? num_a() : 1), kModule, 4));
    for (int a = 0; a < num_a(); a++) w[k][a] = new_reals(cases.num_word[a]);
  }
  return w;
}

void free_w(long double ***&w, int k_size) {
  if (w == nullptr) return;
  for (int k = 0; k < k_size; k++) {
    for (int a = 0; a < num_a(); a++) free(w[k][a]);
    free(w[k]);
  }
  free(w);
  w = nullptr;
}

void copy_w(long double ***dst, long double ***src, int k_size) {
  for (int k = 0; k < k_size; k++)
    for (int a = 0; a < num_a(); a++)
      memcpy(dst[k][a], src[k][a], sizeof(long double) * cases.num_word[a]);
}

// [K][G] vectors of length d_g and d_g x d_g matrices.
Vector **new_vecs(int k_size) {
  Vector **v = static_cast<Vector **>(calloc_str0(sizeof(Vector *) * (k_size > 0 ? k_size : 1), kModule, 5));
  for (int k = 0; k < k_size; k++) {
    v[k] = static_cast<Vector *>(calloc_str0(sizeof(Vector) * (num_g() > 0 ? num_g() : 1), kModule, 6));
    for (int g = 0; g < num_g(); g++) v[k][g] = alloc_clear_vector(dim(g));
  }
  return v;
}

Matrix **new_mats(int k_size) {
  Matrix **m = static_cast<Matrix **>(calloc_str0(sizeof(Matrix *) * (k_size > 0 ? k_size : 1), kModule, 7));
  for (int k = 0; k < k_size; k++) {
    m[k] = static_cast<Matrix *>(calloc_str0(sizeof(Matrix) * (num_g() > 0 ? num_g() : 1), kModule, 8));
    for (int g = 0; g < num_g(); g++) m[k][g] = alloc_clear_matrix(dim(g), dim(g));
  }
  return m;
}

void free_vecs(Vector **&v, int k_size) {
  if (v == nullptr) return;
  for (int k = 0; k < k_size; k++) {
    for (int g = 0; g < num_g(); g++) release_vector0(v[k][g]);
    free(v[k]);
  }
  free(v);
  v = nullptr;
}

void free_mats(Matrix **&m, int k_size) {
  if (m == nullptr) return;
  for (int k = 0; k < k_size; k++) {
    for (int g = 0; g < num_g(); g++) release_matrix0(m[k][g]);
    free(m[k]);
  }
  free(m);
  m = nullptr;
}

void copy_vecs(Vector **dst, Vector **src, int k_size) {
  for (int k = 0; k < k_size; k++)
    for (int g = 0; g < num_g(); g++) copy_vector(dst[k][g], src[k][g]);
}

void copy_mats(Matrix **dst, Matrix **src, int k_size) {
  for (int k = 0; k < k_size; k++)
    for (int g = 0; g < num_g(); g++) copy_matrix(dst[k][g], src[k][g]);
}

}  // namespace

// Copies one parameter set (class, discrete, mean and covariance arrays).
void copy_param_set(long double *c, long double ***w, Vector **u, Matrix **s, const long double *c0,
                    long double ***w0, Vector **u0, Matrix **s0, int k_size) {
  memcpy(c, c0, sizeof(long double) * k_size);
  if (settings.mode_nominal) copy_w(w, w0, k_size);
  if (settings.mode_gauss) {
    copy_vecs(u, u0, k_size);
    copy_mats(s, s0, k_size);
  }
}

// A set of class, value, mean and covariance arrays (the best and optimal
// copies and the expectations share this shape).
void new_param_set(long double *&c, long double ***&w, Vector **&u, Matrix **&s, int k) {
  c = new_reals(k);
  if (settings.mode_nominal) w = new_w(k);
  if (settings.mode_gauss) {
    u = new_vecs(k);
    s = new_mats(k);
  }
}

void free_param_set(long double *&c, long double ***&w, Vector **&u, Matrix **&s, int k) {
  free_reals(c);
  free_w(w, k);
  free_vecs(u, k);
  free_mats(s, k);
}

namespace {

long double *grow(long double *p, int old_size, int new_size) {
  if (p == nullptr) return nullptr;
  p = static_cast<long double *>(xrealloc0(p, sizeof(long double) * new_size, kModule, 9));
  memset(p + old_size, 0, sizeof(long double) * (new_size - old_size));
  return p;
}

// Bytes one fit with k classes holds: the working, best, optimal and
// expectation sets, the Gaussian priors and precisions, and the per-case
// probabilities, each block with some allocator overhead.
long double fit_bytes(int k) {
  const long double block = 32, real = sizeof(long double), ptr = sizeof(void *);
  long double per_class = 4 * real + 2 * real * cases.num_entry;
  for (int a = 0; a < num_a(); a++) per_class += 4 * (block + ptr + real * cases.num_word[a]);
  for (int g = 0; g < num_g(); g++) {
    long double d = dim(g);
    per_class += 5 * (block + ptr + real * d) + 7 * (block + ptr + ptr * d + real * d * d) + 2 * real;
  }
  return k * per_class;
}

// Tables that cannot fit in the machine's memory end the run at once, as a
// failed allocation, instead of after gigabytes of small ones.
void check_memory(long double bytes, int site) {
  if (bytes > physical_memory_bytes()) die_alloc(kModule, site);
}

// Before the arrays of a fit are made: a K whose means cannot fit the vector
// pool ends with the pool's message, a K too large for memory with the
// allocation message.
void check_fit_size() {
  for (int g = 0; g < num_g(); g++) reserve_vectors(num_k(), dim(g));
  check_memory(fit_bytes(num_k()), 15);
}

}  // namespace

void alloc_param() {
  check_fit_size();
  new_param_set(model.param_c, model.param_w, model.param_u, model.param_s, num_k());
  if (settings.mode_gauss) {
    model.param_p = new_mats(num_k());
    model.param_sdet = new_reals2(num_k(), num_g());
  }
}

void release_param() {
  free_param_set(model.param_c, model.param_w, model.param_u, model.param_s, num_k());
  free_mats(model.param_p, num_k());
  free_reals2(model.param_sdet, num_k());
}

void alloc_param_best() {
  new_param_set(model.param_c_best, model.param_w_best, model.param_u_best, model.param_s_best, num_k());
}

void release_param_best() {
  free_param_set(model.param_c_best, model.param_w_best, model.param_u_best, model.param_s_best, num_k());
}

void save_param_best() {
  copy_param_set(model.param_c_best, model.param_w_best, model.param_u_best, model.param_s_best,
                 model.param_c, model.param_w, model.param_u, model.param_s, num_k());
}

void restore_param_best() {
  copy_param_set(model.param_c, model.param_w, model.param_u, model.param_s, model.param_c_best,
                 model.param_w_best, model.param_u_best, model.param_s_best, num_k());
  if (refresh_precisions() != 0) die_numeric("restore_param_best", "Failed to invert covariances\n");
}

void save_param_opt() {
  release_param_opt();
  int k = num_k();
  new_param_set(model.param_c_opt, model.param_w_opt, model.param_u_opt, model.param_s_opt, k);
  model.num_class_opt = k;
  copy_param_set(model.param_c_opt, model.param_w_opt, model.param_u_opt, model.param_s_opt,
                 model.param_c, model.param_w, model.param_u, model.param_s, k);
}

void restore_param_opt() {
  release_param();
  model.num_class = model.num_class_opt;
  alloc_param();
  copy_param_set(model.param_c, model.param_w, model.param_u, model.param_s, model.param_c_opt,
                 model.param_w_opt, model.param_u_opt, model.param_s_opt, num_k());
  if (refresh_precisions() != 0) die_numeric("restore_param_opt", "Failed to invert covariances\n");
}

void release_param_opt() {
  free_param_set(model.param_c_opt, model.param_w_opt, model.param_u_opt, model.param_s_opt,
                 model.num_class_opt);
}

int refresh_precisions() {
  if (!settings.mode_gauss) return 0;
  for (int k = 0; k < num_k(); k++)
    for (int g = 0; g < num_g(); g++) {
      matrix_err.err_inv = 0;  // left untouched by the closed forms of small orders
      model.param_sdet[k][g] = invert_c(model.param_s[k][g], model.param_p[k][g]);
      if (matrix_err.err_inv != 0) return 1;
    }
  return 0;
}

void alloc_prob() {
  model.prob_comp = new_reals2(num_k(), cases.num_entry);
  model.prob_cond = new_reals2(num_k(), cases.num_entry);
  model.prob_incomp = new_reals(cases.num_entry);
}

void release_prob() {
  free_reals2(model.prob_comp, num_k());
  free_reals2(model.prob_cond, num_k());
  free_reals(model.prob_incomp);
}

void alloc_expect() {
  new_param_set(model.expect_c, model.expect_w, model.expect_u, model.expect_s, num_k());
}

void release_expect() {
  free_param_set(model.expect_c, model.expect_w, model.expect_u, model.expect_s, num_k());
}

// The traces start large enough for a run to the iteration limit plus the
// annealing steps (at most kTraceStartSteps of those: a long schedule makes
// them grow as it goes), and double on demand.
void alloc_loglike() {
  const int kTraceStartSteps = 65536;
  int m = settings.max_iterate < 1 ? 10000 : settings.max_iterate;
  int steps = settings.num_itemp < kTraceStartSteps ? settings.num_itemp : kTraceStartSteps;
  int n = m + 2 + (settings.mode_daem ? steps + 1 : 0);
  model.ll_size = n;
  model.loglike = new_reals(n);
  model.lambda_ = new_reals(n);
  model.loglike_best = new_reals(n);
  model.lambda_best = new_reals(n);
  if (model.smooth.any) {
    model.log_prior = new_reals(n);
    model.log_prior_best = new_reals(n);
  }
  if (settings.mode_daem) {
    model.log_itemp = new_reals(n);
    model.log_itemp_best = new_reals(n);
  }
}

void release_loglike() {
  free_reals(model.loglike);
  free_reals(model.lambda_);
  free_reals(model.loglike_best);
  free_reals(model.lambda_best);
  free_reals(model.log_prior);
  free_reals(model.log_prior_best);
  free_reals(model.log_itemp);
  free_reals(model.log_itemp_best);
  model.ll_size = 0;
}

void expand_loglike_all() {
  // The iteration index is an int: the traces never need more entries.
  int old_size = model.ll_size;
  if (old_size >= INT_MAX) die_realloc(kModule, 9);
  int n = old_size > INT_MAX / 2 ? INT_MAX : old_size * 2;
  long double **traces[] = {&model.loglike, &model.lambda_, &model.loglike_best, &model.lambda_best,
                            &model.log_prior, &model.log_prior_best, &model.log_itemp,
                            &model.log_itemp_best};
  for (long double **t : traces) *t = grow(*t, old_size, n);
  model.ll_size = n;
}

// Rows of the score and seed tables: one per K of a searched range, else one
// (a hyperparameter file fixes K).
namespace {
int num_kvalues() {
  if (!settings.mode_search_num_class || settings.mode_read_hparam) return 1;
  return (settings.kmax - settings.kmin) / settings.kstep + 1;
}
}  // namespace

void alloc_ic() {
  int n = num_kvalues();
  // The score and seed tables together: three scores, the best restart, and
  // per restart a seed, an iteration count and an objective, plus row pointers.
  long double r = settings.num_init > 0 ? settings.num_init : 1;
  check_memory(static_cast<long double>(n) * (3 * 16 + 4 + 3 * 8 + r * (4 + 4 + 16)), 16);
  model.num_kvalue = n;
  model.ic = new_reals(n);
  model.bic = new_reals(n);
  model.autoclass = new_reals(n);
}

void release_ic() {
  free_reals(model.ic);
  free_reals(model.bic);
  free_reals(model.autoclass);
}

void alloc_seed() {
  int n = num_kvalues();
  model.num_kvalue = n;
  int r = settings.num_init > 0 ? settings.num_init : 1;
  model.log_seed = new_table<unsigned int>(n, r, 10);
  model.log_num_iterate = new_table<int>(n, r, 11);
  model.log_final_lambda = new_reals2(n, r);
  model.log_r_best = static_cast<int *>(calloc_str0(sizeof(int) * n, kModule, 12));
}

void release_seed() {
  free_table(model.log_seed);
  free_table(model.log_num_iterate);
  free_reals2(model.log_final_lambda, model.num_kvalue);
  free(model.log_r_best);
  model.log_r_best = nullptr;
}

void alloc_hparam_gauss() {
  if (!settings.mode_gauss) return;
  check_fit_size();
  model.hparam_u = new_vecs(num_k());
  model.hparam_s = new_mats(num_k());
  model.hparam_p = new_mats(num_k());
  model.hparam_sdet = new_reals2(num_k(), num_g());
}

void release_hparam_gauss() {
  free_vecs(model.hparam_u, num_k());
  free_mats(model.hparam_s, num_k());
  free_mats(model.hparam_p, num_k());
  free_reals2(model.hparam_sdet, num_k());
}

// The file-read hyperparameters, sized by the current class count; the
// Gaussian prior arrays are shared with the option-driven form.
void alloc_hparam_read() {
  model.hparam_c = new_reals(num_k());
  if (settings.mode_nominal) model.hparam_w = new_w(num_k());
  if (settings.mode_gauss) {
    model.hparam_tau = new_reals(num_k());
    model.hparam_alpha_w = new_reals2(num_k(), num_g());
    alloc_hparam_gauss();
  }
}

void release_hparam_read() {
  free_reals(model.hparam_c);
  free_w(model.hparam_w, num_k());
  free_reals(model.hparam_tau);
  free_reals2(model.hparam_alpha_w, num_k());
  release_hparam_gauss();
}

// ---- hyperparameters -------------------------------------------------------

long double get_hparam_c(int k) {
  if (settings.mode_read_hparam) return model.hparam_c[k];
  return model.smooth.c + 1.0L;
}

long double get_hparam_w(int k, int a, int v) {
  if (settings.mode_read_hparam) return model.hparam_w[k][a][v];
  return model.smooth.w[a] + 1.0L;
}

long double get_tau(int k) {
  if (settings.mode_read_hparam) return model.hparam_tau[k];
  return model.smooth.tau;
}

long double get_alpha_w(int k, int g, int d) {
  if (settings.mode_read_hparam) return model.hparam_alpha_w[k][g];
  if (settings.alpha_w > 0) return settings.alpha_w;
  return static_cast<long double>(d) + 1e-6L;
}

namespace {

void apply_autoclass_rules() {
  Smoothing &sm = model.smooth;
  sm.c = settings.smooth_c;
  sm.tau = settings.tau;
  sm.w.assign(settings.smooth_w, settings.smooth_w + (settings.smooth_w != nullptr ? num_a() : 0));
  sm.gauss = settings.mode_smooth_gauss;
  long double inv_k = 1.0L / num_k();
  if (settings.mode_nominal) {
    if (settings.mode_smooth_auto_c == 2) sm.c = inv_k;
    for (int a = 0; a < num_a(); a++)
      if (settings.mode_smooth_auto_w[a] == 2) sm.w[a] = 1.0L / cases.num_word[a];
  }
  if (settings.mode_gauss) {
    if (settings.mode_smooth_auto_c == 2) sm.c = inv_k;
    if (settings.mode_smooth_auto_tau == 2) sm.tau = inv_k;
  }
}

void set_smooth_flags() {
  Smoothing &sm = model.smooth;
  sm.strict = sm.c > 0;
  sm.any = sm.strict;
  for (int a = 0; a < num_a(); a++) {
    if (sm.w[a] > 0) sm.any = 1;
    else sm.strict = 0;
  }
  if (settings.mode_gauss) {
    sm.any = sm.any || sm.gauss;
    sm.strict = sm.strict && sm.gauss;
  }
}

}  // namespace

void set_autoclass_smoothing() { apply_autoclass_rules(); }

void set_smooth_strictness() {
  set_smooth_flags();
  if (!model.smooth.strict && settings.ic_type == 2)
    die("Couldn't use the AUTOCLASS mode unless all smoothing constant > 0\n");
}

namespace {

void init_hparam_mean(int k, int g) {
  Vector u = model.hparam_u[k][g];
  if (settings.mode_smooth_u == 0) copy_vector(u, stats.sample_u[g]);
  else set_vector(u, settings.smooth_u);
}

void init_hparam_covar_1d(int k, int g) {
  long double v;
  if (settings.mode_smooth_s == 1) v = settings.smooth_s * stats.sample_s[g][0][0];
  else if (settings.mode_smooth_s == 2) v = settings.smooth_s;
  else die("Internal error: Illegal mode_smooth_s\n");
  model.hparam_s[k][g][0][0] = v;
  model.hparam_p[k][g][0][0] = 1.0L / v;
  model.hparam_sdet[k][g] = v;
}

void init_hparam_covar(int k, int g) {
  int d = dim(g);
  if (d < 2) {
    init_hparam_covar_1d(k, g);
    return;
  }
  Matrix s = model.hparam_s[k][g], p = model.hparam_p[k][g];
  if (settings.mode_smooth_s == 1) {
    copy_matrix(s, stats.sample_s[g]);
    model.hparam_sdet[k][g] = invert_c(s, p);
    mul_const_matrix(s, settings.smooth_s);
    div_const_matrix(p, settings.smooth_s);
    model.hparam_sdet[k][g] *= powl(settings.smooth_s, d);
  } else if (settings.mode_smooth_s == 2) {
    set_diag_matrix(s, settings.smooth_s);
    set_diag_matrix(p, 1.0L / settings.smooth_s);
    model.hparam_sdet[k][g] = powl(settings.smooth_s, d);
  } else {
    die("Internal error: Illegal mode_smooth_s\n");
  }
}

}  // namespace

void initialize_hparam_gauss() {
  if (!settings.mode_gauss) return;
  for (int k = 0; k < num_k(); k++)
    for (int g = 0; g < num_g(); g++) {
      init_hparam_mean(k, g);
      init_hparam_covar(k, g);
    }
}

namespace {

void check_pseudo_count(long double h, int *any, int *all) {
  if (h > 1) *any = 1;
  else *all = 0;
}

void check_read_hparam_gauss() {
  for (int k = 0; k < num_k(); k++) {
    if (!(model.hparam_tau[k] > 0))
      die(conv_msg("Illegal tau (%.Nf,class=%d) read from %s\n"), model.hparam_tau[k], k,
          settings.fname_hparam);
    for (int g = 0; g < num_g(); g++) {
      if (model.hparam_alpha_w[k][g] < dim(g)) {
        fprintf(stderr, conv_msg("Illegal alpha (%.Nf, class=%d, dist=%d) read from %s\n"),
                model.hparam_alpha_w[k][g], k, g, settings.fname_hparam);
      }
    }
  }
  model.smooth.gauss = 1;
  model.smooth.any = 1;
}

}  // namespace

void check_read_hparam() {
  int any = 0, all = 1;
  for (int k = 0; k < num_k(); k++) {
    check_pseudo_count(model.hparam_c[k], &any, &all);
    for (int a = 0; a < num_a(); a++)
      for (int v = 0; v < cases.num_word[a]; v++) check_pseudo_count(model.hparam_w[k][a][v], &any, &all);
  }
  model.smooth.any = any;
  model.smooth.strict = all;
  model.smooth.gauss = settings.mode_smooth_gauss;
  if (settings.mode_gauss) check_read_hparam_gauss();
  if (!model.smooth.strict) {
    fprintf(stderr, "Pseudo counts read from %s should be all positive\n", settings.fname_hparam);
    exit_run(1);
  }
}
