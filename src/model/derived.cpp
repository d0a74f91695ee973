// Values derived from the parameters for the per-case passes: logarithms of
// the class and value probabilities, one prepared Gaussian density per class
// and group, and per missing-value pattern the marginal density and the
// imputation moments. Each is computed with the operations the per-case code
// used to repeat, so the passes give the same bits.
#include <cfloat>
#include <cmath>
#include <cstring>
#include <string>
#include <unordered_map>

#include "base/matrix.h"
#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"

namespace {

// Bytes that carry a long double's value (the rest is padding on x87).
const size_t kValueBytes = (LDBL_MANT_DIG == 64 && sizeof(long double) > 10) ? 10 : sizeof(long double);

int num_k() { return model.num_class; }
int num_a() { return settings.mode_nominal ? settings.tuple_size_d : 0; }
int num_g() { return settings.mode_gauss ? settings.gauss_size : 0; }

// ---- missing-value patterns of the case table ----

bool matches(const MissPattern &p, const int *miss, int d) {
  for (int i = 0; i < d; i++)
    if (p.observed[i] != (miss[i] ? 0 : 1)) return false;
  return true;
}

// A pattern's text key: '1' for an observed component, '0' for a missing one.
std::string observed_key(const int *flags, int d, bool flags_mark_missing) {
  std::string key(d, '1');
  for (int i = 0; i < d; i++)
    if ((flags[i] != 0) == flags_mark_missing) key[i] = '0';
  return key;
}

// Gives every partly observed group of group g its pattern, keeping the
// assignment of the last scan where it still holds; true when a pattern was
// added.
bool scan_group(int g) {
  DerivedValues &dv = model.derived;
  int d = settings.gauss_attr_size[g], ne = cases.num_entry;
  std::vector<MissPattern> &pats = dv.patterns[g];
  ScratchArray<int> &cp = dv.case_pattern[g];
  if (!pats.empty() && static_cast<int>(pats[0].observed.size()) != d) pats.clear();
  if (static_cast<int>(cp.size) != ne) {
    cp.resize(ne, "derived.cpp", 1);
    for (int e = 0; e < ne; e++) cp[e] = -1;
  }
  std::unordered_map<std::string, int> lookup;
  bool added = false;
  for (int e = 0; e < ne; e++) {
    const CaseRecord &rec = cases.freq_list[e];
    int m = rec.num_miss_gauss[g];
    if (m == 0 || m >= d) {
      cp[e] = -1;
      continue;
    }
    const int *miss = rec.miss_g[g];
    if (cp[e] >= 0 && cp[e] < static_cast<int>(pats.size()) && matches(pats[cp[e]], miss, d)) continue;
    if (lookup.empty())
      for (int p = 0; p < static_cast<int>(pats.size()); p++)
        lookup[observed_key(pats[p].observed.data(), d, false)] = p;
    std::string key = observed_key(miss, d, true);
    auto it = lookup.find(key);
    if (it != lookup.end()) {
      cp[e] = it->second;
      continue;
    }
    pats.emplace_back();
    make_pattern(&pats.back(), miss, d);
    cp[e] = static_cast<int>(pats.size()) - 1;
    lookup[key] = cp[e];
    added = true;
  }
  return added;
}

bool scan_patterns() {
  DerivedValues &dv = model.derived;
  size_t ng = num_g();
  bool changed = dv.patterns.size() != ng;
  dv.patterns.resize(ng);
  dv.case_pattern.resize(ng);
  for (size_t g = 0; g < ng; g++)
    if (scan_group(static_cast<int>(g))) changed = true;
  return changed;
}

// ---- parameter snapshot ----

void push(std::vector<long double> *v, const long double *p, int n) { v->insert(v->end(), p, p + n); }

void snapshot(std::vector<long double> *v) {
  v->clear();
  push(v, model.param_c, num_k());
  for (int k = 0; k < num_k(); k++)
    for (int a = 0; a < num_a(); a++) push(v, model.param_w[k][a], cases.num_word[a]);
  for (int k = 0; k < num_k(); k++)
    for (int g = 0; g < num_g(); g++) {
      int d = settings.gauss_attr_size[g];
      push(v, model.param_u[k][g], d);
      for (int i = 0; i < d; i++) push(v, model.param_s[k][g][i], d);
      for (int i = 0; i < d; i++) push(v, model.param_p[k][g][i], d);
      push(v, &model.param_sdet[k][g], 1);
    }
}

bool same_bits(const std::vector<long double> &a, const std::vector<long double> &b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); i++)
    if (memcmp(&a[i], &b[i], kValueBytes) != 0) return false;
  return true;
}

// ---- the derived values ----

bool update_offsets() {
  DerivedValues &dv = model.derived;
  std::vector<int> off(num_a());
  int n = 0;
  for (int a = 0; a < num_a(); a++) {
    off[a] = n;
    n += cases.num_word[a];
  }
  bool changed = off != dv.w_offset || n != dv.num_values;
  dv.w_offset.swap(off);
  dv.num_values = n;
  return changed;
}

void build_logs() {
  DerivedValues &dv = model.derived;
  int nk = num_k(), nv = dv.num_values;
  dv.log_c.assign(dv.log_scale ? nk : 0, 0.0L);
  dv.log_w.assign(dv.log_scale ? static_cast<size_t>(nk) * nv : 0, 0.0L);
  if (!dv.log_scale) return;
  for (int k = 0; k < nk; k++) {
    dv.log_c[k] = logl(model.param_c[k]);
    for (int a = 0; a < num_a(); a++)
      for (int v = 0; v < cases.num_word[a]; v++)
        dv.log_w[static_cast<size_t>(k) * nv + dv.w_offset[a] + v] = logl(model.param_w[k][a][v]);
  }
}

