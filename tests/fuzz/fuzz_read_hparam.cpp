// Fuzz target of the hyperparameter file reader: header bytes (roles and
// settings, see fuzz_harness.h), then the hyperparameter file. The case file
// read first is fixed: three cases whose discrete values are a, b and c in
// every discrete column and whose continuous values vary.
#include "fuzz_harness.h"
#include "input/read_hparam.h"
#include "model/install.h"
#include "model/allocate.h"

namespace {

// Written before any reader runs, so that no failure jumps over the text.
void write_case_file(const std::string &path) {
  const char *values[3][2] = {{"a", "1.5"}, {"b", "-2"}, {"c", "0.25e1"}};
  std::string text;
  for (int line = 0; line < 3; line++) {
    for (int a = 0; a < settings.tuple_size; a++) {
      if (a > 0) text += settings.format_in == FORMAT_TXT ? "\t" : ",";
      text += values[(line + a) % 3][settings.attr_info[a].cont ? 1 : 0];
    }
    text += "\n";
  }
  fuzz::write_bytes(path, reinterpret_cast<const uint8_t *>(text.data()), text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 3) return 0;
  fuzz::start_process();
  fuzz::reset_settings();
  static const std::string cases_path = fuzz::scratch_file("_freq.txt");
  static const std::string path = fuzz::scratch_file("_hparam.txt");
  fuzz::write_bytes(path, data + 3, size - 3);
  snprintf(settings.fname_freq, sizeof settings.fname_freq, "%s", cases_path.c_str());
  snprintf(settings.fname_hparam, sizeof settings.fname_hparam, "%s", path.c_str());
  settings.mode_read_hparam = 1;  // as --read-hparam sets it
  if (setjmp(fuzz::back) == 0 && fuzz::set_roles(fuzz::decode(data))) {
    write_case_file(cases_path);
    read_freq();
    read_hparam();
  }
  release_read_hparam();
  release_hparam_read();
  release_freq();
  fuzz::reset_settings();
  return 0;
}
