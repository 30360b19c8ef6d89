#pragma once

// Every result code that a person may meet in a record, a status tag or a log line, and its text.

// Result of a manager operation; as a signed byte, also what a caller finds in a request's status tag.
enum StatusCodes : int
{
    SC_AC_IN_PROGRESS = 2,
    SC_AC_OK = 0,
    SC_AC_ERROR_WRITE_BACK_FAILED = -1,
    SC_AC_ERROR_INVALID_ID = -2,
    SC_AC_ERROR_GET_CFG_FAILED = -3,
    SC_AC_ERROR_NOT_PAUSED = -4,
    SC_AC_ERROR_ALREADY_PAUSED = -5,
    SC_AC_ERROR_PAUSED = -6,
    SC_AC_ERROR_NOT_PERIODIC = -7,
    SC_AC_ERROR_NOT_APERIODIC = -8,
    SC_AC_ERROR_PARSE_FAILED = -9,
    SC_AC_ERROR_BROKER_FAILED = -10,
    SC_AC_ERROR_SUBSCRIPTION_FAILED = -11,
    SC_AC_ERROR_DATA_BIG_THAN_BUFF = -12,
    SC_AC_ERROR_CHANGE_STATE_FAILED = -13,
    SC_AC_ERROR_CLIENT_CREATE_FAILED = -14,
    SC_AC_ERROR_SYSTEM_TIME = -16 // -15 is not used
};

// Only PS_PAUSED is ever compared: the service is paused or it is not.
enum ProcessStatus : int
{
    PS_STARTING = 0,
    PS_RUNNING = 1,
    PS_PAUSED = 2,
    PS_FAILED = 3,
    PS_TIME_NOT_SET = 4
};

// Result of a connection operation. Other values are the client library's own codes, passed through.
enum CBrokerStatusCodes : int
{
    CB_OK = 0,
    CB_CONNECT_REFUSED = -11, // nothing was attempted: already connected, or no Ethernet link
    CB_NOT_CONNECTED = -12,
    CB_CONNECTION_LOST = -13
};

// Result of a publication. Other negative values are the client library's own codes, passed through.
enum PublicationStatusCodes : int
{
    PSC_OK = 0,
    PSC_ERROR_NOT_PUBLISHED = -11,
    PSC_ERROR_DATA_BIG_THAN_BUFF = -12,
    PSC_ERROR_SCRIPT_FAILED = -13
};

// Result of a subscribe or unsubscribe, and the last result in a subscription's record. Other values are the client
// library's own codes, passed through.
enum SubscriptionStatusCodes : int
{
    SSC_OK = 0,
    SSC_ERROR_NOT_CONNECTED = -11,
    SSC_ERROR_INVALID_JSON = -12, // in the record only
    SSC_ERROR_NOT_SUBSCRIBED = -13,
    SSC_ERROR_ALREADY_SUBSCRIBED = -14,
    SSC_ERROR_CONNECTION_LOST = -15 // in the record only
};

// What a code means is told by where it stands: the same number means different things in different records.
enum class CodeDomain
{
    RequestStatus, // StatusCodes
    Process,       // ProcessStatus
    Broker,        // CBrokerStatusCodes and the client library's codes
    Publication,   // PublicationStatusCodes and the client library's codes
    Subscription   // SubscriptionStatusCodes and the client library's codes
};

struct CodeText
{
    const char* name; // the enumerator's name; "" for a code of the client library or of a broker
    const char* text; // one line for people; never null
};

// The name and meaning of a code; an unknown one gets an empty name and the text "unknown code".
CodeText describeCode(CodeDomain domain, int code);
