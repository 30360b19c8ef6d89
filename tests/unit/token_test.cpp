#include "Entities/keyfile.h"
#include "fileconditions.h"
#include "unittest.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <QDateTime>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using OptionalText = std::optional<std::string>;

constexpr char Audience[] = "plant-7";
constexpr QByteArray::Base64Options Base64Url = QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals;

// The openssl command, in a directory of keys that lives as long as the test process: making keys takes a while.
class KeyRing
{
public:
    static KeyRing& instance()
    {
        static KeyRing ring;
        return ring;
    }

    [[nodiscard]] QString path(const QString& name) const { return m_directory.filePath(name); }

    [[nodiscard]] QByteArray content(const QString& name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    void write(const QString& name, const QByteArray& content) const
    {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(content), content.size());
    }

    // By the shell, since emulators of other processors can't start programs in Qt's way.
    [[nodiscard]] bool openssl(const QString& commandLine) const
    {
        const QString line = QString("cd '%1' && openssl %2 >/dev/null 2>&1").arg(m_directory.path(), commandLine);
        return std::system(line.toLocal8Bit().constData()) == 0;
    }

private:
    KeyRing()
    {
        for (const char* command :
             {"genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa.pem",
              "rsa -in rsa.pem -traditional -out rsa-traditional.pem", "rsa -in rsa.pem -pubout -out rsa-public.pem",
              "rsa -in rsa.pem -outform DER -out rsa.der",
              "rsa -in rsa.pem -aes128 -passout pass:secret -out rsa-passphrase.pem",
              "rsa -in rsa.pem -traditional -aes128 -passout pass:secret -out rsa-traditional-passphrase.pem",
              "ecparam -name prime256v1 -genkey -out ec.pem", "pkcs8 -topk8 -nocrypt -in ec.pem -out ec-pkcs8.pem",
              "ec -in ec.pem -pubout -out ec-public.pem",
              "ec -in ec.pem -aes128 -passout pass:secret -out ec-passphrase.pem",
              "genpkey -algorithm ED25519 -out ed.pem"})
            EXPECT_TRUE(openssl(command)) << command;
    }

    QTemporaryDir m_directory;
};

QByteArray decoded(const QByteArray& part)
{
    return QByteArray::fromBase64(part, Base64Url);
}

QJsonObject jsonPart(const std::string& token, int part)
{
    return QJsonDocument::fromJson(decoded(QByteArray::fromStdString(token).split('.').value(part))).object();
}

// One of the two numbers of an elliptic signature as ASN.1 has it: without leading zeros, and never negative.
QByteArray asn1Integer(QByteArray number)
{
    while (number.size() > 1 && number.at(0) == 0)
        number.remove(0, 1);
    if (static_cast<unsigned char>(number.at(0)) >= 0x80)
        number.prepend('\0');
    return QByteArray("\x02") + static_cast<char>(number.size()) + number;
}

QByteArray asn1Signature(const QByteArray& raw)
{
    const QByteArray numbers = asn1Integer(raw.left(32)) + asn1Integer(raw.mid(32));
    return QByteArray("\x30") + static_cast<char>(numbers.size()) + numbers;
}

// What the openssl command says of the token's signature.
bool isSignedBy(const std::string& token, const QString& publicKey)
{
    const QByteArray text = QByteArray::fromStdString(token);
    const int end = text.lastIndexOf('.');
    const QByteArray signature = decoded(text.mid(end + 1));
    const bool isElliptic = publicKey.startsWith("ec");
    if (isElliptic && signature.size() != 64)
        return false;
    const KeyRing& ring = KeyRing::instance();
    ring.write("signed", text.left(end));
    ring.write("signature", isElliptic ? asn1Signature(signature) : signature);
    return ring.openssl(QString("dgst -sha256 -verify %1 -signature signature signed").arg(publicKey));
}

bool isUnsigned(const std::string& token)
{
    return jsonPart(token, 0).value("alg").toString() == "none" && token.back() == '.';
}

class Token : public BrokerTest
{
protected:
    Token() : ring(KeyRing::instance()) {}

