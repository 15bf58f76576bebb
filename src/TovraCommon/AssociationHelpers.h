// What every association module shares: its descriptor, the key rules that
// pair a left-end instance with a right-end one, and the helpers that place a
// source path on one end of an association.
#pragma once

#include <cmpimacs.h>

#include <optional>

namespace tovra {

enum class KeyRule { Equal8, Equal32, SameText, LeftContainsRight, RightContainsLeft, AllPairs };

struct AssociationEnd {
    const char *cls;         // class of the end
    const char *role;        // reference property that designates it
    const char *superClass;  // standard class accepted as result class for it
    const char *key;         // property compared by the key rule (null for all-pairs)
    // Namespace the associator and enumerate operations enumerate this end
    // in; null: the request's.
    const char *enumNameSpace = nullptr;
};

struct AssociationDescriptor {
    const char *prefix;      // "Tovra<Module>Provider": symbols and log lines
    const char *cls;         // the association class
    const char *superClass;  // standard class enumerate requests are tested against
    AssociationEnd left;
    AssociationEnd right;
    KeyRule rule;
    // Rule of the two enumerate operations when it differs from the others.
    std::optional<KeyRule> enumerationRule{};
    // Associators fetch the source instance before enumerating the far end.
    bool associatorsFetchSource = true;
    // Enumerated association paths live in the request's namespace instead
    // of "tovra/cimv2".
    bool namesInRequestNameSpace = false;
    // In EnumInstanceNames, an inner enumeration that fails, or a null
    // element, skips to the next outer instance instead of ending the request.
    bool tolerantInnerLoop = false;
    // GetInstance logs a null reference key.
    bool reportNullReference = true;
    // The association table's cleanup is ...AssociationCleanup.
    bool associationCleanup = false;

    KeyRule enumRule() const { return enumerationRule.value_or(rule); }
};

inline constexpr const char *TovraNameSpace = "tovra/cimv2";
inline constexpr const char *InteropNameSpace = "root/interop";

// Whether the rule holds between a left-end value and a right-end value. The
// associator operations consider text only of type string (typedText).
bool keyRuleHolds(KeyRule rule, const CMPIData &left, const CMPIData &right, bool typedText);

// ASCII comparison ignoring case; null equals nothing.
bool sameNameIgnoringCase(const char *a, const char *b);

// 1 when cop's class is one of the two ends (by name ignoring case, or as a
// subclass) and role, when given, is that end's role; else 0.
int CheckAssociationParameters(const CMPIBroker *_TovraBroker, const CMPIObjectPath *cop, const char *_LeftRefKey,
                               const char *_RightRefKey, const char *_LeftClass, const char *_RightClass,
                               const char *role, CMPIStatus *rc);

// The class at the other end from ref (one of the two pointers given), or
// null with rc failed.
const char *GetTargetClassName(const CMPIBroker *_TovraBroker, const CMPIObjectPath *ref, const char *_LeftClass,
                               const char *_RightClass, CMPIStatus *rc);

// A new path of the far-end class in ref's namespace.
CMPIObjectPath *CreateTargetClassOP(const CMPIBroker *_TovraBroker, const CMPIObjectPath *ref, const char *_LeftClass,
                                    const char *_RightClass, CMPIStatus *rc);

}  // namespace tovra
