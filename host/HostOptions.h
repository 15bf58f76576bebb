// How a host is set up.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace cimhost {

struct InstanceV;

struct HostOptions {
    std::vector<std::string> mofPaths;      // MOF files or directories
    std::string registrationFile;           // the stock registration format; empty: none
    std::vector<std::string> providerDirs;  // where lib<location>.so is looked for

    // The context entry "CMPIPrincipal": the user name; or present with NULL
    // characters (a stock CIMOM with authentication off); or absent.
    enum class PrincipalEntry { Named, NullText, Absent };
    std::string principal = "root";
    PrincipalEntry principalEntry = PrincipalEntry::Named;

    // Provider processes: one per provider library (a stock CIMOM's default
    // grouping) or one per provider (grouping off). Each serialises its
    // broker up-calls.
    enum class ProcessLayout { ByLibrary, PerProvider };
    ProcessLayout layout = ProcessLayout::ByLibrary;
    // The layouts by the names the command lines take.
    static inline const std::map<std::string, ProcessLayout> kLayoutNames = {
        {"library", ProcessLayout::ByLibrary}, {"provider", ProcessLayout::PerProvider}};

    // Emulates a CMPI 1.0-level stock CIMOM: brokerVersion 0, EncFT version 1,
    // and the 2.0-only slots (EncFT 17-20, InstanceFT 10, ResultFT 7) NULL.
    bool cmpi10Broker = false;
    // Integer keys read back as sint64 whatever width they were added with.
    bool widenIntegerKeys = false;
    // chars arrays read back as string arrays.
    bool charsArraysAsStrings = false;
    // Broker logMessage/trace lines also go to stderr.
    bool echoBrokerLog = false;

    // Where indications that providers deliver go: namespace and the indication.
    // Called while the provider's delivering thread waits (under its process's
    // up-call lock); it must not block. Empty: dropped.
    std::function<void(const std::string &ns, const InstanceV &indication)> indicationSink;
};

}  // namespace cimhost