void check_param_shapes(int k, int g) {
  int d = settings.gauss_attr_size[g];
  long double *const *s = model.param_s[k][g];
  long double *const *p = model.param_p[k][g];
  if (vector_size(model.param_u[k][g]) != d || matrix_rows(s) != d || matrix_cols(s) != d ||
      (d > 2 && (matrix_rows(p) != d || matrix_cols(p) != d)))
    die_dimension("lgauss_prec");
}

void build_forms() {
  DerivedValues &dv = model.derived;
  int nk = num_k(), ng = num_g();
  dv.full.resize(static_cast<size_t>(nk) * ng);
  dv.marginal.resize(ng);
  dv.impute.resize(ng);
  for (int g = 0; g < ng; g++) {
    size_t np = dv.patterns[g].size();
    dv.marginal[g].resize(nk * np);
    dv.impute[g].resize(nk * np);
  }
  for (int k = 0; k < nk; k++)
    for (int g = 0; g < ng; g++) {
      check_param_shapes(k, g);
      prepare_gauss_prec(&dv.full[static_cast<size_t>(k) * ng + g], model.param_u[k][g],
                         model.param_s[k][g], model.param_p[k][g], model.param_sdet[k][g]);
      const std::vector<MissPattern> &pats = dv.patterns[g];
      for (size_t p = 0; p < pats.size(); p++) {
        // One inversion of the observed block serves both the marginal
        // density and the imputation (a two-component group needs none).
        bool invert = settings.gauss_attr_size[g] > 2;
        InvertedBlock b;
        if (invert) invert_block(&b, model.param_s[k][g], pats[p].observed.data());
        prepare_gauss_marginal(&dv.marginal[g][k * pats.size() + p], model.param_u[k][g],
                               model.param_s[k][g], pats[p].observed.data(), invert ? &b : nullptr);
        prepare_impute(&dv.impute[g][k * pats.size() + p], k, g, pats[p], invert ? &b : nullptr);
        if (invert) release_block(&b);
      }
    }
}

void impute_scalar(ImputeForm *f, long double *const *s, int m, int o) {
  f->scalar = 1;
  f->s_mo = s[m][o];
  f->s_oo = s[o][o];
  f->singular = s[o][o] == 0;
  if (!f->singular) f->cov[m * 2 + m] = s[m][m] - s[m][o] * s[m][o] / s[o][o];
}

// gain = S_mo S_oo^-1 row by row, then the conditional covariance; the
// closed forms for up to three observed components leave the inversion flag
// alone and show a singular block only by a zero determinant.
void impute_general(ImputeForm *f, long double *const *s, const MissPattern &pat, int d,
                    const InvertedBlock &inv) {
  int no = static_cast<int>(pat.obs.size()), nm = static_cast<int>(pat.mis.size());
  long double *const *poo = inv.p;
  f->scalar = 0;
  f->singular = inv.failed || inv.det == 0;
  f->gain.assign(static_cast<size_t>(nm) * no, 0.0L);
  for (int a = 0; a < nm && !f->singular; a++) {
    int m = pat.mis[a];
    long double *b = &f->gain[static_cast<size_t>(a) * no];
    for (int c = 0; c < no; c++) {
      long double t = 0;
      for (int r = 0; r < no; r++) t += s[m][pat.obs[r]] * poo[r][c];
      b[c] = t;
    }
    for (int m2 : pat.mis) {
      long double t = s[m][m2];
      for (int c = 0; c < no; c++) t -= b[c] * s[pat.obs[c]][m2];
      f->cov[static_cast<size_t>(m) * d + m2] = t;
    }
  }
}

}  // namespace

void make_pattern(MissPattern *p, const int *miss, int d) {
  p->observed.assign(d, 1);
  p->obs.clear();
  p->mis.clear();
  for (int i = 0; i < d; i++) {
    if (miss[i]) {
      p->observed[i] = 0;
      p->mis.push_back(i);
    } else {
      p->obs.push_back(i);
    }
  }
}

void prepare_impute(ImputeForm *f, int k, int g, const MissPattern &pat, const InvertedBlock *inverted) {
  int d = settings.gauss_attr_size[g];
  long double *const *s = model.param_s[k][g];
  f->cov.assign(static_cast<size_t>(d) * d, 0.0L);
  f->cov_rows.resize(d);
  for (int i = 0; i < d; i++) f->cov_rows[i] = &f->cov[static_cast<size_t>(i) * d];
  if (d == 2) {
    impute_scalar(f, s, pat.mis[0], pat.obs[0]);
  } else if (inverted != nullptr) {
    impute_general(f, s, pat, d, *inverted);
  } else {
    InvertedBlock b;
    invert_block(&b, s, pat.observed.data());
    impute_general(f, s, pat, d, b);
    release_block(&b);
  }
}

void refresh_derived() {
  DerivedValues &dv = model.derived;
  bool changed = scan_patterns();
  if (update_offsets()) changed = true;
  int log_scale = use_log_scale();
  snapshot(&dv.now);
  if (!changed && log_scale == dv.log_scale && !dv.seen.empty() && same_bits(dv.now, dv.seen)) return;
  dv.seen.swap(dv.now);
  dv.log_scale = log_scale;
  build_logs();
  build_forms();
}