    OptionalText makeFrom(const char* path, const char* algorithm, const char* audience = Audience)
    {
        const std::unique_ptr<char, decltype(&std::free)> token(broker.CreateJwt(path, audience, algorithm),
                                                                &std::free);
        return token ? OptionalText(token.get()) : std::nullopt;
    }

    OptionalText make(const QString& key, const char* algorithm, const char* audience = Audience)
    {
        return makeFrom(ring.path(key).toLatin1().constData(), algorithm, audience);
    }

    std::vector<std::string> errors(const LogCapture& log)
    {
        std::vector<std::string> lines;
        for (const std::string& line : log.lines()) {
            if (line.rfind("ERROR ", 0) == 0)
                lines.push_back(line);
        }
        return lines;
    }

    KeyRing& ring;
};

struct GoodKey
{
    const char* key;
    const char* algorithm;
    const char* publicKey;
};

class GoodKeys : public Token, public testing::WithParamInterface<GoodKey>
{
};

TEST_P(GoodKeys, makeATokenThatAnotherToolVerifies)
{
    const auto [key, algorithm, publicKey] = GetParam();
    const LogCapture log;
    const OptionalText token = make(key, algorithm);
    ASSERT_TRUE(token);
    EXPECT_EQ(jsonPart(*token, 0), (QJsonObject{{"alg", algorithm}, {"typ", "JWT"}}));
    EXPECT_TRUE(isSignedBy(*token, publicKey));
    EXPECT_THAT(errors(log), ElementsAre());

    std::string forged = *token;
    forged[forged.find('.') + 3] ^= 1;
    EXPECT_FALSE(isSignedBy(forged, publicKey));
}

INSTANTIATE_TEST_SUITE_P(Token, GoodKeys,
                         testing::Values(GoodKey{"rsa.pem", "RS256", "rsa-public.pem"},
                                         GoodKey{"rsa-traditional.pem", "RS256", "rsa-public.pem"},
                                         GoodKey{"ec.pem", "ES256", "ec-public.pem"},
                                         GoodKey{"ec-pkcs8.pem", "ES256", "ec-public.pem"}));

TEST_F(Token, ellipticSignaturesVerifyWhateverTheirNumbers)
{
    // One number in 256 has a leading zero, and every second one would be negative.
    for (int i = 0; i < 40; ++i) {
        const OptionalText token = make("ec.pem", "ES256", std::to_string(i).c_str());
        ASSERT_TRUE(token && isSignedBy(*token, "ec-public.pem")) << i;
    }
}

TEST_F(Token, holdsItsTimesAndAudienceAsTexts)
{
    const qint64 before = std::time(nullptr);
    const OptionalText token = make("rsa.pem", "RS256");
    const qint64 after = std::time(nullptr);
    ASSERT_TRUE(token);
    const QJsonObject claims = jsonPart(*token, 1);
    EXPECT_THAT(claims.keys(), ElementsAre("aud", "exp", "iat"));
    for (const QJsonValue& claim : claims)
        EXPECT_TRUE(claim.isString());
    const qint64 issued = claims.value("iat").toString().toLongLong();
    EXPECT_GE(issued, before);
    EXPECT_LE(issued, after);
    EXPECT_EQ(claims.value("exp").toString(), QString::number(issued + 3600));
    EXPECT_EQ(claims.value("aud").toString(), Audience);
}

TEST_F(Token, logsItsStepsInTheirOrder)
{
    const LogCapture log;
    const OptionalText token = make("rsa.pem", "RS256");
    ASSERT_TRUE(token);
    const QJsonObject claims = jsonPart(*token, 1);
    const std::string iat = claims.value("iat").toString().toStdString();
    const std::string exp = claims.value("exp").toString().toStdString();
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG FIRED", "DEBUG IAT: " + iat + ", EXP: " + exp, "DEBUG RS256",
                            testing::AllOf(StartsWith("DEBUG jwt object: "), HasSubstr("\"alg\": \"RS256\""),
                                           HasSubstr("\n"), HasSubstr("\"aud\": \"plant-7\"")),
                            "INFO JWT: [" + *token + "]"));
}

