// The EM driver: initial parameters, the iteration loop with its convergence,
// decrease and annealing rules, restarts, and the main run over the K range.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "input/stat.h"
#include "base/guards.h"
#include "base/misc.h"
#include "base/random.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "model/report.h"

namespace {

const long double kDecreaseTol = 1e-6L;

// ---- initialisation ---------------------------------------------------------

// Fills p[0..n-1] with normalised start values of the given type; v_freq
// needs the value frequencies of the attribute.
void init_distribution(long double *p, int n, int type, const int *freq) {
  long double sum = 0;
  for (int i = 0; i < n; i++) {
    long double t;
    if (type == 1) {
      // The wrap to a negative 32-bit value is kept: the equally negative sum
      // still normalises it into a probability.
      uint32_t raw = static_cast<uint32_t>(genrand_int31()) + 2147483647u;
      t = static_cast<long double>(static_cast<int32_t>(raw));
    } else if (type == 2) {
      t = (1.0L + settings.noise_ratio * genrand_res53()) / n;
    } else {
      t = 1.0L / freq[i] + settings.noise_ratio * genrand_res53() / n;
    }
    p[i] = t;
    sum += t;
  }
  for (int i = 0; i < n; i++) p[i] /= sum;
}

void init_param_gauss(int k, int g) {
  int d = settings.gauss_attr_size[g];
  long double **ss = stats.sample_s[g];
  for (int i = 0; i < d; i++)
    model.param_u[k][g][i] =
        stats.sample_u[g][i] + settings.noise_ratio_gauss * sqrtl(ss[i][i]) * (genrand_res53() - 0.5L);
  copy_matrix(model.param_s[k][g], ss);
}

// ---- one EM run -------------------------------------------------------------

bool tempered(long double beta) { return settings.mode_daem && beta < 1.0L; }

// Complete and incomplete probabilities, then the trace entries of iteration i.
void evaluate(int i, long double beta) {
  evaluate_objective(beta, &model.loglike[i], model.smooth.any ? &model.log_prior[i] : nullptr,
                     &model.lambda_[i]);
  if (settings.mode_daem) model.log_itemp[i] = beta;
}

// True when a covariance of some class became singular; reports it.
bool check_singular(int i) {
  for (int k = 0; k < model.num_class; k++)
    if (check_singular_class(k, i, model.lambda_[i])) return true;
  return false;
}

bool is_decreased(int i) { return is_decreased_trace(model.lambda_, model.log_itemp, i); }

// Writes the decrease and the parameters to the log, then stops the program.
[[noreturn]] void report_decrease(int r, int i) {
  model_report.decrease(settings.fp_log, r, i);
  model_report.param(settings.fp_log);
  die_decrease(" ", model.lambda_, model.log_itemp, i);
}

// Plain EM: the iteration limit, or a gain below epsilon (one-sided).
EmVerdict is_converged(int i, int max) {
  if (i >= max) return report_stop(" (Stopped: %d iters)\tL=%.Nf\n", i, model.lambda_[i]);
  if (model.lambda_[i] - model.lambda_[i - 1] < settings.epsilon)
    return report_stop(" (Converged: %d iters)\tL=%.Nf\n", i, model.lambda_[i]);
  return EM_GO_ON;
}

EmVerdict is_converged_daem(int i, int max, long double beta) {
  return is_converged_daem_trace(model.lambda_, model.log_itemp, i, max, beta);
}

void set_final(int i) {
  model.final_loglike = model.loglike[i];
  model.final_lambda = model.lambda_[i];
  model.final_log_prior = model.smooth.any ? model.log_prior[i] : 0.0L;
}

// ---- restarts ---------------------------------------------------------------

void copy_traces(bool to_best) {
  size_t n = sizeof(long double) * model.ll_size;
  long double *pairs[][2] = {{model.loglike, model.loglike_best},
                             {model.lambda_, model.lambda_best},
                             {model.log_prior, model.log_prior_best},
                             {model.log_itemp, model.log_itemp_best}};
  for (auto &p : pairs) {
    if (p[0] == nullptr || p[1] == nullptr) continue;
    if (to_best) memcpy(p[1], p[0], n);
    else memcpy(p[0], p[1], n);
  }
}

int iteration_limit() { return settings.max_iterate < 1 ? 10000 : settings.max_iterate; }

int preliminary_limit(int m) {
  if (settings.num_init >= 2 && settings.max_init_iterate > 0 && settings.max_init_iterate < m)
    return settings.max_init_iterate;
  return m;
}

}  // namespace

void evaluate_objective(long double beta, long double *ll, long double *lp, long double *lambda) {
  if (tempered(beta)) compute_complete_prob_daem();
  else compute_complete_prob();
  compute_incomplete_prob();
  compute_objective(beta, ll, lp, lambda);
}

void compute_objective(long double beta, long double *ll, long double *lp, long double *lambda) {
  *ll = compute_loglike() / beta;
  *lambda = *ll;
  if (model.smooth.any) {
    *lp = compute_log_prior();
    *lambda += *lp;
  }
}

bool check_singular_class(int k, int iter, long double lambda) {
  for (int g = 0; g < settings.gauss_size; g++) {
    if (settings.gauss_attr_size[g] <= 1) continue;
    long double det = model.param_sdet[k][g];
    if (fabsl(det) < kSingularDet) {
      print_msg(" (Stopped: %d iters -- singular covars (det=%.Ne) at class#=%d, gauss#=%d)\tL=%.Nf\n", iter,
                det, k, g, lambda);
      return true;
    }
  }
  return false;
}

namespace {

bool same_itemp(const long double *log_itemp, int i) {
  return fabsl(log_itemp[i] - log_itemp[i - 1]) < kDecreaseTol;
}

}  // namespace

