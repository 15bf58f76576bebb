// Function tables installed into released objects: every slot counts a use
// after release and answers CMPI_RC_ERR_INVALID_HANDLE (release counts a
// double release).
#include "ObjectRuntime.h"

#include <type_traits>

namespace cimhost::rt {

char poisonBlock[] = "<released CMPI object>";

namespace {

template <class T> void flagStatus(T) {}
void flagStatus(CMPIStatus *rc) { setRc(rc, CMPI_RC_ERR_INVALID_HANDLE); }

template <class R> R poisonResult() {
    if constexpr (std::is_same_v<R, CMPIStatus>) {
        return status(CMPI_RC_ERR_INVALID_HANDLE);
    } else if constexpr (std::is_same_v<R, CMPIData>) {
        CMPIData d{};
        d.type = CMPI_null;
        d.state = CMPI_nullValue | CMPI_badValue;
        return d;
    } else {
        return R{};
    }
}

template <class Fn> struct Poison;
template <class R, class... A> struct Poison<R (*)(A...)> {
    static R use(A... args) {
        Runtime::noteUseAfterRelease();
        (flagStatus(args), ...);
        return poisonResult<R>();
    }
    static R release(A...) {
        Runtime::noteDoubleRelease();
        return poisonResult<R>();
    }
};

#define USE(FT, slot) Poison<decltype(FT::slot)>::use
#define REL(FT) Poison<decltype(FT::release)>::release, USE(FT, clone)

CMPIStringFT stringFT = {0, REL(CMPIStringFT), USE(CMPIStringFT, getCharPtr)};
CMPIArrayFT arrayFT = {0,
                       REL(CMPIArrayFT),
                       USE(CMPIArrayFT, getSize),
                       USE(CMPIArrayFT, getSimpleType),
                       USE(CMPIArrayFT, getElementAt),
                       USE(CMPIArrayFT, setElementAt)};
CMPIInstanceFT instanceFT = {0,
                             REL(CMPIInstanceFT),
                             USE(CMPIInstanceFT, getProperty),
                             USE(CMPIInstanceFT, getPropertyAt),
                             USE(CMPIInstanceFT, getPropertyCount),
                             USE(CMPIInstanceFT, setProperty),
                             USE(CMPIInstanceFT, getObjectPath),
                             USE(CMPIInstanceFT, setPropertyFilter),
                             USE(CMPIInstanceFT, setObjectPath),
                             USE(CMPIInstanceFT, setPropertyWithOrigin)};
CMPIObjectPathFT pathFT = {0,
                           REL(CMPIObjectPathFT),
                           USE(CMPIObjectPathFT, setNameSpace),
                           USE(CMPIObjectPathFT, getNameSpace),
                           USE(CMPIObjectPathFT, setHostname),
                           USE(CMPIObjectPathFT, getHostname),
                           USE(CMPIObjectPathFT, setClassName),
                           USE(CMPIObjectPathFT, getClassName),
                           USE(CMPIObjectPathFT, addKey),
                           USE(CMPIObjectPathFT, getKey),
                           USE(CMPIObjectPathFT, getKeyAt),
                           USE(CMPIObjectPathFT, getKeyCount),
                           USE(CMPIObjectPathFT, setNameSpaceFromObjectPath),
                           USE(CMPIObjectPathFT, setHostAndNameSpaceFromObjectPath),
                           USE(CMPIObjectPathFT, getClassQualifier),
                           USE(CMPIObjectPathFT, getPropertyQualifier),
                           USE(CMPIObjectPathFT, getMethodQualifier),
                           USE(CMPIObjectPathFT, getParameterQualifier),
                           USE(CMPIObjectPathFT, toString)};
CMPIArgsFT argsFT = {0,
                     REL(CMPIArgsFT),
                     USE(CMPIArgsFT, addArg),
                     USE(CMPIArgsFT, getArg),
                     USE(CMPIArgsFT, getArgAt),
                     USE(CMPIArgsFT, getArgCount)};
CMPIEnumerationFT enumerationFT = {0, REL(CMPIEnumerationFT), USE(CMPIEnumerationFT, getNext),
                                   USE(CMPIEnumerationFT, hasNext), USE(CMPIEnumerationFT, toArray)};
CMPIDateTimeFT dateTimeFT = {0, REL(CMPIDateTimeFT), USE(CMPIDateTimeFT, getBinaryFormat),
                             USE(CMPIDateTimeFT, getStringFormat), USE(CMPIDateTimeFT, isInterval)};
CMPIContextFT contextFT = {0,
                           REL(CMPIContextFT),
                           USE(CMPIContextFT, getEntry),
                           USE(CMPIContextFT, getEntryAt),
                           USE(CMPIContextFT, getEntryCount),
                           USE(CMPIContextFT, addEntry)};
CMPIResultFT resultFT = {0,
                         REL(CMPIResultFT),
                         USE(CMPIResultFT, returnData),
                         USE(CMPIResultFT, returnInstance),
                         USE(CMPIResultFT, returnObjectPath),
                         USE(CMPIResultFT, returnDone),
                         USE(CMPIResultFT, returnError)};

CMPISelectExpFT selectExpFT = {0,
                               REL(CMPISelectExpFT),
                               USE(CMPISelectExpFT, evaluate),
                               USE(CMPISelectExpFT, getString),
                               USE(CMPISelectExpFT, getDOC),
                               USE(CMPISelectExpFT, getCOD),
                               USE(CMPISelectExpFT, evaluateUsingAccessor)};

#undef USE
#undef REL

}  // namespace

const void *poisonTable(Kind kind) {
    switch (kind) {
        case Kind::String: return &stringFT;
        case Kind::Array: return &arrayFT;
        case Kind::Instance: return &instanceFT;
        case Kind::ObjectPath: return &pathFT;
        case Kind::Args: return &argsFT;
        case Kind::Enumeration: return &enumerationFT;
        case Kind::DateTime: return &dateTimeFT;
        case Kind::Context: return &contextFT;
        case Kind::Result: return &resultFT;
        case Kind::SelectExp: return &selectExpFT;
    }
    return &stringFT;
}

}  // namespace cimhost::rt