TEST_F(Token, keepsTheKeyOutOfTheLog)
{
    const LogCapture log;
    make("rsa.pem", "RS256");
    make("rsa.pem", "ES256");
    const std::string piece = ring.content("rsa.pem").split('\n').value(5).toStdString();
    ASSERT_EQ(piece.size(), 64U);
    EXPECT_THAT(log.lines(), testing::Not(testing::Contains(HasSubstr(piece))));
}

struct BadKey
{
    const char* key;
    const char* algorithm;
};

class BadKeys : public Token, public testing::WithParamInterface<BadKey>
{
};

TEST_P(BadKeys, makeNoToken)
{
    const auto [key, algorithm] = GetParam();
    ring.write("rubbish.pem", QByteArray(300, '\xFF'));
    ring.write("zeros.pem", QByteArray(300, '\0'));
    ring.write("cut.pem", ring.content("rsa.pem").left(800));
    const LogCapture log;
    EXPECT_EQ(make(key, algorithm), std::nullopt);
    EXPECT_THAT(errors(log), ElementsAre("ERROR Error during token creation: Invalid argument"));
    EXPECT_EQ(log.lines().back(), "INFO JWT: [(null)]");
}

INSTANTIATE_TEST_SUITE_P(Token, BadKeys,
                         testing::Values(BadKey{"ec.pem", "RS256"}, BadKey{"rsa.pem", "ES256"},
                                         BadKey{"ed.pem", "ES256"}, BadKey{"ed.pem", "RS256"},
                                         BadKey{"rsa-public.pem", "RS256"}, BadKey{"rsa.der", "RS256"},
                                         BadKey{"rubbish.pem", "RS256"}, BadKey{"rubbish.pem", "ES256"},
                                         BadKey{"zeros.pem", "RS256"}, BadKey{"cut.pem", "RS256"}));

class KeysWithPassphrase : public Token, public testing::WithParamInterface<BadKey>
{
};

// The library would ask for it on standard input, and wait there for ever.
TEST_P(KeysWithPassphrase, makeNoTokenAndAskNobody)
{
    const auto [key, algorithm] = GetParam();
    const LogCapture log;
    EXPECT_EQ(make(key, algorithm), std::nullopt);
    EXPECT_THAT(errors(log), ElementsAre("ERROR Error during token creation: Required key not available"));
    EXPECT_EQ(log.lines().back(), "INFO JWT: [(null)]");
}

INSTANTIATE_TEST_SUITE_P(Token, KeysWithPassphrase,
                         testing::Values(BadKey{"rsa-passphrase.pem", "RS256"},
                                         BadKey{"rsa-traditional-passphrase.pem", "RS256"},
                                         BadKey{"ec-passphrase.pem", "ES256"}));

TEST_F(Token, isUnsignedWithAnUnknownAlgorithm)
{
    for (const char* algorithm : {"rs256", "RS256 ", "RS25", "ES384", "HS256", "none", "", "\xC3"}) {
        const LogCapture log;
        const OptionalText token = make("rsa.pem", algorithm);
        ASSERT_TRUE(token) << algorithm;
        EXPECT_TRUE(isUnsigned(*token)) << *token;
        EXPECT_EQ(jsonPart(*token, 1).value("aud").toString(), Audience);
        EXPECT_THAT(log.lines(), ElementsAre("DEBUG FIRED", StartsWith("DEBUG IAT: "), "ERROR Error during set alg: 22",
                                             "INFO JWT: [" + *token + "]"));
    }
}

TEST_F(Token, isUnsignedWithAnEmptyKeyFile)
{
    ring.write("empty.pem", "");
    for (const char* algorithm : {"RS256", "ES256", "?"}) {
        const LogCapture log;
        const OptionalText token = make("empty.pem", algorithm);
        ASSERT_TRUE(token);
        EXPECT_TRUE(isUnsigned(*token)) << *token;
        EXPECT_THAT(errors(log), ElementsAre("ERROR Error during set alg: 22"));
    }
}

