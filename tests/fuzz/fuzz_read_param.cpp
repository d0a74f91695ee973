// Fuzz target of the parameter file reader (a run with --read-param): header
// bytes (roles and settings, see fuzz_harness.h), then the parameter file.
#include "fuzz_harness.h"
#include "input/read_param.h"
#include "model/install.h"
#include "model/allocate.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 3) return 0;
  fuzz::start_process();
  fuzz::reset_settings();
  static const std::string path = fuzz::scratch_file("_param.txt");
  fuzz::write_bytes(path, data + 3, size - 3);
  snprintf(settings.fname_param, sizeof settings.fname_param, "%s", path.c_str());
  settings.mode_em = 0;
  if (setjmp(fuzz::back) == 0 && fuzz::set_roles(fuzz::decode(data))) read_param();
  release_read_param();
  release_param();
  release_freq();
  fuzz::reset_settings();
  return 0;
}
