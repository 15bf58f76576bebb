/* CMPI 2.0 data types: basic types, type codes, states, status codes and
 * the plain structures that cross the provider/broker boundary. */
#ifndef CMPIDT_H
#define CMPIDT_H

#include "cmpios.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- versions ------------------------------------------------------- */
#define CMPIVersion051 51
#define CMPIVersion060 60
#define CMPIVersion070 70
#define CMPIVersion080 80
#define CMPIVersion085 85
#define CMPIVersion086 86
#define CMPIVersion087 87
#define CMPIVersion090 90
#define CMPIVersion100 100
#define CMPIVersion200 200

#if defined(CMPI_VERSION)
#if CMPI_VERSION == 200
#define CMPI_VER_200 1
#elif CMPI_VERSION == 100
#define CMPI_VER_100 1
#else
#error "CMPI_VERSION must be 100 or 200"
#endif
#else
#define CMPI_VER_200 1
#endif

#ifdef CMPI_VER_ALL
#ifndef CMPI_VER_200
#define CMPI_VER_200 1
#endif
#endif

#ifdef CMPI_VER_200
#ifndef CMPI_VER_100
#define CMPI_VER_100 1
#endif
#define CMPICurrentVersion CMPIVersion200
#else
#define CMPICurrentVersion CMPIVersion100
#endif

/* The 2.0 level also switches on the macros gated on earlier drafts. */
#ifdef CMPI_VER_100
#define CMPI_VER_90 1
#define CMPI_VER_87 1
#define CMPI_VER_86 1
#define CMPI_VER_85 1
#define CMPI_VER_80 1
#endif

/* ---- forward declarations ------------------------------------------- */
struct _CMPIBroker;
struct _CMPIInstance;
struct _CMPIObjectPath;
struct _CMPIArgs;
struct _CMPISelectExp;
struct _CMPISelectCond;
struct _CMPISubCond;
struct _CMPIPredicate;
struct _CMPIEnumeration;
struct _CMPIArray;
struct _CMPIString;
struct _CMPIResult;
struct _CMPIContext;
struct _CMPIDateTime;
#ifdef CMPI_VER_200
struct _CMPIError;
#endif

typedef struct _CMPIBroker CMPIBroker;
typedef struct _CMPIInstance CMPIInstance;
typedef struct _CMPIObjectPath CMPIObjectPath;
typedef struct _CMPIArgs CMPIArgs;
typedef struct _CMPISelectExp CMPISelectExp;
typedef struct _CMPISelectCond CMPISelectCond;
typedef struct _CMPISubCond CMPISubCond;
typedef struct _CMPIPredicate CMPIPredicate;
typedef struct _CMPIEnumeration CMPIEnumeration;
typedef struct _CMPIArray CMPIArray;
typedef struct _CMPIString CMPIString;
typedef struct _CMPIResult CMPIResult;
typedef struct _CMPIContext CMPIContext;
typedef struct _CMPIDateTime CMPIDateTime;
#ifdef CMPI_VER_200
typedef struct _CMPIError CMPIError;
#endif

struct _CMPIBrokerFT;
struct _CMPIBrokerEncFT;
struct _CMPIBrokerExtFT;
#ifdef CMPI_VER_200
struct _CMPIBrokerMemFT;
#endif
typedef struct _CMPIBrokerFT CMPIBrokerFT;
typedef struct _CMPIBrokerEncFT CMPIBrokerEncFT;
typedef struct _CMPIBrokerExtFT CMPIBrokerExtFT;
#ifdef CMPI_VER_200
typedef struct _CMPIBrokerMemFT CMPIBrokerMemFT;
#endif

/* ---- basic types ---------------------------------------------------- */
typedef unsigned char CMPIBoolean;
typedef unsigned short CMPIChar16;
typedef unsigned char CMPIUint8;
typedef unsigned short CMPIUint16;
typedef unsigned int CMPIUint32;
typedef unsigned long long CMPIUint64;
typedef signed char CMPISint8;
typedef short CMPISint16;
typedef signed int CMPISint32;
typedef long long CMPISint64;
typedef float CMPIReal32;
typedef double CMPIReal64;

