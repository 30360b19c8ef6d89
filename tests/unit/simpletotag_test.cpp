#include "Services/mqttmanagerservices.h"
#include "tagbytes.h"

#include <array>
#include <cmath>
#include <limits>
#include <QJsonParseError>

namespace {

constexpr int MostEntries = std::numeric_limits<int>::max();

// A payload's text becomes `bytes` in a tag of that size that held OldByte before.
struct SimpleCase
{
    ArgType type;
    int entries;
    QString text;
    Bytes bytes;
    int length = NO_DATA_LEN;
};

Bytes converted(const SimpleCase& c)
{
    MQTTManagerServices services;
    Bytes tag = untouched(c.bytes.size());
    QString text = c.text;
    services.JsonSimpleStringToBufferConversion(text, c.type, c.entries, c.length,
                                                {charsOf(tag), static_cast<qint64>(tag.size())});
    return tag;
}

class SimpleToTag : public ServiceTest, public testing::WithParamInterface<SimpleCase>
{
};

TEST_P(SimpleToTag, putsTheTextIntoTheTag)
{
    const SimpleCase& c = GetParam();
    EXPECT_EQ(converted(c), c.bytes) << c.text.toStdString();
}

template<typename Value>
SimpleCase one(ArgType type, const QString& text, Value value)
{
    return {type, 0, text, bytesOf<Value>({value}) + untouched(4)};
}

// Texts that mean the same for all types of integers. None but the first seven and the last is one.
template<typename Value>
std::vector<SimpleCase> integers(ArgType type)
{
    const QString digits400 = QString("1").repeated(400);
    std::vector<SimpleCase> cases = {one<Value>(type, "0", 0),     one<Value>(type, "-0", 0),
                                     one<Value>(type, "42", 42),   one<Value>(type, "+7", 7),
                                     one<Value>(type, " 42 ", 42), one<Value>(type, "\t42\r\n", 42),
                                     one<Value>(type, "007", 7)};
    const QStringList noIntegers = {"",
                                    " ",
                                    "abc",
                                    "1.5",
                                    "1.0",
                                    "1e2",
                                    "0x10",
                                    "\"5\"",
                                    "true",
                                    "null",
                                    "1 2",
                                    "1,000",
                                    "[5]",
                                    "99999999999",
                                    "-99999999999",
                                    digits400,
                                    QString("5") + QChar(0),
                                    QChar(0) + QString("5")};
    for (const QString& text : noIntegers)
        cases.push_back(one<Value>(type, text, 0));
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Bool, SimpleToTag,
                         testing::Values(one<quint8>(AT_BOOL, "true", 1), one<quint8>(AT_BOOL, "false", 0),
                                         one<quint8>(AT_BOOL, "True", 0), one<quint8>(AT_BOOL, "1", 0),
                                         one<quint8>(AT_BOOL, "", 0), one<quint8>(AT_BOOL, " true", 0),
                                         one<quint8>(AT_BOOL, "true ", 0), one<quint8>(AT_BOOL, "\"true\"", 0),
                                         one<quint8>(AT_BOOL, QString::fromLatin1("true\0", 5), 0),
                                         one<quint8>(AT_BOOL, "[true]", 0)));
INSTANTIATE_TEST_SUITE_P(Int8, SimpleToTag, testing::ValuesIn(integers<qint8>(AT_INT8)));
INSTANTIATE_TEST_SUITE_P(Int8Width, SimpleToTag,
                         testing::Values(one<qint8>(AT_INT8, "127", 127), one<qint8>(AT_INT8, "-128", -128),
                                         one<qint8>(AT_INT8, "128", -128), one<qint8>(AT_INT8, "300", 44),
                                         one<qint8>(AT_INT8, "-300", -44), one<qint8>(AT_INT8, "2147483647", -1),
                                         one<qint8>(AT_INT8, "2147483648", 0)));
INSTANTIATE_TEST_SUITE_P(UInt8, SimpleToTag, testing::ValuesIn(integers<quint8>(AT_UINT8)));
INSTANTIATE_TEST_SUITE_P(UInt8Width, SimpleToTag,
                         testing::Values(one<quint8>(AT_UINT8, "255", 255), one<quint8>(AT_UINT8, "-1", 0),
                                         one<quint8>(AT_UINT8, "256", 0), one<quint8>(AT_UINT8, "300", 44),
                                         one<quint8>(AT_UINT8, "4294967295", 255),
                                         one<quint8>(AT_UINT8, "4294967299", 0)));
INSTANTIATE_TEST_SUITE_P(Int16, SimpleToTag, testing::ValuesIn(integers<qint16>(AT_INT16)));
INSTANTIATE_TEST_SUITE_P(Int16Width, SimpleToTag,
                         testing::Values(one<qint16>(AT_INT16, "-32768", -32768),
                                         one<qint16>(AT_INT16, "32768", -32768), one<qint16>(AT_INT16, "70000", 4464),
                                         one<qint16>(AT_INT16, "-2", -2)));
INSTANTIATE_TEST_SUITE_P(UInt16, SimpleToTag, testing::ValuesIn(integers<quint16>(AT_UINT16)));
INSTANTIATE_TEST_SUITE_P(UInt16Width, SimpleToTag,
                         testing::Values(one<quint16>(AT_UINT16, "65535", 65535), one<quint16>(AT_UINT16, "65536", 0),
                                         one<quint16>(AT_UINT16, "70000", 4464), one<quint16>(AT_UINT16, "-1", 0)));
INSTANTIATE_TEST_SUITE_P(UInt32, SimpleToTag, testing::ValuesIn(integers<quint32>(AT_UINT32)));
INSTANTIATE_TEST_SUITE_P(UInt32Width, SimpleToTag,
                         testing::Values(one<quint32>(AT_UINT32, "4294967295", 4294967295U),
                                         one<quint32>(AT_UINT32, "4294967296", 0), one<quint32>(AT_UINT32, "-1", 0)));
INSTANTIATE_TEST_SUITE_P(Int32, SimpleToTag, testing::ValuesIn(integers<qint32>(AT_INT32)));
INSTANTIATE_TEST_SUITE_P(Int32Width, SimpleToTag,
                         testing::Values(one<qint32>(AT_INT32, "2147483647", 2147483647),
                                         one<qint32>(AT_INT32, "-2147483648", std::numeric_limits<qint32>::min()),
                                         one<qint32>(AT_INT32, "2147483648", 0), one<qint32>(AT_INT32, "-1", -1)));
// REAL cases are given as bit patterns, so that the sign of zero and NaN count.
INSTANTIATE_TEST_SUITE_P(
    Real, SimpleToTag,
    testing::Values(one<quint32>(AT_REAL, "0", 0), one<quint32>(AT_REAL, "-0", 0x80000000U),
                    one<quint32>(AT_REAL, "1", 0x3F800000U), one<quint32>(AT_REAL, "1.5", 0x3FC00000U),
                    one<quint32>(AT_REAL, " -2.5 ", 0xC0200000U), one<quint32>(AT_REAL, "0.1", 0x3DCCCCCDU),
                    one<quint32>(AT_REAL, "1e6", 0x49742400U), one<quint32>(AT_REAL, "1e-45", 0x00000001U),
                    one<quint32>(AT_REAL, "1e-50", 0), one<quint32>(AT_REAL, "1e-400", 0),
                    one<quint32>(AT_REAL, "1e39", 0x7F800000U), one<quint32>(AT_REAL, "-1e39", 0xFF800000U),
                    one<quint32>(AT_REAL, "1e400", 0x7F800000U),
                    one<quint32>(AT_REAL, QString("9").repeated(400), 0x7F800000U),
                    one<quint32>(AT_REAL, "inf", 0x7F800000U), one<quint32>(AT_REAL, "-inf", 0xFF800000U),
                    one<quint32>(AT_REAL, "abc", 0), one<quint32>(AT_REAL, "", 0), one<quint32>(AT_REAL, "\"1\"", 0),
                    one<quint32>(AT_REAL, "1,5", 0), one<quint32>(AT_REAL, "true", 0),
                    one<quint32>(AT_REAL, QString::fromLatin1("1\0", 2), 0), one<quint32>(AT_REAL, "[1]", 0)));

template<typename Value>
SimpleCase array(ArgType type, int entries, const QString& text, const std::vector<Value>& stored,
                 std::size_t untouchedBytes = 0)
{
    return {type, entries, text, bytesOf<Value>(stored) + untouched(untouchedBytes)};
}

// Payloads whose elements convert alike in all types of numbers.
template<typename Value>
std::vector<SimpleCase> numberArrays(ArgType type)
{
    constexpr std::size_t Width = sizeof(Value);
    return {array<Value>(type, 3, "[1,2,3]", {1, 2, 3}),
            array<Value>(type, 5, "[1,2]", {1, 2}, 3 * Width),
            array<Value>(type, 5, "[1,2,3,4,5,6,7]", {1, 2, 3, 4, 5}, Width),
            array<Value>(type, 1, "[9]", {9}, Width),
            array<Value>(type, 3, " [ 1 , 2 ,\n3 ] ", {1, 2, 3}),
            array<Value>(type, 4, "[[1,2],[3,[4]]]", {1, 2, 3, 4}),
            array<Value>(type, 3, "[\"1\",true,null]", {0, 0, 0}),
            array<Value>(type, 3, "[]", {0}, 2 * Width),
            array<Value>(type, 3, "{\"a\":[1,2,3]}", {0, 2, 0}),
            array<Value>(type, 4, "[\"a,b\",3]", {0, 0, 3}, Width),
            array<Value>(type, 3, "{\"a\":1}", {}, 3 * Width),
            array<Value>(type, 3, "{\"a\":\"[\"}", {}, 3 * Width),
            array<Value>(type, 3, "{\"a\":\"]\"}", {}, 3 * Width),
            array<Value>(type, 3, "{\"a\":\"[]\",\"b\":1}", {0, 0}, Width),
            array<Value>(type, 3, "7", {}, 3 * Width),
            array<Value>(type, 3, "", {}, 3 * Width),
            array<Value>(type, 3, "[1,2", {}, 3 * Width),
            array<Value>(type, 3, "[1,2]x", {}, 3 * Width),
            array<Value>(type, 3, "1,2,3", {}, 3 * Width),
            array<Value>(type, -1, "[1,2,3]", {}, 3 * Width),
            array<Value>(type, std::numeric_limits<int>::min(), "[1,2,3]", {}, 3 * Width),
            array<Value>(type, MostEntries, "[1,2,3]", {1, 2}),
            array<Value>(type, MostEntries, "[1,2,3]", {}),
            array<Value>(type, MostEntries, "[1,2,3]", {1, 2, 3}, Width)};
}

INSTANTIATE_TEST_SUITE_P(
    BoolArray, SimpleToTag,
    testing::Values(array<quint8>(AT_BOOL, 3, "[true,false,true]", {1, 0, 1}),
                    array<quint8>(AT_BOOL, 2, "[true, true]", {1, 0}),
                    array<quint8>(AT_BOOL, 5, "[true,false]", {1, 0}, 3),
                    array<quint8>(AT_BOOL, 5, "[true,true,true,true,true,true,true]", {1, 1, 1, 1, 1}, 1),
                    array<quint8>(AT_BOOL, 3, "[\"true\",1,null]", {0, 0, 0}),
                    array<quint8>(AT_BOOL, 3, "[[true],[true,true]]", {1, 1, 1}),
                    array<quint8>(AT_BOOL, 2, "[]", {0}, 1), array<quint8>(AT_BOOL, 2, "[True]", {}, 2),
                    array<quint8>(AT_BOOL, 2, "true", {}, 2), array<quint8>(AT_BOOL, 2, "{\"a\":true}", {}, 2),
                    array<quint8>(AT_BOOL, -3, "[true,true]", {}, 2),
                    array<quint8>(AT_BOOL, MostEntries, "[true,true,true]", {1, 1})));
INSTANTIATE_TEST_SUITE_P(Int8Array, SimpleToTag, testing::ValuesIn(numberArrays<qint8>(AT_INT8)));
INSTANTIATE_TEST_SUITE_P(UInt8Array, SimpleToTag, testing::ValuesIn(numberArrays<quint8>(AT_UINT8)));
INSTANTIATE_TEST_SUITE_P(Int16Array, SimpleToTag, testing::ValuesIn(numberArrays<qint16>(AT_INT16)));
INSTANTIATE_TEST_SUITE_P(UInt16Array, SimpleToTag, testing::ValuesIn(numberArrays<quint16>(AT_UINT16)));
INSTANTIATE_TEST_SUITE_P(UInt32Array, SimpleToTag, testing::ValuesIn(numberArrays<quint32>(AT_UINT32)));
INSTANTIATE_TEST_SUITE_P(Int32Array, SimpleToTag, testing::ValuesIn(numberArrays<qint32>(AT_INT32)));
INSTANTIATE_TEST_SUITE_P(RealArray, SimpleToTag, testing::ValuesIn(numberArrays<float>(AT_REAL)));
INSTANTIATE_TEST_SUITE_P(ArrayElementsAreCutToTheirWidth, SimpleToTag,
                         testing::Values(array<qint8>(AT_INT8, 4, "[300,-300,1.5,2147483648]", {44, -44, 0, 0}),
                                         array<quint8>(AT_UINT8, 4, "[300,-1,1.5,4294967295]", {44, 0, 0, 255}),
                                         array<qint16>(AT_INT16, 3, "[70000,-2,1e2]", {4464, -2, 0}),
                                         array<quint16>(AT_UINT16, 3, "[70000,-2,1e2]", {4464, 0, 0}),
                                         array<quint32>(AT_UINT32, 3, "[4294967295,4294967296,-1]",
                                                        {4294967295U, 0, 0}),
                                         array<qint32>(AT_INT32, 3, "[-2147483648,2147483648,-1]",
                                                       {std::numeric_limits<qint32>::min(), 0, -1}),
                                         array<float>(AT_REAL, 4, "[1.5,-2.5e1,1e39,1e-50]",
                                                      {1.5F, -25, std::numeric_limits<float>::infinity(), 0})));
// The text passes through Latin-1 on its way to the parser: what Latin-1 lacks is a question mark there, and what lies
// above ASCII is no UTF-8.
INSTANTIATE_TEST_SUITE_P(ArraysWithTextBeyondAscii, SimpleToTag,
                         testing::Values(array<quint8>(AT_UINT8, 2, QString("[5,\"") + QChar(0x20AC) + "\"]", {5, 0}),
                                         array<quint8>(AT_UINT8, 2, QString("[5,\"") + QChar(0xE9) + "\"]", {}, 2)));

const QString Emoji = QString::fromUtf8("\xF0\x9F\x98\x80"); // two UTF-16 units
const QString Umlaut = QString(QChar(0xE4));

SimpleCase text8(const QString& text, int length, const Bytes& bytes)
{
    return {AT_STR8, 0, text, bytes, length};
}

SimpleCase text16(const QString& text, int length, const std::vector<char16_t>& units, std::size_t untouchedBytes)
{
    return {AT_STR16, 0, text, bytesOf<char16_t>(units) + untouched(untouchedBytes), length};
}

SimpleCase text32(const QString& text, int length, const std::vector<char32_t>& units, std::size_t untouchedBytes)
{
    return {AT_STR32, 0, text, bytesOf<char32_t>(units) + untouched(untouchedBytes), length};
}

INSTANTIATE_TEST_SUITE_P(Texts8, SimpleToTag,
                         testing::Values(text8("abc", 5, {'a', 'b', 'c', 0, OldByte, OldByte}),
                                         text8("abc", 3, {'a', 'b', 'c', 0}), text8("abc", 2, {'a', 'b', 0, OldByte}),
                                         text8("abc", 0, {0, OldByte}), text8("", 5, {0, OldByte}),
                                         text8("\"a\"", 5, {'"', 'a', '"', 0, OldByte}),
                                         text8(QString::fromLatin1("a\0b", 3), 5, {'a', 0, 'b', 0, OldByte})));
INSTANTIATE_TEST_SUITE_P(Texts8BeyondAsciiLoseTheirEnd, SimpleToTag,
                         testing::Values(text8(Umlaut + "b", 5, {0xC3, 0xA4, 'b', OldByte, OldByte, OldByte}),
                                         text8(Umlaut + Umlaut, 5, {0xC3, 0xA4, 0xC3, OldByte, OldByte}),
                                         text8(Emoji, 5, {0xF0, 0x9F, 0x98, OldByte, OldByte})));
INSTANTIATE_TEST_SUITE_P(Texts16, SimpleToTag,
                         testing::Values(text16("abc", 5, {'a', 'b', 'c', 0}, 4), text16("abc", 2, {'a', 'b', 0}, 2),
                                         text16("abc", 0, {0}, 2), text16("", 5, {0}, 2),
                                         text16(Umlaut + "b", 5, {0xE4, 'b', 0}, 2),
                                         text16(Emoji, 5, {0xD83D, 0xDE00, 0}, 2), text16(Emoji, 1, {0xD83D, 0}, 2),
                                         text16(QString::fromLatin1("a\0b", 3), 5, {'a', 0, 'b', 0}, 2)));
INSTANTIATE_TEST_SUITE_P(Texts32, SimpleToTag,
                         testing::Values(text32("abc", 5, {'a', 'b', 'c', 0}, 4), text32("abc", 2, {'a', 'b', 0}, 4),
                                         text32("abc", 0, {0}, 4), text32("", 5, {0}, 4),
                                         text32(Umlaut + "b", 5, {0xE4, 'b', 0}, 4),
                                         text32(QString::fromLatin1("a\0b", 3), 5, {'a', 0, 'b', 0}, 4)));
// Two units, one code point: the third of three places is zero as well.
INSTANTIATE_TEST_SUITE_P(Texts32BeyondTheBasicPlane, SimpleToTag,
                         testing::Values(text32(Emoji, 5, {0x1F600, 0, 0}, 4),
                                         text32(Emoji + "x" + Emoji, 9, {0x1F600, 'x', 0x1F600, 0, 0, 0}, 4)));
// With no length the whole text is taken; only the space bounds it.
INSTANTIATE_TEST_SUITE_P(
    TextsEndWithTheSpace, SimpleToTag,
    testing::Values(text8("abcdef", 6, {'a', 'b', 'c'}), text8("abcdef", NO_DATA_LEN, {'a', 'b', 'c'}),
                    text8("ab", NO_DATA_LEN, {'a', 'b', 0, OldByte}), text8("abc", NO_DATA_LEN, {}),
                    text16("abcdef", NO_DATA_LEN, {'a', 'b'}, 0), text16("abc", NO_DATA_LEN, {}, 0),
                    SimpleCase{AT_STR16, 0, "ab", {'a', 0, 'b'}, 5}, text32("abcdef", NO_DATA_LEN, {'a', 'b'}, 0),
                    text32("abc", NO_DATA_LEN, {}, 0), text32(Emoji, NO_DATA_LEN, {0x1F600, 0}, 0),
                    SimpleCase{AT_STR32, 0, "ab", {'a', 0, 0, 0, 'b', 0}, 5}));
INSTANTIATE_TEST_SUITE_P(TextsIgnoreEntries, SimpleToTag,
                         testing::Values(SimpleCase{AT_STR8, 4, "[ab]", {'[', 'a', 'b', ']', 0, OldByte}, 5},
                                         SimpleCase{AT_STR16, -1, "a", {'a', 0, 0, 0, OldByte}, 5},
                                         SimpleCase{AT_STR32, 2, "a", {'a', 0, 0, 0, 0, 0, 0, 0, OldByte}, 5}));
INSTANTIATE_TEST_SUITE_P(NumbersEndWithTheSpace, SimpleToTag,
                         testing::Values(SimpleCase{AT_INT32, 0, "67305985", {1, 2, 3}},
                                         SimpleCase{AT_INT32, 3, "[67305985,67305985]", {1, 2, 3, 4, 1, 2}},
                                         SimpleCase{AT_UINT8, 0, "5", {}}));
INSTANTIATE_TEST_SUITE_P(OtherTypesDoNothing, SimpleToTag,
                         testing::Values(SimpleCase{AT_NOTYPE, 0, "1", untouched(8)},
                                         SimpleCase{AT_NOTYPE, 1, "[1]", untouched(8)},
                                         SimpleCase{AT_STRUCT, 0, "1", untouched(8)},
                                         SimpleCase{AT_STRUCT, 2, "[1]", untouched(8)},
                                         SimpleCase{static_cast<ArgType>(13), 0, "1", untouched(8)},
                                         SimpleCase{static_cast<ArgType>(99), 1, "[1]", untouched(8)},
                                         SimpleCase{static_cast<ArgType>(-1), 1, "[1]", untouched(8)}));

class SimpleText : public ServiceTest
{
protected:
    MQTTManagerServices services;
};

TEST_F(SimpleText, takesABarePointerForSpaceEnough)
{
    std::array<char, 8> tag{};
    QString text = "[1,2,3]";
    services.JsonSimpleStringToBufferConversion(text, AT_UINT16, 3, NO_DATA_LEN, tag.data());
    EXPECT_EQ(tag, (std::array<char, 8>{1, 0, 2, 0, 3, 0, 0, 0}));
}

TEST_F(SimpleText, storesWhatAnyTextOfNoNumberIs)
{
    Bytes tag = untouched(4);
    QString text = "nan";
    services.JsonSimpleStringToBufferConversion(text, AT_REAL, 0, NO_DATA_LEN, charsOf(tag));
    float value = 0;
    std::memcpy(&value, tag.data(), sizeof value);
    EXPECT_TRUE(std::isnan(value));
}

TEST_F(SimpleText, listsTheElementsAndRemovesTheBrackets)
{
    QString text = "[ 1,\"b\",[null,]]";
    EXPECT_EQ(services.validateJsonArrayStringAndReturnValueList(text), QStringList()) << "no JSON";
    text = "[ 1,\"b,c\",[null, -2.5]]";
    EXPECT_EQ(services.validateJsonArrayStringAndReturnValueList(text),
              QStringList({" 1", "\"b", "c\"", "null", " -2.5"}));
    EXPECT_EQ(text.toStdString(), " 1,\"b,c\",null, -2.5");
}

TEST_F(SimpleText, listsOneEmptyElementForAnEmptyArray)
{
    QString text = "[]";
    EXPECT_EQ(services.validateJsonArrayStringAndReturnValueList(text), QStringList(""));
}

TEST_F(SimpleText, removesTheBracketsFromTheCallersTextAlsoWhenThereAreNoEntries)
{
    Bytes tag = untouched(2);
    QString text = "[1,2]";
    services.JsonSimpleStringToBufferConversion(text, AT_UINT8, -1, NO_DATA_LEN, {charsOf(tag), 2});
    EXPECT_EQ(text.toStdString(), "1,2");
}

TEST_F(SimpleText, keepsAndLogsATextThatIsNoJson)
{
    const LogCapture log;
    QString text = "%2 [1";
    EXPECT_TRUE(services.validateJsonArrayStringAndReturnValueList(text).isEmpty());
    EXPECT_EQ(text.toStdString(), "%2 [1");
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.lines().front(), testing::StartsWith("DEBUG Json is |%2 [1| error is "));
    EXPECT_THAT(log.lines().front(), testing::Not(testing::HasSubstr("no error")));
}

