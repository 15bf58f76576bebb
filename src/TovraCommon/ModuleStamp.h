// Stamps a module's exported symbols from its traits: the factories, the
// static MI records with their function tables, and every named operation
// Tovra<Module>Provider<Operation> with C linkage.
#pragma once

#include "MethodFrame.h"
#include "ProviderFrame.h"

#define TOVRA_INSTANCE_PROVIDER(Module, M)                                                             \
    extern "C" {                                                                                       \
    CMPI_EXPORT void Tovra##Module##ProviderInit(void) {}                                              \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderCleanup(CMPIInstanceMI *, const CMPIContext *,       \
                                                         CMPIBoolean terminating) {                    \
        return tovra::CommonOps<M>::cleanup(terminating);                                              \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderEnumInstanceNames(                                   \
        CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref) { \
        return tovra::guarded([&] { return M::Ops::enumInstanceNames(ctx, rslt, ref); });              \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderEnumInstances(CMPIInstanceMI *, const CMPIContext *ctx, \
                                                               const CMPIResult *rslt,                 \
                                                               const CMPIObjectPath *ref,              \
                                                               const char **properties) {              \
        return tovra::guarded([&] { return M::Ops::enumInstances(ctx, rslt, ref, properties); });      \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderGetInstance(CMPIInstanceMI *, const CMPIContext *ctx,  \
                                                             const CMPIResult *rslt,                   \
                                                             const CMPIObjectPath *ref,                \
                                                             const char **properties) {                \
        return tovra::guarded([&] { return M::Ops::getInstance(ctx, rslt, ref, properties); });        \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderCreateInstance(CMPIInstanceMI *, const CMPIContext *, \
                                                                const CMPIResult *,                    \
                                                                const CMPIObjectPath *,                \
                                                                const CMPIInstance *) {                \
        return tovra::CommonOps<M>::unsupported();                                                     \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderModifyInstance(                                      \
        CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,             \
        const CMPIInstance *, const char **) {                                                         \
        return tovra::CommonOps<M>::unsupported();                                                     \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderDeleteInstance(CMPIInstanceMI *, const CMPIContext *, \
                                                                const CMPIResult *,                    \
                                                                const CMPIObjectPath *) {              \
        return tovra::CommonOps<M>::unsupported();                                                     \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderExecQuery(CMPIInstanceMI *, const CMPIContext *,     \
                                                           const CMPIResult *, const CMPIObjectPath *, \
                                                           const char *, const char *) {               \
        return tovra::CommonOps<M>::unsupported();                                                     \
    }                                                                                                  \
    }                                                                                                  \
    static CMPIInstanceMIFT Tovra##Module##InstanceMIFT = {                                            \
        CMPICurrentVersion,                                                                            \
        CMPICurrentVersion,                                                                            \
        "instanceTovra" #Module "Provider",                                                            \
        Tovra##Module##ProviderCleanup,                                                                \
        Tovra##Module##ProviderEnumInstanceNames,                                                      \
        Tovra##Module##ProviderEnumInstances,                                                          \
        Tovra##Module##ProviderGetInstance,                                                            \
        Tovra##Module##ProviderCreateInstance,                                                         \
        Tovra##Module##ProviderModifyInstance,                                                         \
        Tovra##Module##ProviderDeleteInstance,                                                         \
        Tovra##Module##ProviderExecQuery};                                                             \
    static CMPIInstanceMI Tovra##Module##InstanceMI = {nullptr, &Tovra##Module##InstanceMIFT};         \
    CMPI_EXTERN_C CMPIInstanceMI *Tovra##Module##Provider_Create_InstanceMI(                           \
        const CMPIBroker *broker, const CMPIContext *, CMPIStatus *) {                                 \
        tovra::ModuleState<M>::recordBroker(broker);                                                   \
        return &Tovra##Module##InstanceMI;                                                             \
    }

#define TOVRA_METHOD_PROVIDER(Module, M)                                                               \
    extern "C" {                                                                                       \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderMethodCleanup(CMPIMethodMI *, const CMPIContext *,   \
                                                               CMPIBoolean) {                          \
        return tovra::okStatus();                                                                      \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderInvokeMethod(                                        \
        CMPIMethodMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,     \
        const char *method, const CMPIArgs *in, CMPIArgs *out) {                                       \
        return tovra::guarded(                                                                         \
            [&] { return tovra::MethodOps<M>::invoke(ctx, rslt, ref, method, in, out); });             \
    }                                                                                                  \
    }                                                                                                  \
    static CMPIMethodMIFT Tovra##Module##MethodMIFT = {                                                \
        CMPICurrentVersion, CMPICurrentVersion, "methodTovra" #Module "Provider",                      \
        Tovra##Module##ProviderMethodCleanup, Tovra##Module##ProviderInvokeMethod};                    \
    static CMPIMethodMI Tovra##Module##MethodMI = {nullptr, &Tovra##Module##MethodMIFT};               \
    CMPI_EXTERN_C CMPIMethodMI *Tovra##Module##Provider_Create_MethodMI(const CMPIBroker *broker,      \
                                                                       const CMPIContext *, CMPIStatus *) { \
        tovra::ModuleState<M>::recordBroker(broker);                                                   \
        return &Tovra##Module##MethodMI;                                                               \
    }

// An indication provider: M::Monitor::instance() answers the filter calls
// (activate, deactivate, enable, disable, cleanup) and watches for itself.
#define TOVRA_INDICATION_PROVIDER(Module, M)                                                           \
    extern "C" {                                                                                       \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderIndicationCleanup(CMPIIndicationMI *, const CMPIContext *, \
                                                                   CMPIBoolean) {                      \
        return tovra::guarded([&] { return M::Monitor::instance().cleanup(); });                       \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderAuthorizeFilter(CMPIIndicationMI *, const CMPIContext *, \
                                                                 const CMPISelectExp *, const char *,  \
                                                                 const CMPIObjectPath *, const char *) { \
        return tovra::okStatus();                                                                      \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderMustPoll(CMPIIndicationMI *, const CMPIContext *,    \
                                                          const CMPISelectExp *, const char *,         \
                                                          const CMPIObjectPath *) {                    \
        return tovra::makeStatus(CMPI_RC_ERR_NOT_SUPPORTED); /* it polls the adapter itself */        \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderActivateFilter(                                      \
        CMPIIndicationMI *, const CMPIContext *ctx, const CMPISelectExp *filter, const char *,         \
        const CMPIObjectPath *classPath, CMPIBoolean) {                                                \
        return tovra::guarded([&] { return M::Monitor::instance().activate(ctx, filter, classPath); }); \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderDeActivateFilter(                                    \
        CMPIIndicationMI *, const CMPIContext *, const CMPISelectExp *filter, const char *,            \
        const CMPIObjectPath *, CMPIBoolean) {                                                         \
        return tovra::guarded([&] { return M::Monitor::instance().deactivate(filter); });              \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderEnableIndications(CMPIIndicationMI *,                \
                                                                   const CMPIContext *ctx) {           \
        return tovra::guarded([&] { return M::Monitor::instance().enable(ctx); });                     \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderDisableIndications(CMPIIndicationMI *,               \
                                                                    const CMPIContext *) {             \
        return tovra::guarded([&] { return M::Monitor::instance().disable(); });                       \
    }                                                                                                  \
    }                                                                                                  \
    static CMPIIndicationMIFT Tovra##Module##IndicationMIFT = {                                        \
        CMPICurrentVersion,                                                                            \
        CMPICurrentVersion,                                                                            \
        "indicationTovra" #Module "Provider",                                                          \
        Tovra##Module##ProviderIndicationCleanup,                                                      \
        Tovra##Module##ProviderAuthorizeFilter,                                                        \
        Tovra##Module##ProviderMustPoll,                                                               \
        Tovra##Module##ProviderActivateFilter,                                                         \
        Tovra##Module##ProviderDeActivateFilter,                                                       \
        Tovra##Module##ProviderEnableIndications,                                                      \
        Tovra##Module##ProviderDisableIndications};                                                    \
    static CMPIIndicationMI Tovra##Module##IndicationMI = {nullptr, &Tovra##Module##IndicationMIFT};   \
    CMPI_EXTERN_C CMPIIndicationMI *Tovra##Module##Provider_Create_IndicationMI(                       \
        const CMPIBroker *broker, const CMPIContext *, CMPIStatus *) {                                  \
        M::Monitor::instance().setBroker(broker);                                                      \
        return &Tovra##Module##IndicationMI;                                                           \
    }
