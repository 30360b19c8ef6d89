#include "Records/statuscodes.h"

#include <array>

namespace {

struct CodeRow
{
    CodeDomain domain;
    int code;
    CodeText text;
};

constexpr CodeDomain Request = CodeDomain::RequestStatus;
constexpr CodeDomain Process = CodeDomain::Process;
constexpr CodeDomain Broker = CodeDomain::Broker;
constexpr CodeDomain Publication = CodeDomain::Publication;
constexpr CodeDomain Subscription = CodeDomain::Subscription;

constexpr std::array OwnCodes{
    CodeRow{Request, SC_AC_IN_PROGRESS, {"SC_AC_IN_PROGRESS", "taken up, not finished yet"}},
    CodeRow{Request, SC_AC_OK, {"SC_AC_OK", "done"}},
    CodeRow{Request,
            SC_AC_ERROR_WRITE_BACK_FAILED,
            {"SC_AC_ERROR_WRITE_BACK_FAILED", "the configuration file could not be updated"}},
    CodeRow{Request, SC_AC_ERROR_INVALID_ID, {"SC_AC_ERROR_INVALID_ID", "no entity has this unique ID"}},
    CodeRow{Request,
            SC_AC_ERROR_GET_CFG_FAILED,
            {"SC_AC_ERROR_GET_CFG_FAILED", "the record could not be written to the given tag"}},
    CodeRow{Request, SC_AC_ERROR_NOT_PAUSED, {"SC_AC_ERROR_NOT_PAUSED", "possible only while the service is paused"}},
    CodeRow{Request, SC_AC_ERROR_ALREADY_PAUSED, {"SC_AC_ERROR_ALREADY_PAUSED", "the service is paused already"}},
    CodeRow{Request, SC_AC_ERROR_PAUSED, {"SC_AC_ERROR_PAUSED", "refused while the service is paused"}},
    CodeRow{Request, SC_AC_ERROR_NOT_PERIODIC, {"SC_AC_ERROR_NOT_PERIODIC", "the publication has no period"}},
    CodeRow{Request, SC_AC_ERROR_NOT_APERIODIC, {"SC_AC_ERROR_NOT_APERIODIC", "the publication is periodic"}},
    CodeRow{Request, SC_AC_ERROR_PARSE_FAILED, {"SC_AC_ERROR_PARSE_FAILED", "a configuration file could not be read"}},
    CodeRow{Request, SC_AC_ERROR_BROKER_FAILED, {"SC_AC_ERROR_BROKER_FAILED", "connecting or disconnecting failed"}},
    CodeRow{Request,
            SC_AC_ERROR_SUBSCRIPTION_FAILED,
            {"SC_AC_ERROR_SUBSCRIPTION_FAILED", "subscribing or unsubscribing failed"}},
    CodeRow{
        Request, SC_AC_ERROR_DATA_BIG_THAN_BUFF, {"SC_AC_ERROR_DATA_BIG_THAN_BUFF", "publishing on request failed"}},
    CodeRow{Request,
            SC_AC_ERROR_CHANGE_STATE_FAILED,
            {"SC_AC_ERROR_CHANGE_STATE_FAILED", "periodic publishing could not be switched"}},
    CodeRow{Request,
            SC_AC_ERROR_CLIENT_CREATE_FAILED,
            {"SC_AC_ERROR_CLIENT_CREATE_FAILED", "a client could not be created"}},
    CodeRow{Request, SC_AC_ERROR_SYSTEM_TIME, {"SC_AC_ERROR_SYSTEM_TIME", "the device clock is not set"}},

    CodeRow{Process, PS_STARTING, {"PS_STARTING", "starting up"}},
    CodeRow{Process, PS_RUNNING, {"PS_RUNNING", "running"}},
    CodeRow{Process, PS_PAUSED, {"PS_PAUSED", "paused"}},
    CodeRow{Process, PS_FAILED, {"PS_FAILED", "failed: a client could not be created"}},
    CodeRow{Process, PS_TIME_NOT_SET, {"PS_TIME_NOT_SET", "running, but the device clock is not set"}},

    CodeRow{Broker, CB_OK, {"CB_OK", "done"}},
    CodeRow{
        Broker, CB_CONNECT_REFUSED, {"CB_CONNECT_REFUSED", "no attempt made: connected already, or no Ethernet link"}},
    CodeRow{Broker, CB_NOT_CONNECTED, {"CB_NOT_CONNECTED", "not disconnected: there was no connection"}},
    CodeRow{Broker, CB_CONNECTION_LOST, {"CB_CONNECTION_LOST", "the connection was lost"}},
    // The broker's own answers to a connection attempt.
    CodeRow{Broker, 1, {"", "refused by the broker: protocol version not accepted"}},
    CodeRow{Broker, 2, {"", "refused by the broker: client identifier not accepted"}},
    CodeRow{Broker, 3, {"", "refused by the broker: service unavailable"}},
    CodeRow{Broker, 4, {"", "refused by the broker: bad user name or password"}},
    CodeRow{Broker, 5, {"", "refused by the broker: not authorised"}},

    CodeRow{Publication, PSC_OK, {"PSC_OK", "handed to the client library"}},
    CodeRow{Publication,
            PSC_ERROR_NOT_PUBLISHED,
            {"PSC_ERROR_NOT_PUBLISHED", "the broker is not connected, or the payload format is unknown"}},
    CodeRow{Publication,
            PSC_ERROR_DATA_BIG_THAN_BUFF,
            {"PSC_ERROR_DATA_BIG_THAN_BUFF", "the payload is larger than 5000 bytes"}},
    CodeRow{Publication, PSC_ERROR_SCRIPT_FAILED, {"PSC_ERROR_SCRIPT_FAILED", "the operation's script failed"}},

    CodeRow{Subscription, SSC_OK, {"SSC_OK", "done"}},
    CodeRow{Subscription, SSC_ERROR_NOT_CONNECTED, {"SSC_ERROR_NOT_CONNECTED", "the broker is not connected"}},
    CodeRow{Subscription,
            SSC_ERROR_INVALID_JSON,
            {"SSC_ERROR_INVALID_JSON", "a message was no valid JSON: the tag keeps its old data"}},
    CodeRow{Subscription,
            SSC_ERROR_NOT_SUBSCRIBED,
            {"SSC_ERROR_NOT_SUBSCRIBED", "not unsubscribed: there was no subscription"}},
    CodeRow{Subscription, SSC_ERROR_ALREADY_SUBSCRIBED, {"SSC_ERROR_ALREADY_SUBSCRIBED", "subscribed already"}},
    CodeRow{Subscription,
            SSC_ERROR_CONNECTION_LOST,
            {"SSC_ERROR_CONNECTION_LOST", "the connection was lost while subscribed"}},
    // The client library's 128, as the signed byte of the record and as it is.
    CodeRow{Subscription, -128, {"", "refused by the broker"}},
    CodeRow{Subscription, 128, {"", "refused by the broker"}},
};

// Codes of the client library, the same in every domain that passes them through.
constexpr std::array LibraryCodes{
    CodeRow{Broker, -1, {"", "failed: no connection to that address, TLS trouble, or the connection broke"}},
    CodeRow{Broker, -2, {"", "the client library could not store its files"}},
    CodeRow{Broker, -3, {"", "the client library is not connected"}},
    CodeRow{Broker, -4, {"", "the broker acknowledges nothing: no further message taken"}},
    CodeRow{Broker, -5, {"", "a text is no valid UTF-8"}},
    CodeRow{Broker, -6, {"", "a needed option is missing"}},
    CodeRow{Broker, -7, {"", "the topic was cut"}},
    CodeRow{Broker, -8, {"", "an option record has a wrong version"}},
    CodeRow{Broker, -9, {"", "the quality of service is not 0, 1 or 2"}},
    CodeRow{Broker, -10, {"", "the client library was built without TLS"}},
    CodeRow{Broker, -14, {"", "the broker's address is invalid"}},
    CodeRow{Broker, -17, {"", "the last will has no topic or is invalid"}},
};

constexpr CodeText Unknown{"", "unknown code"};

template<typename Rows>
const CodeRow* findRow(const Rows& rows, CodeDomain domain, int code)
{
    for (const CodeRow& row : rows) {
        if (row.domain == domain && row.code == code)
            return &row;
    }
    return nullptr;
}

} // namespace

CodeText describeCode(CodeDomain domain, int code)
{
    if (const CodeRow* row = findRow(OwnCodes, domain, code))
        return row->text;
    if (domain == CodeDomain::RequestStatus || domain == CodeDomain::Process)
        return Unknown;
    const CodeRow* row = findRow(LibraryCodes, Broker, code);
    return row ? row->text : Unknown;
}