// Under annealing only a step taken at an unchanged temperature counts.
bool is_decreased_trace(const long double *lambda, const long double *log_itemp, int i) {
  if (settings.mode_daem && !same_itemp(log_itemp, i)) return false;
  return lambda[i - 1] - lambda[i] > kDecreaseTol;
}

EmVerdict report_stop(const char *fmt, int i, long double lambda) {
  print_msg(fmt, i, lambda);
  return EM_END_RUN;
}

// Only a positive gain below epsilon at an unchanged temperature converges;
// below beta = 1 either end only closes the phase, silently.
EmVerdict is_converged_daem_trace(const long double *lambda, const long double *log_itemp, int i, int max,
                                  long double beta) {
  long double diff = lambda[i] - lambda[i - 1];
  bool small = same_itemp(log_itemp, i) && 0 < diff && diff < settings.epsilon;
  if (beta < 1.0L) return (i >= max || small) ? EM_END_PHASE : EM_GO_ON;
  if (i >= max) return report_stop(" (Stopped: %d iters)\tL=%.Nf\n", i, lambda[i]);
  if (small) return report_stop(" (Converged: %d iters)\tL=%.Nf\n", i, lambda[i]);
  return EM_GO_ON;
}

void die_decrease(const char *lead, const long double *lambda, const long double *log_itemp, int i) {
  long double before = lambda[i - 1], after = lambda[i];
  if (settings.mode_daem)
    die(conv_msg("%s(iter:%d) LL or LPost decreased! (before: %.Nf (%.Nf) | after: %.Nf (%.Nf) | diff: "
                 "%.Nf) -- see the log file\n"),
        lead, i, before, log_itemp[i - 1], after, log_itemp[i], after - before);
  die(conv_msg("%s(iter:%d) LL or LPost decreased! (before: %.Nf | after: %.Nf | diff: %.Nf) -- see the "
               "log file\n"),
      lead, i, before, after, after - before);
}

bool raise_itemp(int quiet, int i, long double *beta) {
  if (!settings.mode_daem || *beta >= 1.0L) return false;
  *beta *= settings.itemp_rate;
  if (*beta > 1.0L) *beta = 1.0L;
  model.itemp = *beta;
  print_daem_message_sm(quiet, i, *beta);
  return true;
}

void initialize_param() {
  init_distribution(model.param_c, model.num_class, settings.init_type_class == 1 ? 1 : 2, nullptr);
  int wt = settings.init_type_word;
  if (settings.mode_nominal && (wt < 1 || wt > 3))
    die("Internal error: unexpected initialization method for discrete attribute values\n");
  for (int k = 0; k < model.num_class && settings.mode_nominal; k++)
    for (int a = 0; a < settings.tuple_size_d; a++)
      init_distribution(model.param_w[k][a], cases.num_word[a], wt, cases.word_freq_list[a]);
  if (settings.mode_gauss) {
    for (int k = 0; k < model.num_class; k++)
      for (int g = 0; g < settings.gauss_size; g++) init_param_gauss(k, g);
    if (refresh_precisions() != 0) {
      model_report.param(settings.fp_log);
      die_numeric("initialize_param", "Failed to invert covariances\n");
    }
  }
  if (settings.mode_verbose) model_report.param(settings.fp_log);
}

int em_iterate_body(int r, int i, int max, long double beta0) {
  long double beta = settings.mode_daem ? beta0 : 1.0L;
  model.itemp = beta;
  evaluate(i, beta);
  if (settings.num_init > 1) print_msg("  [%d] #iters ", r);
  else print_msg("  #iters ");
  print_daem_message(i, beta);
  for (;;) {
    print_dot_message(i);
    compute_conditional_prob();
    compute_expect();
    update_param();
    if (check_singular(i)) {
      if (raise_itemp(0, i, &beta)) continue;
      break;
    }
    i++;
    if (i >= model.ll_size) expand_loglike_all();
    evaluate(i, beta);
    if (is_decreased(i)) report_decrease(r, i);
    EmVerdict v = settings.mode_daem ? is_converged_daem(i, max, beta) : is_converged(i, max);
    if (v == EM_END_RUN) break;
    if (v == EM_END_PHASE) raise_itemp(0, i, &beta);
  }
  set_final(i);
  return i;
}

unsigned int reseed_restart() {
  if (settings.mode_set_seed) return 0;
  unsigned int s = static_cast<unsigned int>(genrand_int31());
  init_genrand(s);
  return s;
}

int em_iterate(int kidx) {
  int m = iteration_limit(), pre = preliminary_limit(m);
  int r_best = 0, last_best = 0;
  for (int r = 0; r < settings.num_init; r++) {
    unsigned int s = reseed_restart();
    initialize_param();
    int last = em_iterate_body(r, 0, pre, settings.itemp_init);
    model.log_seed[kidx][r] = s;
    model.log_num_iterate[kidx][r] = last;
    model.log_final_lambda[kidx][r] = model.final_lambda;
    if (r == 0 || model.final_lambda > model.final_lambda_best) {
      r_best = r;
      last_best = last;
      model.final_lambda_best = model.final_lambda;
      model.itemp_best = model.itemp;
      copy_traces(true);
      save_param_best();
    }
  }
  model.log_r_best[kidx] = r_best;
  restore_param_best();
  copy_traces(false);
  set_final(last_best);
  model.itemp = model.itemp_best;
  if (settings.num_init >= 2) {
    print_msg("  <<Resumed best parameter set #%d>>\n", r_best);
    last_best = em_iterate_body(r_best, last_best, m, model.itemp_best);
  }
  return last_best;
}
