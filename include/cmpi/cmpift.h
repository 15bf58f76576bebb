/* CMPI 2.0 function tables: the broker's services, the encapsulated objects
 * and the provider (MI) tables. Slot order is the binary interface. */
#ifndef CMPIFT_H
#define CMPIFT_H

#include "cmpidt.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- broker up-calls (no ftVersion) --------------------------------- */
struct _CMPIBrokerFT {
    unsigned int brokerCapabilities;
    unsigned int brokerVersion;
    const char *brokerName;
    CMPIContext *(*prepareAttachThread)(const CMPIBroker *mb, const CMPIContext *ctx);
    CMPIStatus (*attachThread)(const CMPIBroker *mb, const CMPIContext *ctx);
    CMPIStatus (*detachThread)(const CMPIBroker *mb, const CMPIContext *ctx);
    CMPIStatus (*deliverIndication)(const CMPIBroker *mb, const CMPIContext *ctx, const char *ns,
                                    const CMPIInstance *ind);
    CMPIEnumeration *(*enumerateInstanceNames)(const CMPIBroker *mb, const CMPIContext *ctx,
                                               const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIInstance *(*getInstance)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                 const char **properties, CMPIStatus *rc);
    CMPIObjectPath *(*createInstance)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                      const CMPIInstance *inst, CMPIStatus *rc);
    CMPIStatus (*modifyInstance)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                 const CMPIInstance *inst, const char **properties);
    CMPIStatus (*deleteInstance)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op);
    CMPIEnumeration *(*execQuery)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                  const char *query, const char *lang, CMPIStatus *rc);
    CMPIEnumeration *(*enumerateInstances)(const CMPIBroker *mb, const CMPIContext *ctx,
                                           const CMPIObjectPath *op, const char **properties, CMPIStatus *rc);
    CMPIEnumeration *(*associators)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                    const char *assocClass, const char *resultClass, const char *role,
                                    const char *resultRole, const char **properties, CMPIStatus *rc);
    CMPIEnumeration *(*associatorNames)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                        const char *assocClass, const char *resultClass, const char *role,
                                        const char *resultRole, CMPIStatus *rc);
    CMPIEnumeration *(*references)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                   const char *resultClass, const char *role, const char **properties,
                                   CMPIStatus *rc);
    CMPIEnumeration *(*referenceNames)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                       const char *resultClass, const char *role, CMPIStatus *rc);
    CMPIData (*invokeMethod)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                             const char *method, const CMPIArgs *in, CMPIArgs *out, CMPIStatus *rc);
    CMPIStatus (*setProperty)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                              const char *name, const CMPIValue *value, CMPIType type);
    CMPIData (*getProperty)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                            const char *name, CMPIStatus *rc);
};

