#include "ClassRepository.h"

#include "MofParser.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace cimhost {

namespace fs = std::filesystem;

namespace {

constexpr const char *kDefaultNamespace = "root/cimv2";

std::string readFile(const fs::path &path, const std::string &origin, int line) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw MofError(origin, line, "cannot open the file");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool hasMofExtension(const fs::path &path) { return iequals(path.extension().string(), ".mof"); }

}  // namespace

// A failed load removes what it added; classes read before it stay where
// they are, so pointers handed out earlier remain valid.
template <class F> void ClassRepository::transaction(F &&load) {
    std::vector<std::string> before;
    before.reserve(classes_.size());
    for (const auto &item : classes_) before.push_back(item.first);  // already sorted
    auto files = loadedFiles_;
    try {
        load();
    } catch (...) {
        std::erase_if(classes_, [&](const auto &item) {
            return !std::binary_search(before.begin(), before.end(), item.first);
        });
        loadedFiles_ = std::move(files);
        throw;
    }
}

void ClassRepository::loadFile(const std::string &path) {
    transaction([&] { loadFileIn(path, kDefaultNamespace); });
}

void ClassRepository::loadText(const std::string &text, const std::string &origin) {
    transaction([&] { parseText(text, origin, fs::current_path(), kDefaultNamespace); });
}

void ClassRepository::loadDirectory(const std::string &dir) {
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) throw MofError(dir, 0, "not a directory");
    std::vector<fs::path> files;
    for (const auto &item : fs::recursive_directory_iterator(dir))
        if (item.is_regular_file() && hasMofExtension(item.path())) files.push_back(item.path());
    std::sort(files.begin(), files.end());  // a stable order makes errors reproducible
    transaction([&] {
        for (const fs::path &file : files) loadFileIn(file, kDefaultNamespace);
    });
}

void ClassRepository::loadFileIn(const fs::path &path, const std::string &nameSpace) {
    const fs::path canonical = fs::weakly_canonical(fs::absolute(path));
    if (!loadedFiles_.insert(canonical).second) return;  // also ends include cycles
    parseText(readFile(path, path.string(), 0), path.string(), canonical.parent_path(), nameSpace);
}

void ClassRepository::parseText(const std::string &text, const std::string &origin, const fs::path &baseDir,
                                const std::string &nameSpace) {
    MofSink sink;
    sink.onClass = [&](ClassDecl &&cls, int line) {
        const std::string key = lowerCase(cls.name);
        if (const Entry *first = entry(key))
            throw MofError(origin, line,
                           "class " + cls.name + " is already defined at " + first->file + ":" +
                               std::to_string(first->line));
        classes_.emplace(key, Entry{std::move(cls), origin, line});
    };
    sink.onInclude = [&](const std::string &file, const std::string &ns, int line) {
        const fs::path target = fs::path(file).is_absolute() ? fs::path(file) : baseDir / file;
        std::error_code ec;
        if (!fs::is_regular_file(target, ec)) throw MofError(origin, line, "cannot include '" + file + "'");
        loadFileIn(target, ns);
    };
    parseMof(text, origin, nameSpace, sink);
}

const ClassRepository::Entry *ClassRepository::entry(std::string_view name) const {
    const auto it = classes_.find(lowerCase(name));
    return it == classes_.end() ? nullptr : &it->second;
}

const ClassDecl *ClassRepository::find(std::string_view name) const {
    const Entry *e = entry(name);
    return e != nullptr ? &e->decl : nullptr;
}

std::vector<const ClassDecl *> ClassRepository::chain(std::string_view cls) const {
    std::vector<const ClassDecl *> out;
    for (const ClassDecl *c = find(cls); c != nullptr; c = c->superclass.empty() ? nullptr : find(c->superclass)) {
        if (std::find(out.begin(), out.end(), c) != out.end()) break;
        out.push_back(c);
    }
    return out;
}

