#include "base/result_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/misc.h"
#include "base/stop.h"

namespace {

struct OpenOutput {
  FILE *fp;
  std::string name, temp;
};
std::vector<OpenOutput> open_outputs;

// The name cannot be written when it exists and may not be opened for writing
// (a folder, a read-only file).
bool blocked(const char *fname) {
  int fd = open(fname, O_WRONLY);
  if (fd >= 0) {
    close(fd);
    return false;
  }
  return errno != ENOENT;
}

// A device or a pipe given as the name is written as it stands.
bool special_file(const char *fname) {
  struct stat st;
  return stat(fname, &st) == 0 && !S_ISREG(st.st_mode);
}

}  // namespace

FILE *open_stream_file(const char *fname) {
  FILE *fp = fopen(fname, "wb");
  if (fp == nullptr) {
    fprintf(stderr, "Couldn't open %s\n", fname);
    exit_run(1);
  }
  setvbuf(fp, nullptr, _IOLBF, BUFSIZ);
  return fp;
}

FILE *open_output(const char *fname) {
  std::string temp = std::string(fname) + "." + std::to_string(getpid()) + ".tmp";
  if (special_file(fname)) temp = fname;
  FILE *fp = blocked(fname) ? nullptr : fopen(temp.c_str(), "wb");
  if (fp == nullptr) die("Couldn't open %s\n", fname);
  open_outputs.push_back({fp, fname, temp});
  return fp;
}

void close_output(FILE *fp) {
  for (size_t i = 0; i < open_outputs.size(); i++) {
    if (open_outputs[i].fp != fp) continue;
    OpenOutput out = open_outputs[i];
    open_outputs.erase(open_outputs.begin() + i);
    bool ok = fflush(fp) == 0 && ferror(fp) == 0;
    ok = fclose(fp) == 0 && ok;
    bool direct = out.temp == out.name;
    if (ok && (direct || rename(out.temp.c_str(), out.name.c_str()) == 0)) return;
    if (!direct) remove(out.temp.c_str());
    die("Couldn't write %s\n", out.name.c_str());
  }
  die("Internal error: close_output() -- not a result file\n");
}

void discard_outputs() {
  for (const OpenOutput &out : open_outputs) {
    fclose(out.fp);
    if (out.temp != out.name) remove(out.temp.c_str());
  }
  open_outputs.clear();
}
