// The host's class repository: every class read from MOF files, one table for
// all namespaces (class names are unique across ours), looked up without
// regard to case as CIM names are. Loading is single-threaded; once loaded,
// the const lookups may run on many threads at once. Pointers handed out stay
// valid while the repository lives (later loads do not move classes).
#pragma once

#include "ClassDecl.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace cimhost {

class ClassRepository {
public:
    // Reads one MOF file and what it includes (relative to the including
    // file). Classes start in "root/cimv2" unless a #pragma namespace says
    // otherwise; an included file starts in its includer's namespace. A file
    // already read (by path) is not read again. Throws MofError and then
    // leaves the repository as it was.
    void loadFile(const std::string &path);
    // Reads MOF text; includes are relative to the current directory.
    void loadText(const std::string &text, const std::string &origin = "<text>");
    // Reads every *.mof below `dir`, in any order: superclasses need not
    // precede their subclasses; validate() checks them once all are read.
    void loadDirectory(const std::string &dir);

    // Every superclass exists (and no chain is circular), every REF class
    // exists, and REF properties appear only in association classes.
    void validate() const;

    const ClassDecl *find(std::string_view name) const;
    bool isA(std::string_view cls, std::string_view ancestor) const;  // reflexive; false for unknown classes
    const PropertyDecl *findProperty(std::string_view cls, std::string_view prop) const;
    const MethodDecl *findMethod(std::string_view cls, std::string_view method) const;
    // Inherited properties first (root class first); an override takes the
    // place of the property it overrides.
    std::vector<const PropertyDecl *> allProperties(std::string_view cls) const;
    // Key properties in allProperties() order. A property is a key when any
    // declaration of it along the chain carries Key (keys cannot be dropped).
    std::vector<std::string> keyNames(std::string_view cls) const;
    std::vector<std::string> classNames() const;  // sorted without regard to case

    // A property's default value and the declaration that gives it.
    struct Default {
        const PropertyDecl *property;  // as allProperties() gives it
        const PropertyDecl *source;    // the declaration whose "= value" applies
    };
    // The defaults of a class's properties, in allProperties() order: the
    // nearest declaration along the chain that gives one, so an override
    // without "= value" keeps the inherited default and "= NULL" drops it.
    std::vector<Default> defaultValues(std::string_view cls) const;

private:
    struct Entry {
        ClassDecl decl;
        std::string file;
        int line = 0;
    };

    void loadFileIn(const std::filesystem::path &path, const std::string &nameSpace);
    void parseText(const std::string &text, const std::string &origin, const std::filesystem::path &baseDir,
                   const std::string &nameSpace);
    template <class F> void transaction(F &&load);
    const Entry *entry(std::string_view name) const;
    // The class and its ancestors, the class first; stops at a missing or
    // repeated superclass.
    std::vector<const ClassDecl *> chain(std::string_view cls) const;

    std::map<std::string, Entry> classes_;  // by lower-case name
    std::set<std::filesystem::path> loadedFiles_;
};

}  // namespace cimhost
