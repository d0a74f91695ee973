// Kullback-Leibler dissimilarities of membership distributions. The case and
// Gaussian sections have one row per ordered pair of case entries, so the
// rows are assembled straight into a large output block: the memberships and
// their logarithms are laid out once per item, each item's text is made once,
// and numbers are formatted without printf.
#include "analysis/dissim.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/format_lg.h"
#include "base/misc.h"
#include "base/stop.h"
#include "settings/settings.h"
#include "input/case_text.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/cluster.h"

namespace {

const char kModule[] = "dissim.cpp";
const size_t OUT_BLOCK = 1 << 20;  // bytes gathered before each write

enum FailKind { FAIL_CASE, FAIL_CAT, FAIL_GAUSS };

// The items of one section: their memberships and logarithms, item-major,
// and the text each item contributes to a row.
struct KlItems {
  int n = 0, K = 0;
  std::vector<long double> prob, logp;
  std::vector<char> positive;  // per item: every p_k > 0
  std::string text;            // padded for word-wise copies at the end
  std::vector<size_t> start;  // n + 1 offsets into text
  size_t max_text = 0;
  FailKind kind = FAIL_CASE;
  int index = 0;  // attribute or group number
};

char delimiter() { return settings.format_out == FORMAT_CSV ? ',' : '\t'; }

void init_items(KlItems *it, int n, FailKind kind, int index) {
  it->n = n;
  it->K = model.num_class;
  it->kind = kind;
  it->index = index;
  it->prob.assign(static_cast<size_t>(n) * it->K, 0.0L);
  it->logp.assign(static_cast<size_t>(n) * it->K, 0.0L);
  it->positive.assign(n, 1);
  it->start.assign(1, 0);
}

void set_prob(KlItems *it, int item, int k, long double p) {
  size_t i = static_cast<size_t>(item) * it->K + k;
  it->prob[i] = p;
  it->logp[i] = logl(p);
  if (!(p > 0)) it->positive[item] = 0;
}

// Closes the text of the item just filled.
void end_text(KlItems *it) {
  size_t len = it->text.size() - it->start.back();
  if (len > it->max_text) it->max_text = len;
  it->start.push_back(it->text.size());
}

// ---- failures ---------------------------------------------------------------------

[[noreturn]] void fail_kl(const KlItems &it, int k, int item) {
  switch (it.kind) {
    case FAIL_CASE:
      die("Couldn't compute KL div. since P(Class=%d|case-ID=%d) = 0 (smoothing may be required)\n", k, item);
    case FAIL_CAT: {
      int d = discrete_index(it.index);
      die("Couldn't compute KL div. since P(Class=%d|%s) = 0 (smoothing may be required)\n", k,
          cases.word_list[d][cases.print_order[d][item]]);
    }
    case FAIL_GAUSS:
      die("Couldn't compute KL div. since P(Class=%d|Gauss%d) = 0 for %s (smoothing should be required)\n", k,
          it.index, get_case_id(item));
  }
  die("Internal error: fail_kl()\n");
}

// ---- divergences and rows ---------------------------------------------------------

const size_t PAD = 8;  // texts are copied in 8-byte words

// D(x||x') summed in class order; *zero_class is the first class with
// p_k > 0 and q_k <= 0 (D undefined), else -1.
long double kl_pair(const KlItems &it, int x, int y, int *zero_class) {
  const int K = it.K;
  const long double *px = &it.prob[static_cast<size_t>(x) * K], *lpx = &it.logp[static_cast<size_t>(x) * K];
  const long double *py = &it.prob[static_cast<size_t>(y) * K], *lpy = &it.logp[static_cast<size_t>(y) * K];
  long double d = 0.0L;
  *zero_class = -1;
  if (it.positive[x] && it.positive[y]) {
    for (int k = 0; k < K; k++) d += px[k] * (lpx[k] - lpy[k]);
    return d;
  }
  for (int k = 0; k < K; k++) {
    if (!(px[k] > 0)) continue;
    if (py[k] <= 0) {
      *zero_class = k;
      return d;
    }
    d += px[k] * (lpx[k] - lpy[k]);
  }
  return d;
}

// Copies n bytes word by word: reads and writes up to PAD - 1 bytes past the
// end, which both sides have room for.
char *put_text(char *dst, const char *src, size_t n) {
  for (size_t i = 0; i < n; i += PAD) memcpy(dst + i, src + i, PAD);
  return dst + n;
}

struct RowBlock {
  FILE *fp;
  char *buf;
  size_t used;
};

// Writes the gathered rows. The file is quadratic in the number of cases, so
// a full disk is a real possibility: a short write ends the run.
void drain(RowBlock *out) {
  check_stop();
  size_t done = out->used > 0 ? fwrite(out->buf, 1, out->used, out->fp) : 0;
  if (done != out->used || fflush(out->fp) != 0) die("Couldn't write %s\n", settings.fname_dissim);
  out->used = 0;
}

// One row per ordered pair (x, x'): lead, text of x, text of x', D(x||x').
// The block has room for a full OUT_BLOCK plus one row of any length, so a
// row never needs a capacity check of its own.
void write_kl_rows(FILE *fp, KlItems *items, const std::string &lead) {
  items->text.append(PAD, '\0');
  const KlItems &it = *items;
  const int prec = settings.prec_out;
  const char delim = delimiter();
  std::vector<char> lead_text(lead.begin(), lead.end());
  lead_text.resize(lead.size() + PAD);
  size_t max_row = lead.size() + 2 * it.max_text + 2 + FORMAT_LG_SIZE + 1 + PAD;
  RowBlock out{fp, static_cast<char *>(xmalloc0(OUT_BLOCK + max_row, kModule, 1)), 0};
  for (int x = 0; x < it.n; x++) {
    const char *tx = it.text.data() + it.start[x];
    size_t lx = it.start[x + 1] - it.start[x];
    for (int y = 0; y < it.n; y++) {
      int zero_class = -1;
      long double d = kl_pair(it, x, y, &zero_class);
      if (zero_class >= 0) {
        drain(&out);
        fail_kl(it, zero_class, y);
      }
      char *row = out.buf + out.used;
      char *p = put_text(row, lead_text.data(), lead.size());
      p = put_text(p, tx, lx);
      *p++ = delim;
      p = put_text(p, it.text.data() + it.start[y], it.start[y + 1] - it.start[y]);
      *p++ = delim;
      p += format_lg(p, d, prec);
      if (p - row > DATA_LINE_SIZE) {  // the printer's limit for one row
        drain(&out);
        die("Output buffer overflow (size >= %d)\n", DATA_LINE_SIZE);
      }
      *p++ = '\n';
      out.used = static_cast<size_t>(p - out.buf);
      if (out.used >= OUT_BLOCK) drain(&out);
    }
  }
  drain(&out);
  free(out.buf);
}

// ---- items of the three sections ------------------------------------------------------

void case_items(KlItems *it) {
  init_items(it, cases.num_entry, FAIL_CASE, 0);
  for (int n = 0; n < it->n; n++) {
    for (int k = 0; k < it->K; k++) set_prob(it, n, k, member.prob_mem_case[k][n]);
    it->text += get_case_id(n);
    if (settings.mode_eval) {
      it->text += delimiter();
      it->text += get_ans_class(n);
    }
    end_text(it);
  }
}

void cat_items(KlItems *it, int attr) {
  int d = discrete_index(attr);
  init_items(it, cases.num_word[d], FAIL_CAT, attr);
  for (int i = 0; i < it->n; i++) {
    int v = cases.print_order[d][i];
    for (int k = 0; k < it->K; k++) set_prob(it, i, k, member.prob_mem_w[k][d][v]);
    it->text += cases.word_list[d][v];
    end_text(it);
  }
}

void gauss_items(KlItems *it, int g) {
  init_items(it, cases.num_entry, FAIL_GAUSS, g);
  for (int n = 0; n < it->n; n++) {
    for (int k = 0; k < it->K; k++) set_prob(it, n, k, member.prob_mem_g[k][g][n]);
    it->text += get_case_id(n);
    for (int i = 0; i < settings.gauss_attr_size[g] && !settings.mode_hide_attr; i++) {
      it->text += delimiter();
      it->text += freq_entry_val(n, settings.gauss_attr[g][i]);
    }
    end_text(it);
  }
}

}  // namespace

void write_dissim_case_rows(FILE *fp) {
  KlItems it;
  case_items(&it);
  write_kl_rows(fp, &it, "");
}

void write_dissim_cat_rows(FILE *fp, int attr) {
  KlItems it;
  cat_items(&it, attr);
  write_kl_rows(fp, &it, std::to_string(attr) + delimiter());
}

void write_dissim_gauss_rows(FILE *fp, int g) {
  KlItems it;
  gauss_items(&it, g);
  write_kl_rows(fp, &it, std::to_string(g) + delimiter());
}
