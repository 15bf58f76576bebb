// Stamps an association module from its descriptor M::kAssoc: the instance
// table (enumerate, get) and the association table, their factories, and
// every named operation Tovra<Module>Provider<Operation> with C linkage.
#pragma once

#include "AssociationEngine.h"
#include "ModuleStamp.h"

#define TOVRA_ASSOCIATION_PROVIDER(Module, M)                                                          \
    TOVRA_INSTANCE_PROVIDER(Module, M)                                                                 \
    extern "C" {                                                                                       \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderAssociationCleanup(CMPIAssociationMI *,              \
                                                                    const CMPIContext *, CMPIBoolean) { \
        return tovra::okStatus();                                                                      \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderAssociators(                                         \
        CMPIAssociationMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *cop, \
        const char *, const char *resultClass, const char *, const char *, const char **properties) {  \
        return tovra::guarded([&] {                                                                    \
            return tovra::AssociationOps<M>::associators<false>(ctx, rslt, cop, resultClass, properties); \
        });                                                                                            \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderAssociatorNames(                                     \
        CMPIAssociationMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *cop, \
        const char *, const char *resultClass, const char *, const char *) {                           \
        return tovra::guarded([&] {                                                                    \
            return tovra::AssociationOps<M>::associators<true>(ctx, rslt, cop, resultClass, nullptr);  \
        });                                                                                            \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderReferences(                                          \
        CMPIAssociationMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *cop, \
        const char *assocClass, const char *role, const char **properties) {                           \
        return tovra::guarded([&] {                                                                    \
            return tovra::AssociationOps<M>::references<false>(ctx, rslt, cop, assocClass, role, properties); \
        });                                                                                            \
    }                                                                                                  \
    CMPI_EXPORT CMPIStatus Tovra##Module##ProviderReferenceNames(                                      \
        CMPIAssociationMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *cop, \
        const char *assocClass, const char *role) {                                                    \
        return tovra::guarded([&] {                                                                    \
            return tovra::AssociationOps<M>::references<true>(ctx, rslt, cop, assocClass, role, nullptr); \
        });                                                                                            \
    }                                                                                                  \
    }                                                                                                  \
    /* The module's Cleanup, typed for the association table. */                                  \
    static CMPIStatus Tovra##Module##AssociationTableCleanup(CMPIAssociationMI *, const CMPIContext *ctx, \
                                                             CMPIBoolean terminating) {                \
        return Tovra##Module##ProviderCleanup(nullptr, ctx, terminating);                              \
    }                                                                                                  \
    static CMPIAssociationMIFT Tovra##Module##AssociationMIFT = {                                      \
        CMPICurrentVersion,                                                                            \
        CMPICurrentVersion,                                                                            \
        "associationTovra" #Module "Provider",                                                         \
        M::kAssoc.associationCleanup ? Tovra##Module##ProviderAssociationCleanup                       \
                                     : Tovra##Module##AssociationTableCleanup,                         \
        Tovra##Module##ProviderAssociators,                                                            \
        Tovra##Module##ProviderAssociatorNames,                                                        \
        Tovra##Module##ProviderReferences,                                                             \
        Tovra##Module##ProviderReferenceNames};                                                        \
    static CMPIAssociationMI Tovra##Module##AssociationMI = {nullptr, &Tovra##Module##AssociationMIFT}; \
    CMPI_EXTERN_C CMPIAssociationMI *Tovra##Module##Provider_Create_AssociationMI(                     \
        const CMPIBroker *broker, const CMPIContext *, CMPIStatus *) {                                 \
        tovra::ModuleState<M>::recordBroker(broker);                                                   \
        return &Tovra##Module##AssociationMI;                                                          \
    }
