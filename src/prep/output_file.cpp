#include "prep/output_file.h"

#include <cerrno>
#include <cstring>

#include "prep/prep_fail.h"

OutputFile open_output_file(const std::string &path) {
  OutputFile out{nullptr, path, path + ".part"};
  out.fp = fopen(out.tmp_path.c_str(), "wb");
  if (out.fp == nullptr) prep_die("cannot write %s: %s", out.tmp_path.c_str(), strerror(errno));
  remove_on_failure(out.tmp_path);
  return out;
}

void close_output_file(OutputFile *out) {
  bool failed = ferror(out->fp) != 0;
  int err = errno;
  if (fclose(out->fp) != 0 && !failed) {
    failed = true;
    err = errno;
  }
  out->fp = nullptr;
  if (failed) prep_die("cannot write %s: %s", out->path.c_str(), strerror(err));
}

void commit_output_file(OutputFile *out, const std::string &done) {
  if (rename(out->tmp_path.c_str(), out->path.c_str()) != 0) {
    int err = errno;
    if (!done.empty()) remove(done.c_str());
    prep_die("cannot write %s: %s", out->path.c_str(), strerror(err));
  }
  keep_on_failure(out->tmp_path);
}