/* ---- broker factories and miscellaneous services -------------------- */
struct _CMPIBrokerEncFT {
    int ftVersion;
    CMPIInstance *(*newInstance)(const CMPIBroker *mb, const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIObjectPath *(*newObjectPath)(const CMPIBroker *mb, const char *ns, const char *cn, CMPIStatus *rc);
    CMPIArgs *(*newArgs)(const CMPIBroker *mb, CMPIStatus *rc);
    CMPIString *(*newString)(const CMPIBroker *mb, const char *data, CMPIStatus *rc);
    CMPIArray *(*newArray)(const CMPIBroker *mb, CMPICount max, CMPIType type, CMPIStatus *rc);
    CMPIDateTime *(*newDateTime)(const CMPIBroker *mb, CMPIStatus *rc);
    CMPIDateTime *(*newDateTimeFromBinary)(const CMPIBroker *mb, CMPIUint64 binTime, CMPIBoolean interval,
                                           CMPIStatus *rc);
    CMPIDateTime *(*newDateTimeFromChars)(const CMPIBroker *mb, const char *utcTime, CMPIStatus *rc);
    CMPISelectExp *(*newSelectExp)(const CMPIBroker *mb, const char *query, const char *lang,
                                   CMPIArray **projection, CMPIStatus *rc);
    CMPIBoolean (*classPathIsA)(const CMPIBroker *mb, const CMPIObjectPath *op, const char *type,
                                CMPIStatus *rc);
    CMPIString *(*toString)(const CMPIBroker *mb, const void *object, CMPIStatus *rc);
    CMPIBoolean (*isOfType)(const CMPIBroker *mb, const void *object, const char *type, CMPIStatus *rc);
    CMPIString *(*getType)(const CMPIBroker *mb, const void *object, CMPIStatus *rc);
    CMPIString *(*getMessage)(const CMPIBroker *mb, const char *msgId, const char *defMsg, CMPIStatus *rc,
                              CMPICount count, ...);
    CMPIStatus (*logMessage)(const CMPIBroker *mb, int severity, const char *id, const char *text,
                             const CMPIString *string);
    CMPIStatus (*trace)(const CMPIBroker *mb, int level, const char *component, const char *text,
                        const CMPIString *string);
#ifdef CMPI_VER_200
    CMPIError *(*newCMPIError)(const CMPIBroker *mb, const char *owner, const char *msgID, const char *msg,
                               const CMPIErrorSeverity sev, const CMPIErrorProbableCause pc,
                               const CMPIrc cimStatusCode, CMPIStatus *rc);
    CMPIStatus (*openMessageFile)(const CMPIBroker *mb, const char *msgFile, CMPIMsgFileHandle *msgFileHandle);
    CMPIStatus (*closeMessageFile)(const CMPIBroker *mb, const CMPIMsgFileHandle msgFileHandle);
    CMPIString *(*getMessage2)(const CMPIBroker *mb, const char *msgId, const CMPIMsgFileHandle msgFileHandle,
                               const char *defMsg, CMPIStatus *rc, CMPICount count, ...);
#endif
};

/* ---- operating-system encapsulation --------------------------------- */
struct _CMPIBrokerExtFT {
    int ftVersion;
    char *(*resolveFileName)(const char *filename);
    CMPI_THREAD_TYPE (*newThread)(CMPI_THREAD_RETURN(CMPI_THREAD_CDECL *start)(void *), void *parm,
                                  int detached);
    int (*joinThread)(CMPI_THREAD_TYPE thread, CMPI_THREAD_RETURN *retval);
    int (*exitThread)(CMPI_THREAD_RETURN return_code);
    int (*cancelThread)(CMPI_THREAD_TYPE thread);
    int (*threadSleep)(CMPIUint32 msec);
    int (*threadOnce)(int *once, void (*init)(void));
    int (*createThreadKey)(CMPI_THREAD_KEY_TYPE *key, void (*cleanup)(void *));
    int (*destroyThreadKey)(CMPI_THREAD_KEY_TYPE key);
    void *(*getThreadSpecific)(CMPI_THREAD_KEY_TYPE key);
    int (*setThreadSpecific)(CMPI_THREAD_KEY_TYPE key, void *value);
    CMPI_MUTEX_TYPE (*newMutex)(int opt);
    void (*destroyMutex)(CMPI_MUTEX_TYPE mutex);
    void (*lockMutex)(CMPI_MUTEX_TYPE mutex);
    void (*unlockMutex)(CMPI_MUTEX_TYPE mutex);
    CMPI_COND_TYPE (*newCondition)(int opt);
    void (*destroyCondition)(CMPI_COND_TYPE cond);
    int (*condWait)(CMPI_COND_TYPE cond, CMPI_MUTEX_TYPE mutex);
    int (*timedCondWait)(CMPI_COND_TYPE cond, CMPI_MUTEX_TYPE mutex, struct timespec *wait);
    int (*signalCondition)(CMPI_COND_TYPE cond);
};

#ifdef CMPI_VER_200
/* ---- memory enhancements (optional; NULL in common brokers) --------- */
struct _CMPIBrokerMemFT {
    const int ftVersion;
    CMPIGcStat *(*mark)(const CMPIBroker *mb, CMPIStatus *rc);
    CMPIStatus (*release)(const CMPIBroker *mb, const CMPIGcStat *gc);
    void *(*cmpiMalloc)(const CMPIBroker *mb, size_t size);
    void *(*cmpiCalloc)(const CMPIBroker *mb, size_t nElems, size_t sizeElem);
    void *(*cmpiRealloc)(const CMPIBroker *mb, void *ptr, size_t size);
    char *(*cmpiStrDup)(const CMPIBroker *mb, const char *str);
    void (*cmpiFree)(const CMPIBroker *mb, void *ptr);
    void (*freeInstance)(const CMPIBroker *mb, CMPIInstance *inst);
    void (*freeObjectPath)(const CMPIBroker *mb, CMPIObjectPath *obj);
    void (*freeArgs)(const CMPIBroker *mb, CMPIArgs *args);
    void (*freeString)(const CMPIBroker *mb, CMPIString *str);
    void (*freeArray)(const CMPIBroker *mb, CMPIArray *array);
    void (*freeDateTime)(const CMPIBroker *mb, CMPIDateTime *date);
    void (*freeSelectExp)(const CMPIBroker *mb, CMPISelectExp *se);
};
#endif

/* ---- encapsulated objects ------------------------------------------- */
typedef struct _CMPIContextFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIContext *ctx);
    CMPIContext *(*clone)(const CMPIContext *ctx, CMPIStatus *rc);
    CMPIData (*getEntry)(const CMPIContext *ctx, const char *name, CMPIStatus *rc);
    CMPIData (*getEntryAt)(const CMPIContext *ctx, CMPICount index, CMPIString **name, CMPIStatus *rc);
    CMPICount (*getEntryCount)(const CMPIContext *ctx, CMPIStatus *rc);
    CMPIStatus (*addEntry)(const CMPIContext *ctx, const char *name, const CMPIValue *value,
                           const CMPIType type);
} CMPIContextFT;