TEST_F(Token, isUnsignedWithAnUnknownAlgorithmAlsoWhereTheKeyHasAPassphrase)
{
    const OptionalText token = make("rsa-passphrase.pem", "rs256");
    ASSERT_TRUE(token);
    EXPECT_TRUE(isUnsigned(*token));
}

struct UnreadableCase
{
    const char* name;
    bool (*make)(const QString& path);
};

class UnreadableKeyFiles : public Token, public testing::WithParamInterface<UnreadableCase>
{
};

bool makeNothing(const QString& /*path*/)
{
    return true;
}

bool makeDirectory(const QString& path)
{
    return QDir().mkdir(path);
}

bool makePipe(const QString& path)
{
    return mkfifo(path.toLatin1().constData(), 0600) == 0;
}

bool makeDanglingLink(const QString& path)
{
    return QFile::link("/nowhere/at/all", path);
}

bool makeLoop(const QString& path)
{
    return QFile::link(path, path);
}

bool makeTooLarge(const QString& path)
{
    return QFile(path).open(QIODevice::WriteOnly) && QFile::resize(path, 64 * 1024 + 1);
}

bool makeHuge(const QString& path)
{
    return QFile(path).open(QIODevice::WriteOnly) && QFile::resize(path, qint64{1} << 40);
}

bool linkToZeros(const QString& path)
{
    return QFile::link("/dev/zero", path);
}

bool linkToTerminal(const QString& path)
{
    return QFile::link("/dev/ptmx", path);
}

// A regular file by its looks that answers reading with an error.
bool linkToFileThatCannotBeRead(const QString& path)
{
    return QFile::link("/proc/self/mem", path);
}

TEST_P(UnreadableKeyFiles, countAsFilesThatCannotBeOpened)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QString::fromUtf8("schlüssel"));
    // The name on disk is Latin-1, as the service's files are.
    const QByteArray name = path.toLatin1();
    const QByteArray plain = directory.filePath("plain").toLatin1();
    ASSERT_TRUE(GetParam().make(plain));
    if (GetParam().make != makeNothing) {
        ASSERT_EQ(rename(plain.constData(), name.constData()), 0);
    }
    const LogCapture log;
    EXPECT_EQ(makeFrom(name.constData(), "RS256"), "");
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG FIRED", "ERROR Could not open file: " + path.toStdString()));
    std::remove(name.constData()); // QTemporaryDir can't: the name is no UTF-8
}

INSTANTIATE_TEST_SUITE_P(Token, UnreadableKeyFiles,
                         testing::Values(UnreadableCase{"missing", makeNothing},
                                         UnreadableCase{"directory", makeDirectory}, UnreadableCase{"pipe", makePipe},
                                         UnreadableCase{"danglingLink", makeDanglingLink},
                                         UnreadableCase{"loop", makeLoop}, UnreadableCase{"tooLarge", makeTooLarge},
                                         UnreadableCase{"huge", makeHuge}, UnreadableCase{"zeros", linkToZeros},
                                         UnreadableCase{"terminal", linkToTerminal},
                                         UnreadableCase{"unreadable", linkToFileThatCannotBeRead}),
                         [](const auto& test) { return test.param.name; });

TEST_F(Token, aFileWithoutPermissionCannotBeOpened)
{
    const TestFile key(ring.content("rsa.pem"), "secret.pem");
    const auto makeWithMode = [&](unsigned mode) {
        setReachable(key.path(), mode);
        const Unprivileged nobody;
        return makeFrom(key.path().toLatin1().constData(), "RS256");
    };
    const OptionalText token = makeWithMode(0444);
    ASSERT_TRUE(token);
    EXPECT_TRUE(isSignedBy(*token, "rsa-public.pem"));
    EXPECT_EQ(makeWithMode(0), "");
}

TEST_F(Token, aNullPathCannotBeOpened)
{
    EXPECT_EQ(makeFrom(nullptr, "RS256"), "");
}