bool ClassRepository::isA(std::string_view cls, std::string_view ancestor) const {
    for (const ClassDecl *c : chain(cls))
        if (iequals(c->name, ancestor)) return true;
    return false;
}

const PropertyDecl *ClassRepository::findProperty(std::string_view cls, std::string_view prop) const {
    for (const ClassDecl *c : chain(cls))
        for (const PropertyDecl &p : c->properties)
            if (iequals(p.name, prop)) return &p;
    return nullptr;
}

const MethodDecl *ClassRepository::findMethod(std::string_view cls, std::string_view method) const {
    for (const ClassDecl *c : chain(cls))
        for (const MethodDecl &m : c->methods)
            if (iequals(m.name, method)) return &m;
    return nullptr;
}

std::vector<const PropertyDecl *> ClassRepository::allProperties(std::string_view cls) const {
    std::vector<const PropertyDecl *> out;
    const auto ancestry = chain(cls);
    for (auto c = ancestry.rbegin(); c != ancestry.rend(); ++c) {
        for (const PropertyDecl &p : (*c)->properties) {
            const auto same = std::find_if(out.begin(), out.end(),
                                           [&](const PropertyDecl *q) { return iequals(q->name, p.name); });
            if (same != out.end())
                *same = &p;
            else
                out.push_back(&p);
        }
    }
    return out;
}

std::vector<std::string> ClassRepository::keyNames(std::string_view cls) const {
    std::vector<std::string> keys;
    const auto ancestry = chain(cls);
    for (const PropertyDecl *p : allProperties(cls)) {
        const bool key = std::any_of(ancestry.begin(), ancestry.end(), [&](const ClassDecl *c) {
            return std::any_of(c->properties.begin(), c->properties.end(),
                               [&](const PropertyDecl &q) { return q.isKey && iequals(q.name, p->name); });
        });
        if (key) keys.push_back(p->name);
    }
    return keys;
}

std::vector<ClassRepository::Default> ClassRepository::defaultValues(std::string_view cls) const {
    std::vector<Default> out;
    const auto ancestry = chain(cls);
    for (const PropertyDecl *p : allProperties(cls)) {
        for (const ClassDecl *c : ancestry) {
            const auto q = std::find_if(c->properties.begin(), c->properties.end(), [&](const PropertyDecl &q) {
                return q.defaultValue.has_value() && iequals(q.name, p->name);
            });
            if (q == c->properties.end()) continue;
            if (!q->defaultValue->null) out.push_back({p, &*q});
            break;
        }
    }
    return out;
}

std::vector<std::string> ClassRepository::classNames() const {
    std::vector<std::string> names;
    names.reserve(classes_.size());
    for (const auto &[key, e] : classes_) names.push_back(e.decl.name);
    return names;
}

void ClassRepository::validate() const {
    for (const auto &[key, e] : classes_) {
        const ClassDecl &cls = e.decl;
        auto fail = [&e = e, &cls](const std::string &message) {
            throw MofError(e.file, e.line, cls.name + ": " + message);
        };

        const auto ancestry = chain(cls.name);
        const ClassDecl *root = ancestry.back();
        if (!root->superclass.empty()) {
            if (find(root->superclass) == nullptr)
                fail("superclass " + root->superclass + " is not defined");
            fail("the superclass chain is circular");
        }
        const bool association = std::any_of(ancestry.begin(), ancestry.end(),
                                             [](const ClassDecl *c) { return c->isAssociation; });
        for (const PropertyDecl &p : cls.properties) {
            if (p.type != CimType::Reference) continue;
            if (!association) fail("reference " + p.name + " in a class that is not an association");
            if (find(p.refClass) == nullptr) fail("reference " + p.name + " names an undefined class " + p.refClass);
        }
        for (const MethodDecl &m : cls.methods)
            for (const ParameterDecl &p : m.params)
                if (p.type == CimType::Reference && find(p.refClass) == nullptr)
                    fail("parameter " + m.name + "." + p.name + " names an undefined class " + p.refClass);
    }
}

}  // namespace cimhost