struct _CMPIContext {
    void *hdl;
    CMPIContextFT *ft;
};

typedef struct _CMPIResultFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIResult *rslt);
    CMPIResult *(*clone)(const CMPIResult *rslt, CMPIStatus *rc);
    CMPIStatus (*returnData)(const CMPIResult *rslt, const CMPIValue *value, const CMPIType type);
    CMPIStatus (*returnInstance)(const CMPIResult *rslt, const CMPIInstance *inst);
    CMPIStatus (*returnObjectPath)(const CMPIResult *rslt, const CMPIObjectPath *ref);
    CMPIStatus (*returnDone)(const CMPIResult *rslt);
#ifdef CMPI_VER_200
    CMPIStatus (*returnError)(const CMPIResult *rslt, const CMPIError *er);
#endif
} CMPIResultFT;

struct _CMPIResult {
    void *hdl;
    CMPIResultFT *ft;
};

typedef struct _CMPIStringFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIString *st);
    CMPIString *(*clone)(const CMPIString *st, CMPIStatus *rc);
    const char *(*getCharPtr)(const CMPIString *st, CMPIStatus *rc);
} CMPIStringFT;

struct _CMPIString {
    void *hdl;
    CMPIStringFT *ft;
};

typedef struct _CMPIArrayFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIArray *ar);
    CMPIArray *(*clone)(const CMPIArray *ar, CMPIStatus *rc);
    CMPICount (*getSize)(const CMPIArray *ar, CMPIStatus *rc);
    CMPIType (*getSimpleType)(const CMPIArray *ar, CMPIStatus *rc);
    CMPIData (*getElementAt)(const CMPIArray *ar, CMPICount index, CMPIStatus *rc);
    CMPIStatus (*setElementAt)(CMPIArray *ar, CMPICount index, const CMPIValue *value, CMPIType type);
} CMPIArrayFT;

struct _CMPIArray {
    void *hdl;
    CMPIArrayFT *ft;
};