TEST_F(Token, aKeyFileMayBeLongerThanItsKey)
{
    ring.write("long.pem", (ring.content("rsa.pem") + QByteArray(64 * 1024, '\n')).left(64 * 1024));
    const OptionalText token = make("long.pem", "RS256");
    ASSERT_TRUE(token);
    EXPECT_TRUE(isSignedBy(*token, "rsa-public.pem"));
}

TEST_F(Token, audiencesOfAllKindsAreTakenAsTheyAre)
{
    for (const QString& audience :
         {QString(), QString("a\"b\\c\n%s"), QString::fromUtf8("Größe 🙂"), QString(48 * 1024, 'x')}) {
        const LogCapture log;
        const OptionalText token = make("rsa.pem", "RS256", audience.toUtf8().constData());
        ASSERT_TRUE(token);
        EXPECT_EQ(jsonPart(*token, 1).value("aud").toString(""), audience);
        EXPECT_TRUE(isSignedBy(*token, "rsa-public.pem"));
        EXPECT_THAT(errors(log), ElementsAre());
    }
}

TEST_F(Token, lacksAnAudienceThatCannotBeAdded)
{
    // With one of 20 MB the library would run out of stack.
    const QByteArray longOne(48 * 1024 + 1, 'x');
    const QByteArray longest(20'000'000, 'x');
    const std::pair<const char*, const char*> cases[] = {{"\xFF\xFE", "22"},
                                                         {"cut \xC3", "22"},
                                                         {nullptr, "22"},
                                                         {longOne.constData(), "7"},
                                                         {longest.constData(), "7"}};
    for (const auto& [audience, code] : cases) {
        const LogCapture log;
        const OptionalText token = make("rsa.pem", "RS256", audience);
        ASSERT_TRUE(token);
        EXPECT_THAT(jsonPart(*token, 1).keys(), ElementsAre("exp", "iat"));
        EXPECT_TRUE(isSignedBy(*token, "rsa-public.pem"));
        EXPECT_THAT(errors(log), ElementsAre(std::string("ERROR Error adding audience: ") + code));
    }
}

TEST_F(Token, algorithmsAreToldApartByTheirExactNames)
{
    const std::pair<const char*, jwt_alg_t> cases[] = {
        {"RS256", JWT_ALG_RS256}, {"ES256", JWT_ALG_ES256}, {"rs256", JWT_ALG_NONE}, {"es256", JWT_ALG_NONE},
        {"RS2566", JWT_ALG_NONE}, {"RS25", JWT_ALG_NONE},   {"RS384", JWT_ALG_NONE}, {"HS256", JWT_ALG_NONE},
        {"none", JWT_ALG_NONE},   {"", JWT_ALG_NONE},       {nullptr, JWT_ALG_NONE}};
    for (const auto& [name, algorithm] : cases) {
        const LogCapture log;
        EXPECT_EQ(broker.GetAlgorithmFromString(name), algorithm) << (name ? name : "null");
        if (algorithm == JWT_ALG_NONE)
            EXPECT_THAT(log.lines(), ElementsAre());
        else
            EXPECT_THAT(log.lines(), ElementsAre(std::string("DEBUG ") + name));
    }
}

TEST_F(Token, timesAreCutToTheirBuffers)
{
    char iat[14] = "-------------";
    char exp[14] = "-------------";
    broker.GetIatExp(iat, exp, 4);
    EXPECT_EQ(std::strlen(iat), 3U);
    EXPECT_EQ(std::strlen(exp), 3U);
    EXPECT_EQ(iat[4], '-');
    broker.GetIatExp(iat, exp, 14);
    EXPECT_EQ(std::stoll(exp), std::stoll(iat) + 3600);
    const std::string before = iat;
    broker.GetIatExp(iat, exp, 0);
    broker.GetIatExp(iat, exp, -1);
    EXPECT_EQ(iat, before);
}

class TokenOfAConnection : public Token
{
protected:
    TokenOfAConnection()
    {
        broker.Encryption = ENC_SSL_CA_AND_PRIVATE_KEY;
        broker.UserName = "user";
        broker.Password = "secret";
        broker.ClientKeyFileName = ring.path("rsa.pem");
        broker.GoogleCloudProjectID = QString::fromUtf8("größe");
        broker.JWTAlgorithm = "RS256";
    }

