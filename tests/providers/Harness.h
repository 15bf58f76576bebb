// The provider library as a CIM client sees it: the built shared library,
// loaded into our host through the project's registration and MOF, talking
// to the simulated adapter through real ioctl calls.
#pragma once

#include <HostOptions.h>
#include <cmpidt.h>
#include <tovrasim/Simulator.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace harness {

// A property value flattened for assertions: text, unsigned number, a list of
// numbers, texts or reals, or null.
struct Val {
    enum class Kind { Null, Text, Number, Numbers, Texts, Reals, Other } kind = Kind::Null;
    std::string text;
    uint64_t number = 0;
    std::vector<uint64_t> numbers;
    std::vector<std::string> texts;
    std::vector<double> reals;
    bool operator==(const std::string &s) const { return kind == Kind::Text && text == s; }
    bool operator==(const char *s) const { return kind == Kind::Text && text == s; }
    bool operator==(uint64_t n) const { return kind == Kind::Number && number == n; }
};

struct Obj {
    std::string path;  // the path as text
    std::string ns;
    std::string className;
    std::vector<std::pair<std::string, Val>> keys;
    std::vector<std::pair<std::string, Val>> props;  // in the order the provider set them
    const Val *prop(const std::string &name) const;
    const Val *key(const std::string &name) const;
    bool has(const std::string &name) const { return prop(name) != nullptr; }
    std::string text(const std::string &name) const;   // "" when absent or not text
    uint64_t num(const std::string &name) const;        // 0 when absent
};

struct Answer {
    CMPIrc rc = CMPI_RC_OK;
    std::string message;
    std::vector<Obj> objects;
    std::optional<Val> value;  // method return value
    std::vector<std::pair<std::string, Val>> outArgs;  // method output arguments
    int doneCount = -1;        // how often the result was ended (direct calls only)
};

using KeyList = std::vector<std::pair<std::string, std::string>>;

// Typed key or argument value handed to the host.
struct In {
    enum class Kind { Text, Uint32, Uint8, Null, Uint32Array, Ref } kind;
    std::string text;
    uint64_t number = 0;
    std::vector<uint64_t> numbers;
    static In str(std::string s) { return {Kind::Text, std::move(s), 0, {}}; }
    static In u32(uint64_t n) { return {Kind::Uint32, {}, n, {}}; }
    static In u8(uint64_t n) { return {Kind::Uint8, {}, n, {}}; }
    static In null() { return {Kind::Null, {}, 0, {}}; }
    static In u32s(std::vector<uint64_t> list) { return {Kind::Uint32Array, {}, 0, std::move(list)}; }
    static In ref(std::string pathText) { return {Kind::Ref, std::move(pathText), 0, {}}; }
};
using Keys = std::vector<std::pair<std::string, In>>;

constexpr const char *kNs = "tovra/cimv2";
constexpr const char *kInterop = "root/interop";

Answer enumNames(const std::string &cls, const std::string &ns = kNs);
Answer enumInstances(const std::string &cls, const std::string &ns = kNs,
                     const std::vector<std::string> *properties = nullptr);
Answer getInstance(const std::string &cls, const Keys &keys, const std::string &ns = kNs);
Answer invoke(const std::string &cls, const std::string &method, const Keys &args = {},
              const std::string &ns = kNs);

// Calls the class's method provider directly with exactly these arguments,
// bypassing the host's conversion to the declared types (so undeclared names
// and other types reach the provider). A null In is a null uint32.
Answer invokeDirect(const std::string &cls, const std::string &method, const Keys &args = {});
// Association requests from the object whose path text is given
// ("ns:Class.Key=\"v\""); an empty text is no filter.
struct AssocFilter {
    std::string assocClass, resultClass, role, resultRole;
};
Answer associatorNames(const std::string &source, const AssocFilter &f = {});
Answer associators(const std::string &source, const AssocFilter &f = {});
Answer referenceNames(const std::string &source, const std::string &assocClass = {}, const std::string &role = {});
Answer references(const std::string &source, const std::string &assocClass = {}, const std::string &role = {});

// The provider processes of later requests: the library's modules in one
// (the default), or each provider in its own. Changing it starts a new host.
void useLayout(cimhost::HostOptions::ProcessLayout layout);

// Runs body inside a host request, with the host's broker and a context
// carrying the test principal.
void inRequest(const std::function<void(const CMPIBroker *, const CMPIContext *)> &body);

size_t liveClones();
size_t liveRequestObjects();
void setPermission(const std::string &user, unsigned level);
// The principal of later requests ("" names nobody); each test starts as "root".
void setPrincipal(const std::string &user);

// Calls the module's factory through the exported symbol and returns its
// MI record (the CIMOM's view of the table).
void *factory(const std::string &symbol);

// Each test starts from a reset simulator, a virtual clock far from any
// earlier cache time (so every cache is stale), and captured logs.
class ProviderTest : public ::testing::Test {
public:
    static void freshClock();  // jumps the clock past every cache lifetime (and every earlier jump)

protected:
    void SetUp() override;
    void TearDown() override;
    static bool logged(const std::string &needle);  // some captured line contains needle
    static time_t clockNow();
};

}  // namespace harness
