#include <cstring>
#include <ctime>

#include "settings/settings.h"

RunSettings settings;

namespace {

// The messages and number conversions of base/ read their values from here.
bool bind_message_config() {
  message_config = {&settings.prec_msg, &settings.prec_out, &settings.format_out,
                    &settings.mode_daem, &settings.fp_log,  &settings.fp_msg};
  return true;
}
const bool message_config_bound = bind_message_config();

}  // namespace

namespace {

void set_default_model() {
  settings.kmin = settings.kmax = settings.kstep = -1;
  settings.epsilon = 0.001L;
  settings.max_iterate = 3000;
  settings.num_init = 1;
  settings.rand_seed = static_cast<unsigned int>(time(nullptr));
  settings.init_type_class = 2;
  settings.init_type_word = 2;
  settings.noise_ratio = 0.1L;
  settings.noise_ratio_gauss = 0.1L;
  settings.itemp_init = 0.1L;
  settings.itemp_rate = 1.2L;
  settings.smooth_s = 1.0L;
  settings.mode_smooth_s = 1;
  settings.mode_smooth_auto_c = 1;
  settings.mode_smooth_auto_tau = 1;
}

void set_default_run() {
  settings.format_in = settings.format_out = -1;
  settings.ic_type = 1;
  settings.rel_m = 1;
  settings.cl_type = 1;
  settings.mode_em = 1;
  settings.mode_cluster = 1;
  settings.attr_eval = -1;
  settings.attr_id = -1;
  settings.num_rank = -1;
  settings.rank_th = -1.0L;
  settings.min_param_c = 0.001L;
  settings.min_smem_improve = -1.0L;
  settings.min_new_param_c = 0.001L;
  settings.mode_lex_order = 1;
  settings.prec_out = 12;
  settings.prec_msg = 6;
  settings.weight_purity = 1.0L;
  settings.weight_wallance = 1.0L;
  settings.q_regular_min = 0.05L;
  settings.q_regular_max = 0.95L;
}

}  // namespace

void set_default_settings() {
  memset(&settings, 0, sizeof settings);
  set_default_model();
  set_default_run();
}

int is_model_attr(int attr) {
  if (settings.mode_id && attr == settings.attr_id) return 0;
  if (settings.mode_eval && attr == settings.attr_eval) return 0;
  return settings.attr_ignore == nullptr || !settings.attr_ignore[attr];
}

int discrete_index(int attr) {
  if (attr < 0 || attr >= settings.tuple_size || !is_model_attr(attr)) return -1;
  const AttrInfo &info = settings.attr_info[attr];
  return info.cont ? -1 : info.index;
}

int discrete_column(int d) {
  for (int a = 0; a < settings.tuple_size; a++)
    if (discrete_index(a) == d) return a;
  return -1;
}
