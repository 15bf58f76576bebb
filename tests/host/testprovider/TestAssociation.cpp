// Test_WidgetGadget: which widget holds which gadget. Both ends are served
// by other providers; this one reaches them through the broker.
#include "TestSupport.h"

namespace testprovider {
namespace {

CMPIObjectPath *pairPath(const std::string &ns, CMPIObjectPath *widget, CMPIObjectPath *gadget) {
    CMPIObjectPath *op = CMNewObjectPath(mb(), ns.c_str(), "Test_WidgetGadget", nullptr);
    CMAddKey(op, "Holder", &widget, CMPI_ref);
    CMAddKey(op, "Held", &gadget, CMPI_ref);
    return op;
}

CMPIInstance *pairInstance(const std::string &ns, CMPIObjectPath *widget, CMPIObjectPath *gadget) {
    CMPIInstance *inst = CMNewInstance(mb(), pairPath(ns, widget, gadget), nullptr);
    CMSetProperty(inst, "Holder", &widget, CMPI_ref);
    CMSetProperty(inst, "Held", &gadget, CMPI_ref);
    return inst;
}

bool classFits(const std::string &ns, const char *cls, const char *filter) {
    if (filter == nullptr) return true;
    return isA(CMNewObjectPath(mb(), ns.c_str(), cls, nullptr), filter);
}

// fn(far-end instance, widget path, gadget path) for each pair that has the
// source as one end; role names the source's end.
template <class F>
CMPIStatus eachPair(const CMPIContext *ctx, const CMPIObjectPath *op, const char *role, const char *resultClass,
                    F &&fn) {
    const std::string ns = nameSpaceOf(op);
    CMPIStatus st = status(CMPI_RC_OK);
    if (isA(op, "Test_Widget") && (role == nullptr || sameName(role, "Holder"))) {
        const char *name = keyText(op, "Name");
        if (name == nullptr || !classFits(ns, "Test_Gadget", resultClass)) return st;
        CMPIEnumeration *gadgets =
            CBEnumInstances(mb(), ctx, CMNewObjectPath(mb(), ns.c_str(), "Test_Gadget", nullptr), nullptr, &st);
        if (st.rc != CMPI_RC_OK) return st;
        while (CMHasNext(gadgets, nullptr)) {
            CMPIData d = CMGetNext(gadgets, nullptr);
            if (d.type == CMPI_instance && same(propertyText(d.value.inst, "Owner"), name))
                fn(d.value.inst, widgetPath(ns, name), CMGetObjectPath(d.value.inst, nullptr));
        }
    } else if (isA(op, "Test_Gadget") && (role == nullptr || sameName(role, "Held"))) {
        if (!classFits(ns, "Test_Widget", resultClass)) return st;
        CMPIInstance *gadget = CBGetInstance(mb(), ctx, op, nullptr, &st);
        if (st.rc != CMPI_RC_OK || gadget == nullptr) return st;
        CMPIObjectPath *widget = widgetPath(ns, propertyText(gadget, "Owner"));
        CMPIInstance *holder = CBGetInstance(mb(), ctx, widget, nullptr, &st);
        if (st.rc != CMPI_RC_OK || holder == nullptr) return st;
        fn(holder, widget, CMGetObjectPath(gadget, nullptr));
    }
    return st;
}

CMPIStatus cleanup(CMPIAssociationMI *, const CMPIContext *, CMPIBoolean terminating) {
    return keepLoaded(terminating);
}

CMPIStatus associators(CMPIAssociationMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *op,
                       const char *assocClass, const char *resultClass, const char *role, const char *,
                       const char **) {
    CMPIStatus st = status(CMPI_RC_OK);
    if (classFits(nameSpaceOf(op), "Test_WidgetGadget", assocClass))
        st = eachPair(ctx, op, role, resultClass,
                      [&](CMPIInstance *far, CMPIObjectPath *, CMPIObjectPath *) { CMReturnInstance(rslt, far); });
    CMReturnDone(rslt);
    return st;
}

CMPIStatus associatorNames(CMPIAssociationMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                           const CMPIObjectPath *op, const char *assocClass, const char *resultClass, const char *role,
                           const char *) {
    CMPIStatus st = status(CMPI_RC_OK);
    if (classFits(nameSpaceOf(op), "Test_WidgetGadget", assocClass))
        st = eachPair(ctx, op, role, resultClass, [&](CMPIInstance *far, CMPIObjectPath *, CMPIObjectPath *) {
            CMReturnObjectPath(rslt, CMGetObjectPath(far, nullptr));
        });
    CMReturnDone(rslt);
    return st;
}

CMPIStatus references(CMPIAssociationMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *op,
                      const char *resultClass, const char *role, const char **) {
    const std::string ns = nameSpaceOf(op);
    CMPIStatus st = status(CMPI_RC_OK);
    if (classFits(ns, "Test_WidgetGadget", resultClass))
        st = eachPair(ctx, op, role, nullptr, [&](CMPIInstance *, CMPIObjectPath *widget, CMPIObjectPath *gadget) {
            CMReturnInstance(rslt, pairInstance(ns, widget, gadget));
        });
    CMReturnDone(rslt);
    return st;
}

CMPIStatus referenceNames(CMPIAssociationMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                          const CMPIObjectPath *op, const char *resultClass, const char *role) {
    const std::string ns = nameSpaceOf(op);
    CMPIStatus st = status(CMPI_RC_OK);
    if (classFits(ns, "Test_WidgetGadget", resultClass))
        st = eachPair(ctx, op, role, nullptr, [&](CMPIInstance *, CMPIObjectPath *widget, CMPIObjectPath *gadget) {
            CMReturnObjectPath(rslt, pairPath(ns, widget, gadget));
        });
    CMReturnDone(rslt);
    return st;
}

CMPIAssociationMIFT associationFT = {CMPICurrentVersion, CMPICurrentVersion, "associationTestWidgetGadgetProvider",
                                     cleanup,            associators,        associatorNames,
                                     references,         referenceNames};
CMPIAssociationMI associationMI = {nullptr, &associationFT};

// ---- the association's own instances ---------------------------------------

template <class F> CMPIStatus eachOfAll(const CMPIContext *ctx, const CMPIObjectPath *op, F &&fn) {
    const std::string ns = nameSpaceOf(op);
    for (const Widget &w : kWidgets) {
        CMPIStatus st = eachPair(ctx, widgetPath(ns, w.name), nullptr, nullptr,
                                 [&](CMPIInstance *, CMPIObjectPath *widget, CMPIObjectPath *gadget) {
                                     fn(ns, widget, gadget);
                                 });
        if (st.rc != CMPI_RC_OK) return st;
    }
    return status(CMPI_RC_OK);
}

CMPIStatus instanceCleanup(CMPIInstanceMI *, const CMPIContext *, CMPIBoolean terminating) {
    return keepLoaded(terminating);
}

CMPIStatus enumNames(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *op) {
    CMPIStatus st = eachOfAll(ctx, op, [&](const std::string &ns, CMPIObjectPath *w, CMPIObjectPath *g) {
        CMReturnObjectPath(rslt, pairPath(ns, w, g));
    });
    CMReturnDone(rslt);
    return st;
}

CMPIStatus enumInstances(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *op,
                         const char **) {
    CMPIStatus st = eachOfAll(ctx, op, [&](const std::string &ns, CMPIObjectPath *w, CMPIObjectPath *g) {
        CMReturnInstance(rslt, pairInstance(ns, w, g));
    });
    CMReturnDone(rslt);
    return st;
}

CMPIStatus getInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op,
                       const char **) {
    CMPIData holder = CMGetKey(op, "Holder", nullptr);
    CMPIData held = CMGetKey(op, "Held", nullptr);
    CMReturnDone(rslt);
    if (holder.type != CMPI_ref || held.type != CMPI_ref || (holder.state & CMPI_nullValue) ||
        (held.state & CMPI_nullValue))
        return status(CMPI_RC_ERR_NOT_FOUND);
    CMReturnInstance(rslt, pairInstance(nameSpaceOf(op), holder.value.ref, held.value.ref));
    return status(CMPI_RC_OK);
}

CMPIInstanceMIFT instanceFT = {CMPICurrentVersion, CMPICurrentVersion, "instanceTestWidgetGadgetProvider",
                               instanceCleanup,    enumNames,          enumInstances,
                               getInstance,        noCreate,           noModify,
                               noDelete,           noQuery};
CMPIInstanceMI instanceMI = {nullptr, &instanceFT};

}  // namespace
}  // namespace testprovider

using namespace testprovider;

CMPI_EXTERN_C CMPIInstanceMI *TestWidgetGadgetProvider_Create_InstanceMI(const CMPIBroker *b, const CMPIContext *,
                                                                         CMPIStatus *) {
    broker = b;
    return &instanceMI;
}

CMPI_EXTERN_C CMPIAssociationMI *TestWidgetGadgetProvider_Create_AssociationMI(const CMPIBroker *b,
                                                                               const CMPIContext *, CMPIStatus *) {
    broker = b;
    return &associationMI;
}
