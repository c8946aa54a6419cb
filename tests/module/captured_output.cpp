#include "tests/module/captured_output.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

namespace scripted {

CapturedOutput::CapturedOutput(int descriptor)
    : descriptor_(descriptor), original_(-1), file_(memfd_create("captured", MFD_CLOEXEC)) {
  fflush(nullptr);
  original_ = dup(descriptor_);
  if (file_ < 0 || original_ < 0 || dup2(file_, descriptor_) < 0) {
    perror("capture");
    abort();
  }
}

CapturedOutput::~CapturedOutput() {
  Restore();
  close(file_);
}

void CapturedOutput::Restore() {
  if (original_ < 0) return;
  fflush(nullptr);
  dup2(original_, descriptor_);
  close(original_);
  original_ = -1;
}

std::string CapturedOutput::Text() {
  Restore();
  std::string text;
  char part[4096];
  off_t offset = 0;
  for (ssize_t got = 0; (got = pread(file_, part, sizeof part, offset)) > 0; offset += got) {
    text.append(part, static_cast<size_t>(got));
  }
  return text;
}

}  // namespace scripted
