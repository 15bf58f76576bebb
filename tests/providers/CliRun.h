// A command run through the shell, as a user runs tovra-cim: its exit status
// and what it printed to the pipe (standard output, and standard error when
// the command redirects it there).
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

struct CliRun {
    int status = -1;
    std::string out;
};

inline CliRun runShell(const std::string &command) {
    CliRun run;
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, pipe)) > 0) run.out.append(buf, n);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}