typedef struct _CMPIValuePtr {
    void *ptr;
    unsigned int length;
} CMPIValuePtr;

typedef unsigned int CMPICount;
typedef unsigned short CMPIType;
typedef unsigned short CMPIValueState;
typedef unsigned int CMPIFlags;
typedef void CMPIGcStat;
#ifdef CMPI_VER_200
typedef void *CMPIMsgFileHandle;
#endif

/* ---- type codes ----------------------------------------------------- */
#define CMPI_null 0
#define CMPI_SIMPLE (2)
#define CMPI_boolean (2 + 0)
#define CMPI_char16 (2 + 1)
#define CMPI_REAL ((2) << 2)
#define CMPI_real32 ((2 + 0) << 2)
#define CMPI_real64 ((2 + 1) << 2)
#define CMPI_UINT ((8) << 4)
#define CMPI_uint8 ((8 + 0) << 4)
#define CMPI_uint16 ((8 + 1) << 4)
#define CMPI_uint32 ((8 + 2) << 4)
#define CMPI_uint64 ((8 + 3) << 4)
#define CMPI_SINT ((8 + 4) << 4)
#define CMPI_sint8 ((8 + 4) << 4)
#define CMPI_sint16 ((8 + 5) << 4)
#define CMPI_sint32 ((8 + 6) << 4)
#define CMPI_sint64 ((8 + 7) << 4)
#define CMPI_INTEGER ((CMPI_UINT | CMPI_SINT))
#define CMPI_ENC ((16) << 8)
#define CMPI_instance ((16 + 0) << 8)
#define CMPI_ref ((16 + 1) << 8)
#define CMPI_args ((16 + 2) << 8)
#define CMPI_class ((16 + 3) << 8)
#define CMPI_filter ((16 + 4) << 8)
#define CMPI_enumeration ((16 + 5) << 8)
#define CMPI_string ((16 + 6) << 8)
#define CMPI_chars ((16 + 7) << 8)
#define CMPI_dateTime ((16 + 8) << 8)
#define CMPI_ptr ((16 + 9) << 8)
#define CMPI_charsptr ((16 + 10) << 8)

#define CMPI_ARRAY ((1) << 13)
#define CMPI_SIMPLEA (CMPI_ARRAY | CMPI_SIMPLE)
#define CMPI_booleanA (CMPI_ARRAY | CMPI_boolean)
#define CMPI_char16A (CMPI_ARRAY | CMPI_char16)
#define CMPI_REALA (CMPI_ARRAY | CMPI_REAL)
#define CMPI_real32A (CMPI_ARRAY | CMPI_real32)
#define CMPI_real64A (CMPI_ARRAY | CMPI_real64)
#define CMPI_UINTA (CMPI_ARRAY | CMPI_UINT)
#define CMPI_uint8A (CMPI_ARRAY | CMPI_uint8)
#define CMPI_uint16A (CMPI_ARRAY | CMPI_uint16)
#define CMPI_uint32A (CMPI_ARRAY | CMPI_uint32)
#define CMPI_uint64A (CMPI_ARRAY | CMPI_uint64)
#define CMPI_SINTA (CMPI_ARRAY | CMPI_SINT)
#define CMPI_sint8A (CMPI_ARRAY | CMPI_sint8)
#define CMPI_sint16A (CMPI_ARRAY | CMPI_sint16)
#define CMPI_sint32A (CMPI_ARRAY | CMPI_sint32)
#define CMPI_sint64A (CMPI_ARRAY | CMPI_sint64)
#define CMPI_INTEGERA (CMPI_ARRAY | CMPI_INTEGER)
#define CMPI_ENCA (CMPI_ARRAY | CMPI_ENC)
#define CMPI_instanceA (CMPI_ARRAY | CMPI_instance)
#define CMPI_refA (CMPI_ARRAY | CMPI_ref)
#define CMPI_stringA (CMPI_ARRAY | CMPI_string)
#define CMPI_charsA (CMPI_ARRAY | CMPI_chars)
#define CMPI_dateTimeA (CMPI_ARRAY | CMPI_dateTime)
#define CMPI_charsptrA (CMPI_ARRAY | CMPI_charsptr)

