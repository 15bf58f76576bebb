// The association engine: the seven read operations of an association
// module, computed anew on every request from the instances of the two end
// classes, which the broker enumerates (from their providers' caches) and the
// module's key rule pairs. A module supplies its descriptor as M::kAssoc.
//
// Every operation keeps one status, hands it to each broker call, ends where
// a call fails (what was returned stays returned), always sends done, and
// answers with the bare code.
#pragma once

#include "AssociationHelpers.h"
#include "ProviderFrame.h"

#include <string>

namespace tovra {

template <class M> struct AssociationOps {
    using S = ModuleState<M>;
    static constexpr const AssociationDescriptor &D = M::kAssoc;
    static inline const char *kRoleKeys[] = {D.left.role, D.right.role, nullptr};

    // ---- association table ----------------------------------------------

    template <bool Names>
    static CMPIStatus associators(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                  const char *resultClass, const char **properties) {
        CMPIStatus rc = okStatus();
        const CMPIBroker *b = S::_TovraBroker;
        [&] {
            const bool sourceIsLeft = CMClassPathIsA(b, cop, D.left.cls, &rc);
            if (!sourceIsLeft && !CMClassPathIsA(b, cop, D.right.cls, &rc)) return;
            const AssociationEnd &source = sourceIsLeft ? D.left : D.right;
            const AssociationEnd &far = sourceIsLeft ? D.right : D.left;
            if (resultClass != nullptr && !sameNameIgnoringCase(resultClass, far.cls) &&
                !sameNameIgnoringCase(resultClass, far.superClass))
                return;
            CMPIData sourceKey{};
            if (D.associatorsFetchSource) {
                CMPIInstance *src = CBGetInstance(b, ctx, cop, Names ? nullptr : properties, &rc);
                if (rc.rc != CMPI_RC_OK || CMIsNullObject(src)) return;
                if (D.rule != KeyRule::AllPairs) {
                    sourceKey = CMGetProperty(src, source.key, &rc);
                    if (rc.rc != CMPI_RC_OK || CMIsNullValue(sourceKey)) return;
                }
            }
            CMPIEnumeration *en = enumerate(ctx, far, nameSpaceOf(cop), rc);
            if (en == nullptr) return;
            while (CMHasNext(en, &rc)) {
                CMPIData d = CMGetNext(en, &rc);
                if (rc.rc != CMPI_RC_OK || d.type != CMPI_instance || CMIsNullObject(d.value.inst)) return;
                bool match = true;
                if (D.rule != KeyRule::AllPairs) {
                    CMPIData farKey = CMGetProperty(d.value.inst, far.key, &rc);
                    if (rc.rc != CMPI_RC_OK || CMIsNullValue(farKey)) return;
                    match = sourceIsLeft ? keyRuleHolds(D.rule, sourceKey, farKey, true)
                                         : keyRuleHolds(D.rule, farKey, sourceKey, true);
                }
                if constexpr (Names) {
                    CMPIObjectPath *path = CMGetObjectPath(d.value.inst, &rc);
                    if (rc.rc != CMPI_RC_OK || CMIsNullObject(path)) return;
                    if (match) CMReturnObjectPath(rslt, path);
                } else {
                    if (match) CMReturnInstance(rslt, d.value.inst);
                }
            }
        }();
        return finish(rslt, Names ? "AssociatorNames" : "Associators", rc);
    }

    template <bool Names>
    static CMPIStatus references(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                 const char *assocClass, const char *role, const char **properties) {
        CMPIStatus rc = okStatus();
        const CMPIBroker *b = S::_TovraBroker;
        [&] {
            const std::string ns = nameSpaceOf(cop);
            // One association path, its two keys overwritten for every result.
            CMPIObjectPath *aop = CMNewObjectPath(b, ns.c_str(), D.cls, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(aop)) return;
            if (assocClass != nullptr && CMClassPathIsA(b, aop, assocClass, &rc) != 1) return;
            if (!CheckAssociationParameters(b, cop, D.left.role, D.right.role, D.left.cls, D.right.cls, role, &rc))
                return;
            CMPIInstance *src = CBGetInstance(b, ctx, cop, Names ? nullptr : properties, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(src)) return;
            const char *farClass = GetTargetClassName(b, cop, D.left.cls, D.right.cls, &rc);
            if (farClass == nullptr) return;
            const bool farIsRight = farClass == D.right.cls;
            CMPIObjectPath *farOp = CMNewObjectPath(b, ns.c_str(), farClass, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(farOp)) return;
            CMPIEnumeration *en = CBEnumInstances(b, ctx, farOp, nullptr, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(en)) return;
            while (CMHasNext(en, &rc)) {
                CMPIData d = CMGetNext(en, &rc);
                if (rc.rc != CMPI_RC_OK || d.type != CMPI_instance || CMIsNullObject(d.value.inst)) return;
                CMPIInstance *assoc = nullptr;
                if constexpr (!Names) {
                    assoc = CMNewInstance(b, aop, &rc);
                    if (rc.rc != CMPI_RC_OK || CMIsNullObject(assoc)) return;
                }
                bool match = true;
                if (D.rule != KeyRule::AllPairs) {
                    const CMPIInstance *left = farIsRight ? src : d.value.inst;
                    const CMPIInstance *right = farIsRight ? d.value.inst : src;
                    match = keyRuleHolds(D.rule, CMGetProperty(left, D.left.key, &rc),
                                         CMGetProperty(right, D.right.key, &rc), false);
                }
                if (!match) continue;
                CMPIObjectPath *farPath = CMGetObjectPath(d.value.inst, &rc);
                if (rc.rc != CMPI_RC_OK || CMIsNullObject(farPath)) return;
                const CMPIObjectPath *leftPath = farIsRight ? cop : farPath;
                const CMPIObjectPath *rightPath = farIsRight ? farPath : cop;
                if constexpr (Names) {
                    CMAddKey(aop, D.left.role, &leftPath, CMPI_ref);
                    CMAddKey(aop, D.right.role, &rightPath, CMPI_ref);
                    CMReturnObjectPath(rslt, aop);
                } else {
                    // The request's property list is not applied to the association.
                    CMSetPropertyFilter(assoc, nullptr, kRoleKeys);
                    CMSetProperty(assoc, D.left.role, &leftPath, CMPI_ref);
                    CMSetProperty(assoc, D.right.role, &rightPath, CMPI_ref);
                    CMReturnInstance(rslt, assoc);
                }
            }
        }();
        return finish(rslt, Names ? "ReferenceNames" : "References", rc);
    }

    // ---- instance table -----------------------------------------------------

    static CMPIStatus enumInstanceNames(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *cop) {
        return enumerateAll<true>(ctx, rslt, cop, nullptr);
    }
    static CMPIStatus enumInstances(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                    const char **properties) {
        return enumerateAll<false>(ctx, rslt, cop, properties);
    }

    // Rebuilt from the keys of cop, without asking the broker; the two
    // reference properties are named after the end classes.
    static CMPIStatus getInstance(const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                  const char **properties) {
        const char *op = "GetInstance";
        CMPIStatus rc = okStatus();
        const CMPIBroker *b = S::_TovraBroker;
        [&] {
            CMPIData left = CMGetKey(cop, D.left.role, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullValue(left)) return log("%s: CMPI_RC_ERR_FAILED\n", op);
            CMPIData right = CMGetKey(cop, D.right.role, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullValue(right)) return log("%s: CMPI_RC_ERR_FAILED\n", op);
            if (left.type != CMPI_ref || right.type != CMPI_ref || left.value.ref == nullptr ||
                right.value.ref == nullptr) {
                if (D.reportNullReference) log("%s: CMPI_RC_ERROR_SYSTEM\n", op);
                return;
            }
            CMPIObjectPath *path = CMNewObjectPath(b, "", D.cls, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(path)) return;
            CMSetNameSpaceFromObjectPath(path, left.value.ref);
            CMPIInstance *inst = CMNewInstance(b, path, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(inst)) return;
            CMSetPropertyFilter(inst, properties, kRoleKeys);
            CMSetProperty(inst, D.left.cls, &left.value.ref, CMPI_ref);
            CMSetProperty(inst, D.right.cls, &right.value.ref, CMPI_ref);
            CMReturnInstance(rslt, inst);
        }();
        return finish(rslt, op, rc);
    }

private:
    static void log(const char *fmt, const char *op) {
        logAlert(fmt, opName(D.prefix, op).c_str());
    }

    static CMPIStatus finish(const CMPIResult *rslt, const char *op, const CMPIStatus &rc) {
        CMReturnDone(rslt);
        if (rc.rc != CMPI_RC_OK)
            logAlert("%s: Not Return CMPI_RC_OK(0x%x)\n", opName(D.prefix, op).c_str(), rc.rc);
        return makeStatus(rc.rc);
    }

    // The instances of an end class, in the end's own namespace when it has
    // one, else in the request's; null when the broker fails.
    static CMPIEnumeration *enumerate(const CMPIContext *ctx, const AssociationEnd &end, const std::string &requestNs,
                                      CMPIStatus &rc) {
        CMPIObjectPath *op = endPath(end, requestNs, rc);
        if (op == nullptr) return nullptr;
        CMPIEnumeration *en = CBEnumInstances(S::_TovraBroker, ctx, op, nullptr, &rc);
        return rc.rc == CMPI_RC_OK && !CMIsNullObject(en) ? en : nullptr;
    }
    static CMPIObjectPath *endPath(const AssociationEnd &end, const std::string &requestNs, CMPIStatus &rc) {
        const char *ns = end.enumNameSpace != nullptr ? end.enumNameSpace : requestNs.c_str();
        CMPIObjectPath *op = CMNewObjectPath(S::_TovraBroker, ns, end.cls, &rc);
        return rc.rc == CMPI_RC_OK && !CMIsNullObject(op) ? op : nullptr;
    }

    // Every pair of the association: right-end instances outside, the left
    // class enumerated anew for each of them inside.
    template <bool Names>
    static CMPIStatus enumerateAll(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties) {
        const char *op = Names ? "EnumInstanceNames" : "EnumInstances";
        CMPIStatus rc = okStatus();
        const CMPIBroker *b = S::_TovraBroker;
        [&] {
            if (!CMClassPathIsA(b, cop, D.superClass, &rc)) return log("%s: CMClassPathIsNotA_SuperClassName\n", op);
            const std::string ns = nameSpaceOf(cop);
            const char *assocNs = D.namesInRequestNameSpace && Names ? ns.c_str() : TovraNameSpace;
            CMPIEnumeration *rights = enumerate(ctx, D.right, ns, rc);
            if (rights == nullptr) return;
            CMPIObjectPath *leftOp = endPath(D.left, ns, rc);
            if (leftOp == nullptr) return;
            CMPIObjectPath *aop = nullptr;
            if constexpr (!Names) {
                aop = CMNewObjectPath(b, assocNs, D.cls, &rc);
                if (rc.rc != CMPI_RC_OK || CMIsNullObject(aop)) return;
            }
            const KeyRule rule = D.enumRule();
            const bool tolerant = D.tolerantInnerLoop && Names;
            while (CMHasNext(rights, &rc)) {
                CMPIData r = CMGetNext(rights, &rc);
                if (rc.rc != CMPI_RC_OK || notAnInstance(r)) return;
                CMPIData rightKey{};
                if (rule != KeyRule::AllPairs) {
                    rightKey = CMGetProperty(r.value.inst, D.right.key, &rc);
                    if (rc.rc != CMPI_RC_OK || CMIsNullValue(rightKey)) return;
                }
                CMPIEnumeration *lefts = CBEnumInstances(b, ctx, leftOp, nullptr, &rc);
                if (rc.rc != CMPI_RC_OK || CMIsNullObject(lefts)) {
                    if (tolerant) continue;
                    return;
                }
                while (CMHasNext(lefts, &rc)) {
                    CMPIData l = CMGetNext(lefts, &rc);
                    if (rc.rc != CMPI_RC_OK) return;
                    if (notAnInstance(l)) {
                        if (tolerant) continue;
                        return;
                    }
                    if (rule != KeyRule::AllPairs) {
                        CMPIData leftKey = CMGetProperty(l.value.inst, D.left.key, &rc);
                        if (rc.rc != CMPI_RC_OK || CMIsNullValue(leftKey)) return;
                        if (!keyRuleHolds(rule, leftKey, rightKey, false)) continue;
                    }
                    if (!returnPair<Names>(rslt, assocNs, aop, l.value.inst, r.value.inst, properties, rc)) return;
                }
            }
        }();
        return finish(rslt, op, rc);
    }

    static bool notAnInstance(const CMPIData &d) { return d.type != CMPI_instance || CMIsNullObject(d.value.inst); }

    template <bool Names>
    static bool returnPair(const CMPIResult *rslt, const char *assocNs, CMPIObjectPath *aop, const CMPIInstance *left,
                           const CMPIInstance *right, const char **properties, CMPIStatus &rc) {
        const CMPIBroker *b = S::_TovraBroker;
        if constexpr (Names) {
            CMPIObjectPath *path = CMNewObjectPath(b, assocNs, D.cls, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(path)) return false;
            CMPIObjectPath *leftPath = CMGetObjectPath(left, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(leftPath)) return false;
            CMPIObjectPath *rightPath = CMGetObjectPath(right, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(rightPath)) return false;
            CMAddKey(path, D.left.role, &leftPath, CMPI_ref);
            CMAddKey(path, D.right.role, &rightPath, CMPI_ref);
            rc = okStatus();
            CMReturnObjectPath(rslt, path);
        } else {
            CMPIInstance *inst = CMNewInstance(b, aop, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(inst)) return false;
            CMSetPropertyFilter(inst, properties, kRoleKeys);
            CMPIObjectPath *leftPath = CMGetObjectPath(left, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(leftPath)) return false;
            CMPIObjectPath *rightPath = CMGetObjectPath(right, &rc);
            if (rc.rc != CMPI_RC_OK || CMIsNullObject(rightPath)) return false;
            CMSetProperty(inst, D.left.role, &leftPath, CMPI_ref);
            CMSetProperty(inst, D.right.role, &rightPath, CMPI_ref);
            CMReturnInstance(rslt, inst);
        }
        return true;
    }
};

}  // namespace tovra