typedef struct _CMPIEnumerationFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIEnumeration *en);
    CMPIEnumeration *(*clone)(const CMPIEnumeration *en, CMPIStatus *rc);
    CMPIData (*getNext)(const CMPIEnumeration *en, CMPIStatus *rc);
    CMPIBoolean (*hasNext)(const CMPIEnumeration *en, CMPIStatus *rc);
    CMPIArray *(*toArray)(const CMPIEnumeration *en, CMPIStatus *rc);
} CMPIEnumerationFT;

struct _CMPIEnumeration {
    void *hdl;
    CMPIEnumerationFT *ft;
};

typedef struct _CMPIInstanceFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIInstance *inst);
    CMPIInstance *(*clone)(const CMPIInstance *inst, CMPIStatus *rc);
    CMPIData (*getProperty)(const CMPIInstance *inst, const char *name, CMPIStatus *rc);
    CMPIData (*getPropertyAt)(const CMPIInstance *inst, CMPICount index, CMPIString **name, CMPIStatus *rc);
    CMPICount (*getPropertyCount)(const CMPIInstance *inst, CMPIStatus *rc);
    CMPIStatus (*setProperty)(const CMPIInstance *inst, const char *name, const CMPIValue *value, CMPIType type);
    CMPIObjectPath *(*getObjectPath)(const CMPIInstance *inst, CMPIStatus *rc);
    CMPIStatus (*setPropertyFilter)(CMPIInstance *inst, const char **propertyList, const char **keys);
    CMPIStatus (*setObjectPath)(CMPIInstance *inst, const CMPIObjectPath *op);
#ifdef CMPI_VER_200
    CMPIStatus (*setPropertyWithOrigin)(const CMPIInstance *inst, const char *name, const CMPIValue *value,
                                        CMPIType type, const char *origin);
#endif
} CMPIInstanceFT;

struct _CMPIInstance {
    void *hdl;
    CMPIInstanceFT *ft;
};

typedef struct _CMPIObjectPathFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIObjectPath *op);
    CMPIObjectPath *(*clone)(const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIStatus (*setNameSpace)(CMPIObjectPath *op, const char *ns);
    CMPIString *(*getNameSpace)(const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIStatus (*setHostname)(CMPIObjectPath *op, const char *hn);
    CMPIString *(*getHostname)(const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIStatus (*setClassName)(CMPIObjectPath *op, const char *cn);
    CMPIString *(*getClassName)(const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIStatus (*addKey)(CMPIObjectPath *op, const char *name, const CMPIValue *value, const CMPIType type);
    CMPIData (*getKey)(const CMPIObjectPath *op, const char *name, CMPIStatus *rc);
    CMPIData (*getKeyAt)(const CMPIObjectPath *op, CMPICount index, CMPIString **name, CMPIStatus *rc);
    CMPICount (*getKeyCount)(const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIStatus (*setNameSpaceFromObjectPath)(CMPIObjectPath *op, const CMPIObjectPath *src);
    CMPIStatus (*setHostAndNameSpaceFromObjectPath)(CMPIObjectPath *op, const CMPIObjectPath *src);
    CMPIData (*getClassQualifier)(const CMPIObjectPath *op, const char *qName, CMPIStatus *rc);
    CMPIData (*getPropertyQualifier)(const CMPIObjectPath *op, const char *pName, const char *qName,
                                     CMPIStatus *rc);
    CMPIData (*getMethodQualifier)(const CMPIObjectPath *op, const char *methodName, const char *qName,
                                   CMPIStatus *rc);
    CMPIData (*getParameterQualifier)(const CMPIObjectPath *op, const char *mName, const char *pName,
                                      const char *qName, CMPIStatus *rc);
    CMPIString *(*toString)(const CMPIObjectPath *op, CMPIStatus *rc);
} CMPIObjectPathFT;

struct _CMPIObjectPath {
    void *hdl;
    CMPIObjectPathFT *ft;
};

typedef struct _CMPIArgsFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIArgs *as);
    CMPIArgs *(*clone)(const CMPIArgs *as, CMPIStatus *rc);
    CMPIStatus (*addArg)(const CMPIArgs *as, const char *name, const CMPIValue *value, const CMPIType type);
    CMPIData (*getArg)(const CMPIArgs *as, const char *name, CMPIStatus *rc);
    CMPIData (*getArgAt)(const CMPIArgs *as, CMPICount index, CMPIString **name, CMPIStatus *rc);
    CMPICount (*getArgCount)(const CMPIArgs *as, CMPIStatus *rc);
} CMPIArgsFT;

struct _CMPIArgs {
    void *hdl;
    CMPIArgsFT *ft;
};

typedef struct _CMPIDateTimeFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIDateTime *dt);
    CMPIDateTime *(*clone)(const CMPIDateTime *dt, CMPIStatus *rc);
    CMPIUint64 (*getBinaryFormat)(const CMPIDateTime *dt, CMPIStatus *rc);
    CMPIString *(*getStringFormat)(const CMPIDateTime *dt, CMPIStatus *rc);
    CMPIBoolean (*isInterval)(const CMPIDateTime *dt, CMPIStatus *rc);
} CMPIDateTimeFT;