#ifndef CMPI_NO_SYNONYM_SUPPORT
#define CMPI_Byte CMPI_sint8
#define CMPI_Short CMPI_sint16
#define CMPI_Int CMPI_sint32
#define CMPI_Long CMPI_sint64
#define CMPI_Float CMPI_real32
#define CMPI_Double CMPI_real64
#define CMPI_ByteA CMPI_sint8A
#define CMPI_ShortA CMPI_sint16A
#define CMPI_IntA CMPI_sint32A
#define CMPI_LongA CMPI_sint64A
#define CMPI_FloatA CMPI_real32A
#define CMPI_DoubleA CMPI_real64A
#endif

#define CMPI_keyInteger (CMPI_sint64)
#define CMPI_keyString (CMPI_string)
#define CMPI_keyBoolean (CMPI_boolean)
#define CMPI_keyRef (CMPI_ref)

#define CMPI_charString (CMPI_string)
#define CMPI_integerString (CMPI_string | CMPI_sint64)
#define CMPI_realString (CMPI_string | CMPI_real64)
#define CMPI_numericString (CMPI_string | CMPI_sint64 | CMPI_real64)
#define CMPI_booleanString (CMPI_string | CMPI_boolean)
#define CMPI_dateTimeString (CMPI_string | CMPI_dateTime)
#define CMPI_classNameString (CMPI_string | CMPI_class)
#define CMPI_nameString (CMPI_string | ((16 + 10) << 8))

/* ---- value states --------------------------------------------------- */
#define CMPI_goodValue (0)
#define CMPI_nullValue (1 << 8)
#define CMPI_keyValue (2 << 8)
#define CMPI_notFound (4 << 8)
#define CMPI_badValue (0x80 << 8)

/* ---- values --------------------------------------------------------- */
typedef union _CMPIValue {
    CMPIUint64 uint64;
    CMPIUint32 uint32;
    CMPIUint16 uint16;
    CMPIUint8 uint8;
    CMPISint64 sint64;
    CMPISint32 sint32;
    CMPISint16 sint16;
    CMPISint8 sint8;
    CMPIReal64 real64;
    CMPIReal32 real32;
    CMPIBoolean boolean;
    CMPIChar16 char16;

    CMPIInstance *inst;
    CMPIObjectPath *ref;
    CMPIArgs *args;
    CMPISelectExp *filter;
    CMPIEnumeration *Enum;
    CMPIArray *array;
    CMPIString *string;
    char *chars;
    CMPIDateTime *dateTime;
    CMPIValuePtr dataPtr;

    CMPISint8 Byte;
    CMPISint16 Short;
    CMPISint32 Int;
    CMPISint64 Long;
    CMPIReal32 Float;
    CMPIReal64 Double;
} CMPIValue;

typedef struct _CMPIData {
    CMPIType type;
    CMPIValueState state;
    CMPIValue value;
} CMPIData;

typedef CMPIData CMPIAccessor(const char *propertyName, void *parm);

/* ---- context entry names and invocation flags ----------------------- */
#define CMPIInvocationFlags "CMPIInvocationFlags"
#define CMPIPrincipal "CMPIPrincipal"
#define CMPIInitNameSpace "CMPIInitNameSpace"
#define CMPIRole "CMPIRole"
#define CMPIAcceptLanguage "CMPIAcceptLanguage"
#define CMPIContentLanguage "CMPIContentLanguage"

#define CMPI_FLAG_LocalOnly 1
#define CMPI_FLAG_DeepInheritance 2
#define CMPI_FLAG_IncludeQualifiers 4
#define CMPI_FLAG_IncludeClassOrigin 8

