#include "AssociationHelpers.h"

#include "CimWriter.h"
#include "Platform.h"
#include "ProviderFrame.h"

#include <cstring>

namespace tovra {

namespace {

// Text of a property value; with typedText only a value of type string counts.
const char *textOf(const CMPIData &d, bool typedText) {
    if (CMIsNullValue(d)) return nullptr;
    if (d.type == CMPI_string) {
        if (d.value.string == nullptr || d.value.string->hdl == nullptr) return nullptr;
        return CMGetCharsPtr(d.value.string, nullptr);
    }
    if (d.type == CMPI_chars && !typedText) return d.value.chars;
    return nullptr;
}

const char *classNameOf(const CMPIObjectPath *op, CMPIStatus *rc) {
    CMPIString *name = CMGetClassName(op, rc);
    return name != nullptr && name->hdl != nullptr ? CMGetCharsPtr(name, nullptr) : nullptr;
}

}  // namespace

bool keyRuleHolds(KeyRule rule, const CMPIData &left, const CMPIData &right, bool typedText) {
    switch (rule) {
        case KeyRule::AllPairs: return true;
        // The low byte and the low 32 bits of the value, whatever width it came with.
        case KeyRule::Equal8: return left.value.uint8 == right.value.uint8;
        case KeyRule::Equal32: return left.value.uint32 == right.value.uint32;
        default: break;
    }
    const char *l = textOf(left, typedText);
    const char *r = textOf(right, typedText);
    if (l == nullptr || r == nullptr) return false;
    switch (rule) {
        case KeyRule::SameText: return std::strcmp(l, r) == 0;
        case KeyRule::LeftContainsRight: return std::strstr(l, r) != nullptr;
        case KeyRule::RightContainsLeft: return std::strstr(r, l) != nullptr;
        default: return false;
    }
}

bool sameNameIgnoringCase(const char *a, const char *b) {
    if (a == nullptr || b == nullptr) return false;
    auto fold = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    for (; *a != '\0' && *b != '\0'; ++a, ++b)
        if (fold(*a) != fold(*b)) return false;
    return *a == *b;
}

int CheckAssociationParameters(const CMPIBroker *_TovraBroker, const CMPIObjectPath *cop, const char *_LeftRefKey,
                               const char *_RightRefKey, const char *_LeftClass, const char *_RightClass,
                               const char *role, CMPIStatus *rc) {
    const char *name = classNameOf(cop, rc);
    if (name == nullptr) return 0;
    CMPIObjectPath *sop = CMNewObjectPath(_TovraBroker, nameSpaceOf(cop).c_str(), name, rc);
    if (CMIsNullObject(sop)) return 0;
    const bool left =
        sameNameIgnoringCase(name, _LeftClass) || CMClassPathIsA(_TovraBroker, sop, _LeftClass, rc) == 1;
    const bool right =
        !left && (sameNameIgnoringCase(name, _RightClass) || CMClassPathIsA(_TovraBroker, sop, _RightClass, rc) == 1);
    if (!left && !right) return 0;
    if (role == nullptr) return 1;
    return sameNameIgnoringCase(role, left ? _LeftRefKey : _RightRefKey) ? 1 : 0;
}

const char *GetTargetClassName(const CMPIBroker *_TovraBroker, const CMPIObjectPath *ref, const char *_LeftClass,
                               const char *_RightClass, CMPIStatus *rc) {
    const char *name = classNameOf(ref, rc);
    if (name == nullptr) {
        if (rc != nullptr) *rc = makeStatus(CMPI_RC_ERR_FAILED);
        // The path's text is what would be named here, and there is none.
        logAlert("%s failed: %s", "GetTargetClassName", "");
        return nullptr;
    }
    if (std::strcmp(name, _LeftClass) == 0) return _RightClass;
    if (std::strcmp(name, _RightClass) == 0) return _LeftClass;
    if (CMClassPathIsA(_TovraBroker, ref, _LeftClass, rc) == 1) return _RightClass;
    if (CMClassPathIsA(_TovraBroker, ref, _RightClass, rc) == 1) return _LeftClass;
    if (rc != nullptr) *rc = makeStatus(CMPI_RC_ERR_FAILED);
    return nullptr;
}

CMPIObjectPath *CreateTargetClassOP(const CMPIBroker *_TovraBroker, const CMPIObjectPath *ref, const char *_LeftClass,
                                    const char *_RightClass, CMPIStatus *rc) {
    const char *target = GetTargetClassName(_TovraBroker, ref, _LeftClass, _RightClass, rc);
    CMPIObjectPath *op = CMNewObjectPath(_TovraBroker, nameSpaceOf(ref).c_str(), target, rc);
    if (CMIsNullObject(op)) {
        if (rc != nullptr) *rc = makeStatus(CMPI_RC_ERR_FAILED);
        logAlert("%s failed: %s", "CreateTargetClassOP", "");
    }
    return op;
}

}  // namespace tovra