struct _CMPIDateTime {
    void *hdl;
    CMPIDateTimeFT *ft;
};

typedef struct _CMPISelectExpFT {
    int ftVersion;
    CMPIStatus (*release)(CMPISelectExp *se);
    CMPISelectExp *(*clone)(const CMPISelectExp *se, CMPIStatus *rc);
    CMPIBoolean (*evaluate)(const CMPISelectExp *se, const CMPIInstance *inst, CMPIStatus *rc);
    CMPIString *(*getString)(const CMPISelectExp *se, CMPIStatus *rc);
    CMPISelectCond *(*getDOC)(const CMPISelectExp *se, CMPIStatus *rc);
    CMPISelectCond *(*getCOD)(const CMPISelectExp *se, CMPIStatus *rc);
    CMPIBoolean (*evaluateUsingAccessor)(const CMPISelectExp *se, CMPIAccessor *accessor, void *parm,
                                         CMPIStatus *rc);
} CMPISelectExpFT;

struct _CMPISelectExp {
    void *hdl;
    CMPISelectExpFT *ft;
};

typedef struct _CMPISelectCondFT {
    const int ftVersion;
    CMPIStatus (*release)(CMPISelectCond *sc);
    CMPISelectCond *(*clone)(const CMPISelectCond *sc, CMPIStatus *rc);
    CMPICount (*getCountAndType)(const CMPISelectCond *sc, int *type, CMPIStatus *rc);
    CMPISubCond *(*getSubCondAt)(const CMPISelectCond *sc, CMPICount index, CMPIStatus *rc);
} CMPISelectCondFT;

struct _CMPISelectCond {
    void *hdl;
    CMPISelectCondFT *ft;
};

typedef struct _CMPISubCondFT {
    int ftVersion;
    CMPIStatus (*release)(CMPISubCond *sc);
    CMPISubCond *(*clone)(const CMPISubCond *sc, CMPIStatus *rc);
    CMPICount (*getCount)(const CMPISubCond *sc, CMPIStatus *rc);
    CMPIPredicate *(*getPredicateAt)(const CMPISubCond *sc, CMPICount index, CMPIStatus *rc);
    CMPIPredicate *(*getPredicate)(const CMPISubCond *sc, const char *name, CMPIStatus *rc);
} CMPISubCondFT;

struct _CMPISubCond {
    void *hdl;
    CMPISubCondFT *ft;
};