/* ---- status codes --------------------------------------------------- */
typedef enum _CMPIrc {
    CMPI_RC_OK = 0,
    CMPI_RC_ERR_FAILED = 1,
    CMPI_RC_ERR_ACCESS_DENIED = 2,
    CMPI_RC_ERR_INVALID_NAMESPACE = 3,
    CMPI_RC_ERR_INVALID_PARAMETER = 4,
    CMPI_RC_ERR_INVALID_CLASS = 5,
    CMPI_RC_ERR_NOT_FOUND = 6,
    CMPI_RC_ERR_NOT_SUPPORTED = 7,
    CMPI_RC_ERR_CLASS_HAS_CHILDREN = 8,
    CMPI_RC_ERR_CLASS_HAS_INSTANCES = 9,
    CMPI_RC_ERR_INVALID_SUPERCLASS = 10,
    CMPI_RC_ERR_ALREADY_EXISTS = 11,
    CMPI_RC_ERR_NO_SUCH_PROPERTY = 12,
    CMPI_RC_ERR_TYPE_MISMATCH = 13,
    CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED = 14,
    CMPI_RC_ERR_INVALID_QUERY = 15,
    CMPI_RC_ERR_METHOD_NOT_AVAILABLE = 16,
    CMPI_RC_ERR_METHOD_NOT_FOUND = 17,
    CMPI_RC_DO_NOT_UNLOAD = 50,
    CMPI_RC_NEVER_UNLOAD = 51,
    CMPI_RC_ERR_INVALID_HANDLE = 60,
    CMPI_RC_ERR_INVALID_DATA_TYPE = 61,
    CMPI_RC_ERROR_SYSTEM = 100,
    CMPI_RC_ERROR = 200
} CMPIrc;

typedef struct _CMPIStatus {
    CMPIrc rc;
    CMPIString *msg;
} CMPIStatus;

/* ---- broker capabilities -------------------------------------------- */
#define CMPI_MB_Class_0 0x00000001
#define CMPI_MB_Class_1 0x00000003
#define CMPI_MB_Class_2 0x00000007
#define CMPI_MB_Supports_PropertyMI 0x00000100
#define CMPI_MB_Supports_IndicationMI 0x00000200
#define CMPI_MB_Supports_IndicationPolling 0x00000400
#define CMPI_MB_Supports_QueryNormalization 0x00000800
#define CMPI_MB_Supports_Qualifier 0x00001000
#define CMPI_MB_Supports_Schema 0x00003000
#ifdef CMPI_VER_200
#define CMPI_MB_Supports_MemEnhancements 0x00004000
#define CMPI_MB_Supports_Extended_Error 0x00008000
#endif
#define CMPI_MB_BasicRead 0x00000001
#define CMPI_MB_BasicWrite 0x00000003
#define CMPI_MB_InstanceManipulation 0x00000007
#define CMPI_MB_AssociationTraversal 0x00000009
#define CMPI_MB_QueryExecution 0x00000011
#define CMPI_MB_QueryNormalization 0x00000031
#define CMPI_MB_Indications 0x00000081
#define CMPI_MB_BasicQualifierSupport 0x00000047
#define CMPI_MB_OSEncapsulationSupport 0x00000100

/* ---- query enums ---------------------------------------------------- */
typedef enum _CMPIPredOp {
    CMPI_PredOp_Equals = 1,
    CMPI_PredOp_NotEquals = 2,
    CMPI_PredOp_LessThan = 3,
    CMPI_PredOp_GreaterThanOrEquals = 4,
    CMPI_PredOp_GreaterThan = 5,
    CMPI_PredOp_LessThanOrEquals = 6,
    CMPI_PredOp_Isa = 7,
    CMPI_PredOp_NotIsa = 8,
    CMPI_PredOp_Like = 9,
    CMPI_PredOp_NotLike = 10
#ifdef CMPI_VER_200
    ,
    CMPI_PredOp_Not_Null = 11,
    CMPI_PredOp_Null = 12,
    CMPI_PredOp_And = 13,
    CMPI_PredOp_Or = 14
#endif
} CMPIPredOp;

typedef enum _CMPISeverity {
    CMPI_SEV_ERROR = 1,
    CMPI_SEV_INFO = 2,
    CMPI_SEV_WARNING = 3,
    CMPI_DEV_DEBUG = 4
} CMPISeverity;

typedef enum _CMPILevel { CMPI_LEV_INFO = 1, CMPI_LEV_WARNING = 2, CMPI_LEV_VERBOSE = 3 } CMPILevel;

