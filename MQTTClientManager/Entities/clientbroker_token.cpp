#include "Entities/clientbroker.h"

#include "Entities/keyfile.h"
#include "logging.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <system_error>

namespace {

constexpr unsigned long JWT_LIFETIME_SECONDS = 3600;
constexpr int TimeTextSize = 14;

// Bytes. A token with a longer one is no password any more: those end at 65535 bytes.
constexpr uint LongestAudience = 48 * 1024;

struct JwtDeleter
{
    void operator()(jwt_t* jwt) const { jwt_free(jwt); }
};
using Jwt = std::unique_ptr<jwt_t, JwtDeleter>;

Jwt newJwt()
{
    jwt_t* jwt = nullptr;
    jwt_new(&jwt);
    return Jwt(jwt);
}

QString dump(jwt_t* jwt)
{
    const std::unique_ptr<char, decltype(&std::free)> text(jwt_dump_str(jwt, 1), &std::free);
    return QString::fromUtf8(text.get());
}

int addAudience(jwt_t* jwt, const char* audience)
{
    // The library takes several times its length from the stack.
    if (qstrnlen(audience, LongestAudience + 1) > LongestAudience)
        return E2BIG;
    return jwt_add_grant(jwt, "aud", audience);
}

int setAlgorithm(jwt_t* jwt, jwt_alg_t algorithm, const QByteArray& key)
{
    return jwt_set_alg(jwt, algorithm, reinterpret_cast<const unsigned char*>(key.constData()), key.size());
}

// Null, and errno tells why.
char* refuseToken()
{
    errno = ENOKEY;
    return nullptr;
}

} // namespace

static void logUnlessZero(const char* failure, int code)
{
    if (code != 0) {
        PLOG_ERROR << QString("%1: %2").arg(failure, QString::number(code));
    }
}

char* ClientBroker::CreateJwt(const char* keyFile, const char* audience, const char* algorithm)
{
    PLOG_DEBUG << "FIRED";
    const KeyFile key(keyFile);
    if (!key.isRead()) {
        PLOG_ERROR << QString("Could not open file: %1").arg(QString::fromLatin1(keyFile));
        return strdup("");
    }
    char iat[TimeTextSize];
    char exp[TimeTextSize];
    GetIatExp(iat, exp, TimeTextSize);

    const Jwt jwt = newJwt();
    if (!jwt)
        return nullptr; // no memory left
    logUnlessZero("Error setting issue timestamp", jwt_add_grant(jwt.get(), "iat", iat));
    logUnlessZero("Error setting expiration", jwt_add_grant(jwt.get(), "exp", exp));
    logUnlessZero("Error adding audience", addAudience(jwt.get(), audience));

    // Intended: an algorithm or key that is not taken leaves a token without a signature, for the broker to refuse.
    const int algorithmSet = setAlgorithm(jwt.get(), GetAlgorithmFromString(algorithm), key.content());
    logUnlessZero("Error during set alg", algorithmSet);
    if (algorithmSet == 0) {
        PLOG_DEBUG << QString("jwt object: %1").arg(dump(jwt.get()));
    }

    const bool wouldAsk = algorithmSet == 0 && key.wantsPassphrase();
    char* token = wouldAsk ? refuseToken() : jwt_encode_str(jwt.get());
    if (!token) {
        const int reason = errno;
        PLOG_ERROR << "Error during token creation: " << std::generic_category().message(reason);
    }
    PLOG_INFO << "JWT: [" << (token ? token : "(null)") << "]";
    return token;
}

void ClientBroker::GetIatExp(char* iat, char* exp, int size)
{
    const auto now = static_cast<unsigned long>(std::time(nullptr));
    const unsigned long end = now + JWT_LIFETIME_SECONDS;
    const auto space = static_cast<std::size_t>(std::max(size, 0));
    std::snprintf(iat, space, "%lu", now);
    std::snprintf(exp, space, "%lu", end);
    PLOG_DEBUG << QString("IAT: %1, EXP: %2").arg(QString::number(now), QString::number(end));
}

jwt_alg_t ClientBroker::GetAlgorithmFromString(const char* name)
{
    constexpr struct
    {
        const char* name;
        jwt_alg_t algorithm;
    } Algorithms[] = {{"RS256", JWT_ALG_RS256}, {"ES256", JWT_ALG_ES256}};
    for (const auto& known : Algorithms) {
        if (qstrcmp(name, known.name) == 0) {
            PLOG_DEBUG << known.name;
            return known.algorithm;
        }
    }
    return JWT_ALG_NONE;
}