    const FakeMqttClient::ConnectCall& connect()
    {
        broker.Connect();
        return FakeMqttClient::state().connects.back();
    }

    int tokensMade(const LogCapture& log)
    {
        int count = 0;
        for (const std::string& line : log.lines())
            count += line.rfind("INFO JWT: [ey", 0) == 0 ? 1 : 0;
        return count;
    }
};

TEST_F(TokenOfAConnection, isThePasswordOfTheUserUnused)
{
    const auto& call = connect();
    EXPECT_EQ(call.username, "unused");
    ASSERT_TRUE(call.password);
    EXPECT_TRUE(isSignedBy(*call.password, "rsa-public.pem"));
    EXPECT_EQ(jsonPart(*call.password, 1).value("aud").toString(), QString::fromUtf8("größe"));
}

TEST_F(TokenOfAConnection, isMadeAnewForEachAttempt)
{
    FakeMqttClient::state().connectResults = {-1, 0};
    broker.JWTAlgorithm = "ES256";
    broker.ClientKeyFileName = ring.path("ec.pem");
    const auto first = connect().password;
    const auto second = connect().password;
    EXPECT_TRUE(first && second);
    EXPECT_NE(first, second); // an elliptic signature is never the same twice
}

TEST_F(TokenOfAConnection, isMadeAlsoWhenConnectedAlready)
{
    connectBroker();
    const LogCapture log;
    EXPECT_EQ(broker.Connect(), CB_CONNECT_REFUSED);
    EXPECT_EQ(tokensMade(log), 1);
}

TEST_F(TokenOfAConnection, isMadeAlsoWithoutALink)
{
    setLink(0, 0);
    const LogCapture log;
    EXPECT_EQ(broker.Connect(), CB_CONNECT_REFUSED);
    EXPECT_EQ(tokensMade(log), 1);
}

TEST_F(TokenOfAConnection, isMadeAtLevelFiveOnly)
{
    const LogCapture log;
    for (const int level : {0, 1, 2, 3, 4, 6}) {
        broker.Encryption = level;
        broker.DestroyMQTTClient();
        broker.CreateMQTTClient();
        EXPECT_EQ(connect().password, "secret");
    }
    EXPECT_FALSE(log.contains("DEBUG FIRED"));
}

TEST_F(TokenOfAConnection, isAnEmptyPasswordWithoutAKeyFile)
{
    broker.ClientKeyFileName = ring.path("absent.pem");
    const auto& call = connect();
    EXPECT_EQ(call.username, "unused");
    EXPECT_EQ(call.password, "");
    EXPECT_EQ(broker.m_Connected, 1);
}

TEST_F(TokenOfAConnection, isNoPasswordWithAKeyOfTheWrongKind)
{
    broker.ClientKeyFileName = ring.path("ec.pem");
    const auto& call = connect();
    EXPECT_EQ(call.username, "unused");
    EXPECT_EQ(call.password, std::nullopt);
    EXPECT_EQ(broker.m_Connected, 1);
}

TEST_F(TokenOfAConnection, isUnsignedWithAnUnknownAlgorithm)
{
    broker.JWTAlgorithm = "rs256";
    const auto& call = connect();
    ASSERT_TRUE(call.password);
    EXPECT_TRUE(isUnsigned(*call.password));
}

TEST_F(TokenOfAConnection, comesAfterTheLineOfTheLevel)
{
    const LogCapture log;
    broker.Connect();
    std::vector<std::string> lines = log.lines();
    lines.resize(6);
    EXPECT_THAT(lines, ElementsAre("DEBUG Encryption level is 'SSL CA AND PRIVATE_KEY'", "DEBUG FIRED",
                                   StartsWith("DEBUG IAT: "), "DEBUG RS256", StartsWith("DEBUG jwt object: "),
                                   StartsWith("INFO JWT: [ey")));
}

} // namespace
