// Fuzz target of the case file reader: header bytes (roles and settings,
// see fuzz_harness.h), then the case file.
#include "fuzz_harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 3) return 0;
  fuzz::start_process();
  fuzz::reset_settings();
  static const std::string path = fuzz::scratch_file("_freq.txt");
  fuzz::write_bytes(path, data + 3, size - 3);
  snprintf(settings.fname_freq, sizeof settings.fname_freq, "%s", path.c_str());
  if (setjmp(fuzz::back) == 0 && fuzz::set_roles(fuzz::decode(data))) read_freq();
  release_freq();
  fuzz::reset_settings();
  return 0;
}
