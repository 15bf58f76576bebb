// The project's MOF files loaded once into a class repository, for the tests
// that check them.
#pragma once

#include "ClassRepository.h"

#include <string>

inline const std::string kMofDir = TOVRA_MOF_DIR;

inline const cimhost::ClassRepository &project() {
    static const cimhost::ClassRepository repo = [] {
        cimhost::ClassRepository r;
        r.loadDirectory(kMofDir);
        return r;
    }();
    return repo;
}
