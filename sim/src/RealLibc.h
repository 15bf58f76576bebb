// The C library's own functions behind our interposers (resolved lazily with
// dlsym(RTLD_NEXT)). The simulator uses these for its own descriptors.
#pragma once

#include <sys/types.h>

namespace tovra::sim::real {

int open(const char *path, int flags, mode_t mode);
int close(int fd);

}  // namespace tovra::sim::real