typedef struct _CMPIPredicateFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIPredicate *pr);
    CMPIPredicate *(*clone)(const CMPIPredicate *pr, CMPIStatus *rc);
    CMPIStatus (*getData)(const CMPIPredicate *pr, CMPIType *type, CMPIPredOp *op, CMPIString **lhs,
                          CMPIString **rhs);
    CMPIBoolean (*evaluateUsingAccessor)(const CMPIPredicate *pr, CMPIAccessor *accessorFnc, void *parm,
                                         CMPIStatus *rc);
} CMPIPredicateFT;

struct _CMPIPredicate {
    void *hdl;
    CMPIPredicateFT *ft;
};

#ifdef CMPI_VER_200
typedef struct _CMPIErrorFT {
    CMPISint32 ftVersion;
    CMPIStatus (*release)(CMPIError *er);
    CMPIError *(*clone)(const CMPIError *er, CMPIStatus *rc);
    CMPIErrorType (*getErrorType)(const CMPIError *er, CMPIStatus *rc);
    CMPIString *(*getOtherErrorType)(const CMPIError *er, CMPIStatus *rc);
    CMPIString *(*getOwningEntity)(const CMPIError *er, CMPIStatus *rc);
    CMPIString *(*getMessageID)(const CMPIError *er, CMPIStatus *rc);
    CMPIString *(*getMessage)(const CMPIError *er, CMPIStatus *rc);
    CMPIErrorSeverity (*getPerceivedSeverity)(const CMPIError *er, CMPIStatus *rc);
    CMPIErrorProbableCause (*getProbableCause)(const CMPIError *er, CMPIStatus *rc);
    CMPIString *(*getProbableCauseDescription)(const CMPIError *er, CMPIStatus *rc);
    CMPIArray *(*getRecommendedActions)(const CMPIError *er, CMPIStatus *rc);
    CMPIString *(*getErrorSource)(const CMPIError *er, CMPIStatus *rc);
    CMPIErrorSrcFormat (*getErrorSourceFormat)(const CMPIError *er, CMPIStatus *rc);
    CMPIString *(*getOtherErrorSourceFormat)(const CMPIError *er, CMPIStatus *rc);
    CMPIrc (*getCIMStatusCode)(const CMPIError *er, CMPIStatus *rc);
    CMPIString *(*getCIMStatusCodeDescription)(const CMPIError *er, CMPIStatus *rc);
    CMPIArray *(*getMessageArguments)(const CMPIError *er, CMPIStatus *rc);
    CMPIStatus (*setErrorType)(CMPIError *er, const CMPIErrorType et);
    CMPIStatus (*setOtherErrorType)(CMPIError *er, const char *oet);
    CMPIStatus (*setProbableCauseDescription)(CMPIError *er, const char *pcd);
    CMPIStatus (*setRecommendedActions)(CMPIError *er, const CMPIArray *ra);
    CMPIStatus (*setErrorSource)(CMPIError *er, const char *es);
    CMPIStatus (*setErrorSourceFormat)(CMPIError *er, const CMPIErrorSrcFormat esf);
    CMPIStatus (*setOtherErrorSourceFormat)(CMPIError *er, const char *oesf);
    CMPIStatus (*setCIMStatusCodeDescription)(CMPIError *er, const char *scd);
    CMPIStatus (*setMessageArguments)(CMPIError *er, CMPIArray *values);
} CMPIErrorFT;

struct _CMPIError {
    void *hdl;
    CMPIErrorFT *ft;
};
#endif

/* ---- provider (MI) function tables ---------------------------------- */
struct _CMPIInstanceMIFT {
    int ftVersion;
    int miVersion;
    const char *miName;
    CMPIStatus (*cleanup)(CMPIInstanceMI *mi, const CMPIContext *ctx, CMPIBoolean terminating);
    CMPIStatus (*enumerateInstanceNames)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                         const CMPIObjectPath *op);
    CMPIStatus (*enumerateInstances)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                     const CMPIObjectPath *op, const char **properties);
    CMPIStatus (*getInstance)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                              const CMPIObjectPath *op, const char **properties);
    CMPIStatus (*createInstance)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                 const CMPIObjectPath *op, const CMPIInstance *inst);
    CMPIStatus (*modifyInstance)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                 const CMPIObjectPath *op, const CMPIInstance *inst, const char **properties);
    CMPIStatus (*deleteInstance)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                 const CMPIObjectPath *op);
    CMPIStatus (*execQuery)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                            const CMPIObjectPath *op, const char *query, const char *lang);
};