typedef enum _CMPISelectCondType { CMPI_COND_DOC = 0, CMPI_COND_COD = 1 } CMPISelectCondType;

/* ---- extended errors (2.0) ------------------------------------------ */
#ifdef CMPI_VER_200
typedef enum _CMPIErrorType {
    UnknownErrorType = 0,
    OtherErrorType = 1,
    CommunicationsError = 2,
    QualityOfServiceError = 3,
    SoftwareError = 4,
    HardwareError = 5,
    EnvironmentalError = 6,
    SecurityError = 7,
    Oversubscription_Error = 8,
    UnavailableResourceError = 9,
    UnsupportedOperationError = 10
} CMPIErrorType;

typedef enum _CMPIErrorSeverity {
    ErrorSevUnknown = 0,
    ErrorSevLow = 2,
    ErrorSevMedium = 3,
    ErrorSevHigh = 4,
    ErrorSevFatal = 5
} CMPIErrorSeverity;

typedef enum _CMPIErrorSrcFormat {
    CMPIErrSrcUnknown = 0,
    CMPIErrSrcOther = 1,
    CIMObjectHandle = 2
} CMPIErrorSrcFormat;

typedef enum _CMPIErrorProbableCause {
    ErrorProbCauseUnknown = 0,
    ErrorProbCauseOther = 1,
    Adapter_Card_Error = 2,
    Application_Subsystem_Failure = 3,
    Bandwidth_Reduced = 4,
    Connection_Establishment_Error = 5,
    Communications_Protocol_Error = 6,
    Communications_Subsystem_Failure = 7,
    ConfigurationCustomization_Error = 8,
    Congestion = 9,
    Corrupt_Data = 10,
    CPU_Cycles_Limit_Exceeded = 11,
    DatasetModem_Error = 12,
    Degraded_Signal = 13,
    DTE_DCE_Interface_Error = 14,
    Enclosure_Door_Open = 15,
    Equipment_Malfunction = 16,
    Excessive_Vibration = 17,
    File_Format_Error = 18,
    Fire_Detected = 19,
    Flood_Detected = 20,
    Framing_Error = 21,
    HVAC_Problem = 22,
    Humidity_Unacceptable = 23,
    IO_Device_Error = 24,
    Input_Device_Error = 25,
    LAN_Error = 26,
    Non_Toxic_Leak_Detected = 27,
    Local_Node_Transmission_Error = 28,
    Loss_of_Frame = 29,
    Loss_of_Signal = 30,
    Material_Supply_Exhausted = 31,
    Multiplexer_Problem = 32,
    Out_of_Memory = 33,
    Output_Device_Error = 34,
    Performance_Degraded = 35,
    Power_Problem = 36,
    Pressure_Unacceptable = 37,
    Processor_Problem = 38,
    Pump_Failure = 39,
    Queue_Size_Exceeded = 40,
    Receive_Failure = 41,
    Receiver_Failure = 42,
    Remote_Node_Transmission_Error = 43,
    Resource_at_or_Nearing_Capacity = 44,
    Response_Time_Excessive = 45,
    Retransmission_Rate_Excessive = 46,
    Software_Error = 47,
    Software_Program_Abnormally_Terminated = 48,
    Software_Program_Error = 49,
    Storage_Capacity_Problem = 50,
    Temperature_Unacceptable = 51,
    Threshold_Crossed = 52,
    Timing_Problem = 53,
    Toxic_Leak_Detected = 54,
    Transmit_Failure = 55,
    Transmitter_Failure = 56,
    Underlying_Resource_Unavailable = 57,
    Version_Mismatch = 58,
    Previous_Alert_Cleared = 59,
    Login_Attempts_Failed = 60,
    Software_Virus_Detected = 61,
    Hardware_Security_Breached = 62,
    Denial_of_Service_Detected = 63,
    Security_Credential_Mismatch = 64,
    Unauthorized_Access = 65,
    Alarm_Received = 66,
    Loss_of_Pointer = 67,
    Payload_Mismatch = 68,
    Transmission_Error = 69,
    Excessive_Error_Rate = 70,
    Trace_Problem = 71,
    Element_Unavailable = 72,
    Element_Missing = 73,
    Loss_of_Multi_Frame = 74,
    Broadcast_Channel_Failure = 75,
    Invalid_Message_Received = 76,
    Routing_Failure = 77,
    Backplane_Failure = 78,
    Identifier_Duplication = 79,
    Protection_Path_Failure = 80,
    Sync_Loss_or_Mismatch = 81,
    Terminal_Problem = 82,
    Real_Time_Clock_Failure = 83,
    Antenna_Failure = 84,
    Battery_Charging_Failure = 85,
    Disk_Failure = 86,
    Frequency_Hopping_Failure = 87,
    Loss_of_Redundancy = 88,
    Power_Supply_Failure = 89,
    Signal_Quality_Problem = 90,
    Battery_Discharging = 91,
    Battery_Failure = 92,
    Commercial_Power_Problem = 93,
    Fan_Failure = 94,
    Engine_Failure = 95,
    Sensor_Failure = 96,
    Fuse_Failure = 97,
    Generator_Failure = 98,
    Low_Battery = 99,
    Low_Fuel = 100,
    Low_Water = 101,
    Explosive_Gas = 102,
    High_Winds = 103,
    Ice_Buildup = 104,
    Smoke = 105,
    Memory_Mismatch = 106,
    Out_of_CPU_Cycles = 107,
    Software_Environment_Problem = 108,
    Software_Download_Failure = 109,
    Element_Reinitialized = 110,
    Timeout = 111,
    Logging_Problems = 112,
    Leak_Detected_113,
    Protection_Mechanism_Failure = 114,
    Protecting_Resource_Failure = 115,
    Database_Inconsistency = 116,
    Authentication_Failure = 117,
    Breach_of_Confidentiality = 118,
    Cable_Tamper = 119,
    Delayed_Information = 120,
    Duplicate_Information = 121,
    Information_Missing = 122,
    Information_Modification = 123,
    Information_Out_of_Sequence = 124,
    Key_Expired = 125,
    Non_Repudiation_Failure = 126,
    Out_of_Hours_Activity = 127,
    Out_of_Service = 128,
    Procedural_Error = 129,
    Unexpected_Information = 130
} CMPIErrorProbableCause;
#endif

