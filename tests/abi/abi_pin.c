/* Pins the binary layout of our CMPI headers: compiled as C, so the checks
 * see exactly what a C CIMOM sees. Any drift fails the build. */
#include <cmpimacs.h>
#include <stddef.h>

#define PIN_SIZE(T, n) _Static_assert(sizeof(T) == (n), "sizeof " #T)
#define PIN_OFF(T, m, n) _Static_assert(offsetof(T, m) == (n), "offsetof " #T "." #m)
#define PIN_SLOT(T, m, slot) PIN_OFF(T, m, 8 * (slot))

PIN_SIZE(CMPIBoolean, 1);
PIN_SIZE(CMPIChar16, 2);
PIN_SIZE(CMPICount, 4);
PIN_SIZE(CMPIType, 2);
PIN_SIZE(CMPIValueState, 2);
PIN_SIZE(CMPIrc, 4);
PIN_SIZE(CMPIPredOp, 4);
PIN_SIZE(CMPIErrorProbableCause, 4);
PIN_SIZE(CMPIValuePtr, 16);
PIN_SIZE(CMPIValue, 16);
_Static_assert(_Alignof(CMPIValue) == 8, "CMPIValue alignment");
PIN_SIZE(CMPIData, 24);
PIN_OFF(CMPIData, type, 0);
PIN_OFF(CMPIData, state, 2);
PIN_OFF(CMPIData, value, 8);
PIN_SIZE(CMPIStatus, 16);
PIN_OFF(CMPIStatus, msg, 8);
PIN_SIZE(CMPIBroker, 40);
PIN_OFF(CMPIBroker, bft, 8);
PIN_OFF(CMPIBroker, eft, 16);
PIN_OFF(CMPIBroker, xft, 24);
PIN_OFF(CMPIBroker, mft, 32);
PIN_SIZE(CMPIInstance, 16);
PIN_OFF(CMPIInstance, ft, 8);
PIN_SIZE(CMPIString, 16);
PIN_SIZE(CMPIInstanceMI, 16);
PIN_OFF(CMPIMethodMI, ft, 8);

/* Broker tables. */
PIN_SIZE(CMPIBrokerFT, 160);
PIN_OFF(CMPIBrokerFT, brokerVersion, 4);
PIN_OFF(CMPIBrokerFT, brokerName, 8);
PIN_OFF(CMPIBrokerFT, prepareAttachThread, 16);
PIN_OFF(CMPIBrokerFT, deliverIndication, 40);
PIN_OFF(CMPIBrokerFT, enumerateInstanceNames, 48);
PIN_OFF(CMPIBrokerFT, getInstance, 56);
PIN_OFF(CMPIBrokerFT, enumerateInstances, 96);
PIN_OFF(CMPIBrokerFT, associators, 104);
PIN_OFF(CMPIBrokerFT, referenceNames, 128);
PIN_OFF(CMPIBrokerFT, invokeMethod, 136);
PIN_OFF(CMPIBrokerFT, getProperty, 152);
PIN_SIZE(CMPIBrokerEncFT, 168);
PIN_SLOT(CMPIBrokerEncFT, newInstance, 1);
PIN_SLOT(CMPIBrokerEncFT, newArray, 5);
PIN_SLOT(CMPIBrokerEncFT, classPathIsA, 10);
PIN_SLOT(CMPIBrokerEncFT, getMessage, 14);
PIN_SLOT(CMPIBrokerEncFT, trace, 16);
PIN_SLOT(CMPIBrokerEncFT, newCMPIError, 17);
PIN_SLOT(CMPIBrokerEncFT, getMessage2, 20);
PIN_SIZE(CMPIBrokerExtFT, 168);
PIN_SLOT(CMPIBrokerExtFT, threadSleep, 6);
PIN_SLOT(CMPIBrokerExtFT, newMutex, 12);
PIN_SLOT(CMPIBrokerExtFT, signalCondition, 20);
PIN_SIZE(CMPIBrokerMemFT, 120);
PIN_SLOT(CMPIBrokerMemFT, cmpiFree, 7);
PIN_SLOT(CMPIBrokerMemFT, freeSelectExp, 14);