struct _CMPIAssociationMIFT {
    int ftVersion;
    int miVersion;
    const char *miName;
    CMPIStatus (*cleanup)(CMPIAssociationMI *mi, const CMPIContext *ctx, CMPIBoolean terminating);
    CMPIStatus (*associators)(CMPIAssociationMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                              const CMPIObjectPath *op, const char *assocClass, const char *resultClass,
                              const char *role, const char *resultRole, const char **properties);
    CMPIStatus (*associatorNames)(CMPIAssociationMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                  const CMPIObjectPath *op, const char *assocClass, const char *resultClass,
                                  const char *role, const char *resultRole);
    CMPIStatus (*references)(CMPIAssociationMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                             const CMPIObjectPath *op, const char *resultClass, const char *role,
                             const char **properties);
    CMPIStatus (*referenceNames)(CMPIAssociationMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                 const CMPIObjectPath *op, const char *resultClass, const char *role);
};

struct _CMPIMethodMIFT {
    int ftVersion;
    int miVersion;
    const char *miName;
    CMPIStatus (*cleanup)(CMPIMethodMI *mi, const CMPIContext *ctx, CMPIBoolean terminating);
    CMPIStatus (*invokeMethod)(CMPIMethodMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                               const CMPIObjectPath *op, const char *method, const CMPIArgs *in, CMPIArgs *out);
};

struct _CMPIPropertyMIFT {
    int ftVersion;
    int miVersion;
    const char *miName;
    CMPIStatus (*cleanup)(CMPIPropertyMI *mi, const CMPIContext *ctx, CMPIBoolean terminating);
    CMPIStatus (*setProperty)(CMPIPropertyMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                              const CMPIObjectPath *op, const char *name, const CMPIData data);
    CMPIStatus (*getProperty)(CMPIPropertyMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                              const CMPIObjectPath *op, const char *name);
#ifdef CMPI_VER_200
    CMPIStatus (*setPropertyWithOrigin)(CMPIPropertyMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                        CMPIObjectPath *op, const char *name, const CMPIData data,
                                        const char *origin);
#endif
};

struct _CMPIIndicationMIFT {
    int ftVersion;
    int miVersion;
    const char *miName;
    CMPIStatus (*cleanup)(CMPIIndicationMI *mi, const CMPIContext *ctx, CMPIBoolean terminating);
    CMPIStatus (*authorizeFilter)(CMPIIndicationMI *mi, const CMPIContext *ctx, const CMPISelectExp *filter,
                                  const char *className, const CMPIObjectPath *op, const char *owner);
    CMPIStatus (*mustPoll)(CMPIIndicationMI *mi, const CMPIContext *ctx, const CMPISelectExp *filter,
                           const char *className, const CMPIObjectPath *classPath);
    CMPIStatus (*activateFilter)(CMPIIndicationMI *mi, const CMPIContext *ctx, const CMPISelectExp *filter,
                                 const char *className, const CMPIObjectPath *classPath,
                                 CMPIBoolean firstActivation);
    CMPIStatus (*deActivateFilter)(CMPIIndicationMI *mi, const CMPIContext *ctx, const CMPISelectExp *filter,
                                   const char *className, const CMPIObjectPath *classPath,
                                   CMPIBoolean lastActivation);
    CMPIStatus (*enableIndications)(CMPIIndicationMI *mi, const CMPIContext *ctx);
    CMPIStatus (*disableIndications)(CMPIIndicationMI *mi, const CMPIContext *ctx);
};

#ifdef __cplusplus
}
#endif

#endif /* CMPIFT_H */
