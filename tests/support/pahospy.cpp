// Preloaded into the service: writes down what the client library is given, every field of every option record, and
// passes the call on. One JSON object a line goes to the file that PAHO_SPY names.

#include <MQTTClient.h>

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>

static std::string quoted(std::string_view text)
{
    std::string result = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        char escape[8];
        std::snprintf(escape, sizeof(escape), "\\u%04x", byte);
        if (byte < 0x20 || character == '"' || character == '\\')
            result += escape;
        else
            result += character;
    }
    return result + '"';
}

// One JSON object, put together field by field.
class Fields
{
public:
    Fields& raw(const char* name, std::string_view value)
    {
        m_text += (m_text.empty() ? "" : ",") + quoted(name) + ':';
        m_text += value;
        return *this;
    }

    Fields& number(const char* name, long value) { return raw(name, std::to_string(value)); }

    Fields& text(const char* name, const char* value) { return raw(name, value != nullptr ? quoted(value) : "null"); }

    Fields& magic(const char (&value)[4]) { return raw("struct_id", quoted({value, sizeof(value)})); }

    // Only whether a pointer is there: its value means nothing to anyone else.
    template<typename Pointer>
    Fields& pointer(const char* name, Pointer value)
    {
        return raw(name, value != nullptr ? "true" : "false");
    }

    [[nodiscard]] std::string object() const { return '{' + m_text + '}'; }

private:
    std::string m_text;
};

static void writeDown(const Fields& call)
{
    const char* const path = std::getenv("PAHO_SPY");
    const int file = path != nullptr ? open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666) : -1;
    if (file < 0)
        return;
    const std::string line = call.object() + '\n';
    if (write(file, line.data(), line.size()) < 0)
        std::perror("pahospy");
    close(file);
}

template<typename Function>
static Function* next(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

static std::string willObject(const MQTTClient_willOptions* will)
{
    if (will == nullptr)
        return "null";
    return Fields()
        .magic(will->struct_id)
        .number("struct_version", will->struct_version)
        .text("topicName", will->topicName)
        .text("message", will->message)
        .number("retained", will->retained)
        .number("qos", will->qos)
        .number("payload.len", will->payload.len)
        .pointer("payload.data", will->payload.data)
        .object();
}

static std::string tlsObject(const MQTTClient_SSLOptions* tls)
{
    if (tls == nullptr)
        return "null";
    return Fields()
        .magic(tls->struct_id)
        .number("struct_version", tls->struct_version)
        .text("trustStore", tls->trustStore)
        .text("keyStore", tls->keyStore)
        .text("privateKey", tls->privateKey)
        .text("privateKeyPassword", tls->privateKeyPassword)
        .text("enabledCipherSuites", tls->enabledCipherSuites)
        .number("enableServerCertAuth", tls->enableServerCertAuth)
        .number("sslVersion", tls->sslVersion)
        .number("verify", tls->verify)
        .text("CApath", tls->CApath)
        .pointer("ssl_error_cb", tls->ssl_error_cb)
        .pointer("ssl_error_context", tls->ssl_error_context)
        .pointer("ssl_psk_cb", tls->ssl_psk_cb)
        .pointer("ssl_psk_context", tls->ssl_psk_context)
        .number("disableDefaultTrustStore", tls->disableDefaultTrustStore)
        .pointer("protos", tls->protos)
        .number("protos_len", tls->protos_len)
        .object();
}

static std::string connectObject(const MQTTClient_connectOptions& options)
{
    return Fields()
        .magic(options.struct_id)
        .number("struct_version", options.struct_version)
        .number("keepAliveInterval", options.keepAliveInterval)
        .number("cleansession", options.cleansession)
        .number("reliable", options.reliable)
        .raw("will", willObject(options.will))
        .text("username", options.username)
        .text("password", options.password)
        .number("connectTimeout", options.connectTimeout)
        .number("retryInterval", options.retryInterval)
        .raw("ssl", tlsObject(options.ssl))
        .number("serverURIcount", options.serverURIcount)
        .pointer("serverURIs", options.serverURIs)
        .number("MQTTVersion", options.MQTTVersion)
        .text("returned.serverURI", options.returned.serverURI)
        .number("returned.MQTTVersion", options.returned.MQTTVersion)
        .number("returned.sessionPresent", options.returned.sessionPresent)
        .number("binarypwd.len", options.binarypwd.len)
        .pointer("binarypwd.data", options.binarypwd.data)
        .number("maxInflightMessages", options.maxInflightMessages)
        .number("cleanstart", options.cleanstart)
        .pointer("httpHeaders", options.httpHeaders)
        .pointer("httpProxy", options.httpProxy)
        .pointer("httpsProxy", options.httpsProxy)
        .object();
}

extern "C" {

int MQTTClient_create(MQTTClient* handle, const char* serverURI, const char* clientId, int persistence_type,
                      void* persistence_context)
{
    const int result = next(&MQTTClient_create, "MQTTClient_create")(handle, serverURI, clientId, persistence_type,
                                                                     persistence_context);
    writeDown(Fields()
                  .text("function", "create")
                  .text("serverURI", serverURI)
                  .text("clientId", clientId)
                  .number("persistence_type", persistence_type)
                  .text("persistence_context", static_cast<const char*>(persistence_context))
                  .number("result", result));
    return result;
}

int MQTTClient_setCallbacks(MQTTClient handle, void* context, MQTTClient_connectionLost* cl,
                            MQTTClient_messageArrived* ma, MQTTClient_deliveryComplete* dc)
{
    const int result = next(&MQTTClient_setCallbacks, "MQTTClient_setCallbacks")(handle, context, cl, ma, dc);
    writeDown(Fields()
                  .text("function", "setCallbacks")
                  .pointer("context", context)
                  .pointer("connectionLost", cl)
                  .pointer("messageArrived", ma)
                  .pointer("deliveryComplete", dc)
                  .number("result", result));
    return result;
}

int MQTTClient_connect(MQTTClient handle, MQTTClient_connectOptions* options)
{
    // The library fills `returned`, so the record is written down first.
    const std::string given = connectObject(*options);
    const int result = next(&MQTTClient_connect, "MQTTClient_connect")(handle, options);
    writeDown(Fields().text("function", "connect").raw("options", given).number("result", result));
    return result;
}

} // extern "C"