TEST_F(SimpleText, logsNoErrorForAnObject)
{
    const LogCapture log;
    QJsonParseError none{};
    none.error = QJsonParseError::NoError;
    QString text = "{\"a\":1}";
    EXPECT_TRUE(services.validateJsonArrayStringAndReturnValueList(text).isEmpty());
    EXPECT_EQ(log.lines(), (std::vector{"DEBUG Json is |{\"a\":1}| error is " + none.errorString().toStdString()}));
}

TEST_F(SimpleText, logsOnceForAnArrayTagThatGetsNoArray)
{
    const LogCapture log;
    Bytes tag = untouched(4);
    QString text = "not json";
    services.JsonSimpleStringToBufferConversion(text, AT_INT16, 2, NO_DATA_LEN, charsOf(tag));
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.lines().front(), testing::StartsWith("DEBUG Json is |not json| error is "));
}

TEST_F(SimpleText, storesWhatFitsOfAnArrayOfAMillion)
{
    QString text = '[' + QString("7,").repeated(1'000'000) + "7]";
    Bytes tag = untouched(3);
    services.JsonSimpleStringToBufferConversion(text, AT_UINT8, 2, NO_DATA_LEN, charsOf(tag));
    EXPECT_EQ(tag, (Bytes{7, 7, OldByte}));
}

TEST_F(SimpleText, hasOneConversionForEachTypeAndFormButStructs)
{
    for (const auto& row : services.m_jSSConversions) {
        for (int type = 0; type < ARG_TYPES; ++type)
            EXPECT_EQ(row[type] == nullptr, type == AT_STRUCT) << type;
    }
    EXPECT_EQ(services.m_jSSConversions[0][AT_STR8], services.m_jSSConversions[1][AT_STR8]);
    EXPECT_NE(services.m_jSSConversions[0][AT_REAL], services.m_jSSConversions[1][AT_REAL]);
}

} // namespace