/* Encapsulated object tables. */
PIN_SIZE(CMPIContextFT, 56);
PIN_SLOT(CMPIContextFT, release, 1);
PIN_SLOT(CMPIContextFT, clone, 2);
PIN_SLOT(CMPIContextFT, getEntry, 3);
PIN_SLOT(CMPIContextFT, addEntry, 6);
PIN_SIZE(CMPIResultFT, 64);
PIN_SLOT(CMPIResultFT, returnData, 3);
PIN_SLOT(CMPIResultFT, returnDone, 6);
PIN_SLOT(CMPIResultFT, returnError, 7);
PIN_SIZE(CMPIStringFT, 32);
PIN_SLOT(CMPIStringFT, getCharPtr, 3);
PIN_SIZE(CMPIArrayFT, 56);
PIN_SLOT(CMPIArrayFT, getSize, 3);
PIN_SLOT(CMPIArrayFT, setElementAt, 6);
PIN_SIZE(CMPIEnumerationFT, 48);
PIN_SLOT(CMPIEnumerationFT, getNext, 3);
PIN_SLOT(CMPIEnumerationFT, toArray, 5);
PIN_SIZE(CMPIInstanceFT, 88);
PIN_SLOT(CMPIInstanceFT, getProperty, 3);
PIN_SLOT(CMPIInstanceFT, setProperty, 6);
PIN_SLOT(CMPIInstanceFT, getObjectPath, 7);
PIN_SLOT(CMPIInstanceFT, setPropertyFilter, 8);
PIN_SLOT(CMPIInstanceFT, setObjectPath, 9);
PIN_SLOT(CMPIInstanceFT, setPropertyWithOrigin, 10);
PIN_SIZE(CMPIObjectPathFT, 160);
PIN_SLOT(CMPIObjectPathFT, setNameSpace, 3);
PIN_SLOT(CMPIObjectPathFT, getClassName, 8);
PIN_SLOT(CMPIObjectPathFT, addKey, 9);
PIN_SLOT(CMPIObjectPathFT, getKeyCount, 12);
PIN_SLOT(CMPIObjectPathFT, setNameSpaceFromObjectPath, 13);
PIN_SLOT(CMPIObjectPathFT, getParameterQualifier, 18);
PIN_SLOT(CMPIObjectPathFT, toString, 19);
PIN_SIZE(CMPIArgsFT, 56);
PIN_SLOT(CMPIArgsFT, addArg, 3);
PIN_SLOT(CMPIArgsFT, getArgCount, 6);
PIN_SIZE(CMPIDateTimeFT, 48);
PIN_SLOT(CMPIDateTimeFT, isInterval, 5);
PIN_SIZE(CMPISelectExpFT, 64);
PIN_SLOT(CMPISelectExpFT, evaluateUsingAccessor, 7);
PIN_SIZE(CMPISelectCondFT, 40);
PIN_SIZE(CMPISubCondFT, 48);
PIN_SIZE(CMPIPredicateFT, 40);
PIN_SIZE(CMPIErrorFT, 216);
PIN_SLOT(CMPIErrorFT, getMessageArguments, 17);
PIN_SLOT(CMPIErrorFT, setMessageArguments, 26);

/* Provider tables: ftVersion and miVersion share the first 8 bytes. */
PIN_OFF(CMPIInstanceMIFT, miVersion, 4);
PIN_OFF(CMPIInstanceMIFT, miName, 8);
PIN_OFF(CMPIInstanceMIFT, cleanup, 16);
PIN_OFF(CMPIInstanceMIFT, enumerateInstanceNames, 24);
PIN_OFF(CMPIInstanceMIFT, getInstance, 40);
PIN_OFF(CMPIInstanceMIFT, execQuery, 72);
PIN_SIZE(CMPIInstanceMIFT, 80);
PIN_OFF(CMPIAssociationMIFT, associators, 24);
PIN_OFF(CMPIAssociationMIFT, referenceNames, 48);
PIN_SIZE(CMPIAssociationMIFT, 56);
PIN_OFF(CMPIMethodMIFT, invokeMethod, 24);
PIN_SIZE(CMPIMethodMIFT, 32);
PIN_SIZE(CMPIPropertyMIFT, 48);
PIN_SIZE(CMPIIndicationMIFT, 72);
PIN_OFF(CMPIIndicationMIFT, disableIndications, 64);

/* Constants. */
_Static_assert(CMPICurrentVersion == 200, "version");
_Static_assert(CMPI_uint8 == 128 && CMPI_uint16 == 144 && CMPI_uint32 == 160 && CMPI_uint64 == 176, "uints");
_Static_assert(CMPI_sint8 == 192 && CMPI_sint64 == 240 && CMPI_INTEGER == 192, "sints");
_Static_assert(CMPI_real32 == 8 && CMPI_real64 == 12 && CMPI_boolean == 2 && CMPI_char16 == 3, "simple");
_Static_assert(CMPI_instance == 4096 && CMPI_ref == 4352 && CMPI_args == 4608 && CMPI_class == 4864, "enc");
_Static_assert(CMPI_filter == 5120 && CMPI_enumeration == 5376 && CMPI_string == 5632, "enc2");
_Static_assert(CMPI_chars == 5888 && CMPI_dateTime == 6144 && CMPI_ptr == 6400 && CMPI_charsptr == 6656, "enc3");
_Static_assert(CMPI_ARRAY == 8192 && CMPI_uint16A == 8336 && CMPI_refA == 12544 && CMPI_stringA == 13824, "arrays");
_Static_assert(CMPI_charsA == 14080 && CMPI_instanceA == 12288 && CMPI_charsptrA == 14848, "arrays2");
_Static_assert(CMPI_integerString == 0x16F0 && CMPI_nameString == 0x1E00 && CMPI_realString == 0x160C, "pred");
_Static_assert(CMPI_nullValue == 256 && CMPI_keyValue == 512 && CMPI_notFound == 1024 && CMPI_badValue == 32768, "states");
_Static_assert(CMPI_RC_ERR_NOT_SUPPORTED == 7 && CMPI_RC_ERR_METHOD_NOT_FOUND == 17, "rc");
_Static_assert(CMPI_RC_DO_NOT_UNLOAD == 50 && CMPI_RC_NEVER_UNLOAD == 51 && CMPI_RC_ERR_INVALID_DATA_TYPE == 61, "rc2");
_Static_assert(CMPI_RC_ERROR_SYSTEM == 100 && CMPI_RC_ERROR == 200, "rc3");
_Static_assert(CMPI_PredOp_Or == 14 && CMPI_DEV_DEBUG == 4 && CMPI_COND_COD == 1, "enums");
_Static_assert(ErrorSevLow == 2 && Oversubscription_Error == 8 && CIMObjectHandle == 2, "error enums");
_Static_assert(Leak_Detected_113 == 113 && Unexpected_Information == 130, "probable cause");
_Static_assert(CMPI_MB_Supports_Extended_Error == 0x8000 && CMPI_MB_QueryNormalization == 0x31, "capabilities");

int abi_pin_c_compiled(void) { return 1; }