/* ---- broker and provider (MI) structures ---------------------------- */
struct _CMPIBroker {
    void *hdl;
    CMPIBrokerFT *bft;
    CMPIBrokerEncFT *eft;
    CMPIBrokerExtFT *xft;
#ifdef CMPI_VER_200
    CMPIBrokerMemFT *mft;
#endif
};

struct _CMPIInstanceMIFT;
struct _CMPIAssociationMIFT;
struct _CMPIMethodMIFT;
struct _CMPIPropertyMIFT;
struct _CMPIIndicationMIFT;
typedef struct _CMPIInstanceMIFT CMPIInstanceMIFT;
typedef struct _CMPIAssociationMIFT CMPIAssociationMIFT;
typedef struct _CMPIMethodMIFT CMPIMethodMIFT;
typedef struct _CMPIPropertyMIFT CMPIPropertyMIFT;
typedef struct _CMPIIndicationMIFT CMPIIndicationMIFT;

typedef struct _CMPIInstanceMI {
    const void *hdl;
    CMPIInstanceMIFT *ft;
} CMPIInstanceMI;

typedef struct _CMPIAssociationMI {
    void *hdl;
    CMPIAssociationMIFT *ft;
} CMPIAssociationMI;

typedef struct _CMPIMethodMI {
    void *hdl;
    CMPIMethodMIFT *ft;
} CMPIMethodMI;

typedef struct _CMPIPropertyMI {
    void *hdl;
    CMPIPropertyMIFT *ft;
} CMPIPropertyMI;

typedef struct _CMPIIndicationMI {
    void *hdl;
    CMPIIndicationMIFT *ft;
} CMPIIndicationMI;

#ifdef __cplusplus
}
#endif

#endif /* CMPIDT_H */
