// Fuzz entry for the host's MOF reader and class repository: any text either
// loads into classes whose queries answer, or is refused with a MofError.
// Text that includes other files is only parsed, so no input reaches the file
// system.
#include "ClassRepository.h"
#include "MofParser.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    bool includes = false;
    try {
        cimhost::MofSink sink;
        sink.onClass = [](cimhost::ClassDecl &&, int) {};
        sink.onInclude = [&](const std::string &, const std::string &, int) { includes = true; };
        cimhost::parseMof(text, "fuzz.mof", "root/cimv2", sink);
    } catch (const cimhost::MofError &) {
        return 0;
    }
    if (includes) return 0;
    cimhost::ClassRepository repo;
    try {
        repo.loadText(text, "fuzz.mof");
        repo.validate();
    } catch (const cimhost::MofError &) {
        return 0;
    }
    for (const std::string &name : repo.classNames()) {
        repo.keyNames(name);
        for (const cimhost::PropertyDecl *p : repo.allProperties(name))
            if (p == nullptr || repo.findProperty(name, p->name) == nullptr) __builtin_trap();
        if (!repo.isA(name, name)) __builtin_trap();
        for (const auto &d : repo.defaultValues(name)) {
            const auto &value = d.source->defaultValue;
            if (!value || value->null || (!d.source->isArray && value->elements.size() != 1)) __builtin_trap();
        }
    }
    return 0;
}
