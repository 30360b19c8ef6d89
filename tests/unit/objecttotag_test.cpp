#include "Services/mqttmanagerservices.h"
#include "tagbytes.h"

#include <limits>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr int MostEntries = std::numeric_limits<int>::max();

QJsonObject parsed(const QByteArray& json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    EXPECT_TRUE(document.isObject()) << json.constData();
    return document.object();
}

// The value of the key "v" in {"v":<json>} becomes `bytes` in a tag of that size that held OldByte before. Without
// `json` the object is empty.
struct ObjectCase
{
    ArgType type;
    int entries;
    QByteArray json;
    Bytes bytes;
};

class ObjectToTag : public ServiceTest, public testing::WithParamInterface<ObjectCase>
{
};

TEST_P(ObjectToTag, putsTheValueIntoTheTag)
{
    const ObjectCase& c = GetParam();
    MQTTManagerServices services;
    QJsonObject object = c.json.isEmpty() ? QJsonObject() : parsed("{\"v\":" + c.json + "}");
    Bytes tag = untouched(c.bytes.size());
    services.JsonObjStringToBufferConversion(object, c.type, "v", c.entries,
                                             {charsOf(tag), static_cast<qint64>(tag.size())});
    EXPECT_EQ(tag, c.bytes) << c.json.constData();
}

template<typename Value>
ObjectCase one(ArgType type, const QByteArray& json, Value value)
{
    return {type, 0, json, bytesOf<Value>({value}) + untouched(4)};
}

// Values that are 0 in every type of number.
template<typename Value>
std::vector<ObjectCase> zeros(ArgType type)
{
    std::vector<ObjectCase> cases;
    for (const char* json : {"", "null", "0", "-0", "0.0", "false", "\"\"", "\"abc\"", "[]", "[5]", "{}", "{\"v\":5}"})
        cases.push_back(one<Value>(type, json, 0));
    return cases;
}

// What the signed types refuse: all but whole numbers that fit 32 bits.
template<typename Value>
std::vector<ObjectCase> refusedBySigned(ArgType type)
{
    std::vector<ObjectCase> cases = zeros<Value>(type);
    for (const char* json : {"1.5", "2147483648", "-2147483649", "1e10", "1e300", "0.1e-300", "\"5\"", "true"})
        cases.push_back(one<Value>(type, json, 0));
    return cases;
}

// What the unsigned types make of odd input.
template<typename Value>
std::vector<ObjectCase> takenByUnsigned(ArgType type)
{
    std::vector<ObjectCase> cases = zeros<Value>(type);
    for (const char* json : {"7", "7.0", "0.7e1", "6.5", "7.4", "\"7\"", "\" 7 \"", "4294967303", "\"4294967303\""})
        cases.push_back(one<Value>(type, json, 7));
    for (const char* json : {"\"-1\"", "\"7.5\"", "\"true\"", "\"0x7\"", "0.4", "4294967296", "\"7\\u0000\""})
        cases.push_back(one<Value>(type, json, 0));
    cases.push_back(one<Value>(type, "true", 1));
    cases.push_back(one<Value>(type, "-1", std::numeric_limits<Value>::max()));
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Bool, ObjectToTag,
                         testing::Values(one<quint8>(AT_BOOL, "true", 1), one<quint8>(AT_BOOL, "false", 0),
                                         one<quint8>(AT_BOOL, "1", 0), one<quint8>(AT_BOOL, "\"true\"", 0),
                                         one<quint8>(AT_BOOL, "null", 0), one<quint8>(AT_BOOL, "", 0),
                                         one<quint8>(AT_BOOL, "[true]", 0)));
INSTANTIATE_TEST_SUITE_P(Int8, ObjectToTag,
                         testing::Values(one<qint8>(AT_INT8, "127", 127), one<qint8>(AT_INT8, "-128", -128),
                                         one<qint8>(AT_INT8, "300", 44), one<qint8>(AT_INT8, "-300", -44),
                                         one<qint8>(AT_INT8, "3.0", 3), one<qint8>(AT_INT8, "1e2", 100)));
INSTANTIATE_TEST_SUITE_P(Int8Refused, ObjectToTag, testing::ValuesIn(refusedBySigned<qint8>(AT_INT8)));
INSTANTIATE_TEST_SUITE_P(UInt8, ObjectToTag,
                         testing::Values(one<quint8>(AT_UINT8, "255", 255), one<quint8>(AT_UINT8, "300", 44),
                                         one<quint8>(AT_UINT8, "\"300\"", 44), one<quint8>(AT_UINT8, "255.5", 0)));
INSTANTIATE_TEST_SUITE_P(UInt8Odd, ObjectToTag, testing::ValuesIn(takenByUnsigned<quint8>(AT_UINT8)));
INSTANTIATE_TEST_SUITE_P(Int16, ObjectToTag,
                         testing::Values(one<qint16>(AT_INT16, "-32768", -32768), one<qint16>(AT_INT16, "70000", 4464),
                                         one<qint16>(AT_INT16, "32768", -32768)));
INSTANTIATE_TEST_SUITE_P(Int16Refused, ObjectToTag, testing::ValuesIn(refusedBySigned<qint16>(AT_INT16)));
INSTANTIATE_TEST_SUITE_P(UInt16, ObjectToTag,
                         testing::Values(one<quint16>(AT_UINT16, "65535", 65535),
                                         one<quint16>(AT_UINT16, "70000", 4464)));
INSTANTIATE_TEST_SUITE_P(UInt16Odd, ObjectToTag, testing::ValuesIn(takenByUnsigned<quint16>(AT_UINT16)));
INSTANTIATE_TEST_SUITE_P(UInt32, ObjectToTag,
                         testing::Values(one<quint32>(AT_UINT32, "4294967295", 4294967295U),
                                         one<quint32>(AT_UINT32, "-2147483648", 2147483648U)));
INSTANTIATE_TEST_SUITE_P(UInt32Odd, ObjectToTag, testing::ValuesIn(takenByUnsigned<quint32>(AT_UINT32)));
INSTANTIATE_TEST_SUITE_P(Int32, ObjectToTag,
                         testing::Values(one<qint32>(AT_INT32, "2147483647", 2147483647),
                                         one<qint32>(AT_INT32, "-1", -1),
                                         one<qint32>(AT_INT32, "-2147483648", std::numeric_limits<qint32>::min())));
INSTANTIATE_TEST_SUITE_P(Int32Refused, ObjectToTag, testing::ValuesIn(refusedBySigned<qint32>(AT_INT32)));
INSTANTIATE_TEST_SUITE_P(Real, ObjectToTag,
                         testing::Values(one<float>(AT_REAL, "3.14", 3.14F), one<float>(AT_REAL, "-2", -2),
                                         one<float>(AT_REAL, "4294967296", 4294967296.0F),
                                         one<quint32>(AT_REAL, "1e-45", 1), one<float>(AT_REAL, "1e-50", 0),
                                         one<float>(AT_REAL, "1e39", std::numeric_limits<float>::infinity()),
                                         one<float>(AT_REAL, "-1e39", -std::numeric_limits<float>::infinity()),
                                         one<float>(AT_REAL, "\"1.5\"", 0), one<float>(AT_REAL, "true", 0)));
INSTANTIATE_TEST_SUITE_P(RealZeros, ObjectToTag, testing::ValuesIn(zeros<float>(AT_REAL)));

template<typename Value>
ObjectCase array(ArgType type, int entries, const QByteArray& json, const std::vector<Value>& stored,
                 std::size_t untouchedBytes = 0)
{
    return {type, entries, json, bytesOf<Value>(stored) + untouched(untouchedBytes)};
}

template<typename Value>
std::vector<ObjectCase> numberArrays(ArgType type)
{
    constexpr std::size_t Width = sizeof(Value);
    return {array<Value>(type, 3, "[1,2,3]", {1, 2, 3}),
            array<Value>(type, 5, "[1,2]", {1, 2, 0, 0, 0}),
            array<Value>(type, 2, "[1,2,3]", {1, 2}, Width),
            array<Value>(type, 3, "[1,null,3]", {1, 3}, Width),
            array<Value>(type, 3, "[null,null,null,4]", {}, 3 * Width),
            array<Value>(type, 4, "[null,2]", {2, 0, 0}, Width),
            array<Value>(type, 3, "[[1],{\"a\":1},2]", {0, 0, 2}),
            array<Value>(type, 2, "[]", {0, 0}),
            array<Value>(type, 2, "5", {0, 0}),
            array<Value>(type, 2, "\"[5,6]\"", {0, 0}),
            array<Value>(type, 2, "null", {0, 0}),
            array<Value>(type, 2, "{\"0\":1}", {0, 0}),
            array<Value>(type, 2, "", {0, 0}),
            array<Value>(type, -1, "[1,2]", {}, 2 * Width),
            array<Value>(type, std::numeric_limits<int>::min(), "[1,2]", {}, 2 * Width),
            array<Value>(type, MostEntries, "[1,2,3]", {1, 2}),
            array<Value>(type, MostEntries, "[null,1,2]", {1, 2}),
            array<Value>(type, MostEntries, "[1,2,3]", {1, 2, 3, 0, 0}),
            array<Value>(type, MostEntries, "[1,2,3]", {})};
}

INSTANTIATE_TEST_SUITE_P(BoolArray, ObjectToTag,
                         testing::Values(array<quint8>(AT_BOOL, 3, "[true,false,true]", {1, 0, 1}),
                                         array<quint8>(AT_BOOL, 3, "[true, true]", {1, 1, 0}),
                                         array<quint8>(AT_BOOL, 3, "[false,null,true]", {0, 1}, 1),
                                         array<quint8>(AT_BOOL, 3, "[1,\"true\",[true]]", {0, 0, 0}),
                                         array<quint8>(AT_BOOL, 2, "true", {0, 0}),
                                         array<quint8>(AT_BOOL, MostEntries, "[true]", {1, 0, 0})));
INSTANTIATE_TEST_SUITE_P(Int8Array, ObjectToTag, testing::ValuesIn(numberArrays<qint8>(AT_INT8)));
INSTANTIATE_TEST_SUITE_P(UInt8Array, ObjectToTag, testing::ValuesIn(numberArrays<quint8>(AT_UINT8)));
INSTANTIATE_TEST_SUITE_P(Int16Array, ObjectToTag, testing::ValuesIn(numberArrays<qint16>(AT_INT16)));
INSTANTIATE_TEST_SUITE_P(UInt16Array, ObjectToTag, testing::ValuesIn(numberArrays<quint16>(AT_UINT16)));
INSTANTIATE_TEST_SUITE_P(UInt32Array, ObjectToTag, testing::ValuesIn(numberArrays<quint32>(AT_UINT32)));
INSTANTIATE_TEST_SUITE_P(Int32Array, ObjectToTag, testing::ValuesIn(numberArrays<qint32>(AT_INT32)));
INSTANTIATE_TEST_SUITE_P(RealArray, ObjectToTag, testing::ValuesIn(numberArrays<float>(AT_REAL)));
INSTANTIATE_TEST_SUITE_P(
    ArrayElementsConvertLikeOneValue, ObjectToTag,
    testing::Values(array<qint8>(AT_INT8, 5, "[300,1.5,\"5\",true,2147483648]", {44, 0, 0, 0, 0}),
                    array<quint8>(AT_UINT8, 5, "[300,1.5,\"5\",true,-1]", {44, 2, 5, 1, 255}),
                    array<qint16>(AT_INT16, 3, "[70000,-2,2.5]", {4464, -2, 0}),
                    array<quint16>(AT_UINT16, 3, "[70000,-2,2.5]", {4464, 65534, 3}),
                    array<quint32>(AT_UINT32, 3, "[4294967295,-1,\"x\"]", {4294967295U, 4294967295U, 0}),
                    array<qint32>(AT_INT32, 3, "[-1,4294967295,\"1\"]", {-1, 0, 0}),
                    array<float>(AT_REAL, 3, "[1.5,\"2\",1e39]", {1.5F, 0, std::numeric_limits<float>::infinity()})));

template<typename Unit>
ObjectCase text(ArgType type, const QByteArray& json, const std::vector<Unit>& units)
{
    return {type, 0, json, bytesOf<Unit>(units) + untouched(sizeof(Unit))};
}

INSTANTIATE_TEST_SUITE_P(Texts8, ObjectToTag,
                         testing::Values(text<quint8>(AT_STR8, "\"abc\"", {'a', 'b', 'c', 0}),
                                         text<quint8>(AT_STR8, "\"\"", {0}),
                                         text<quint8>(AT_STR8, "\"a\\u0000b\"", {'a', 0, 'b', 0}),
                                         text<quint8>(AT_STR8, "\"\\\"q\\\"\"", {'"', 'q', '"', 0})));
INSTANTIATE_TEST_SUITE_P(Texts8BeyondAsciiLoseTheirEnd, ObjectToTag,
                         testing::Values(text<quint8>(AT_STR8, "\"\\u00e4b\"", {0xC3, 0xA4, 'b'}),
                                         text<quint8>(AT_STR8, "\"\xF0\x9F\x98\x80\"", {0xF0, 0x9F, 0x98})));
INSTANTIATE_TEST_SUITE_P(
    Texts16, ObjectToTag,
    testing::Values(text<char16_t>(AT_STR16, "\"abc\"", {'a', 'b', 'c', 0}), text<char16_t>(AT_STR16, "\"\"", {0}),
                    text<char16_t>(AT_STR16, "\"\\u00e4\\ud83d\\ude00\"", {0xE4, 0xD83D, 0xDE00, 0}),
                    text<char16_t>(AT_STR16, "\"a\\u0000b\"", {'a', 0, 'b', 0})));
INSTANTIATE_TEST_SUITE_P(Texts32, ObjectToTag,
                         testing::Values(text<char32_t>(AT_STR32, "\"abc\"", {'a', 'b', 'c', 0}),
                                         text<char32_t>(AT_STR32, "\"\"", {0}),
                                         text<char32_t>(AT_STR32, "\"\\u00e4\\ud83d\\ude00\"", {0xE4, 0x1F600, 0, 0}),
                                         text<char32_t>(AT_STR32, "\"a\\u0000b\"", {'a', 0, 'b', 0})));

std::vector<ObjectCase> noTexts()
{
    std::vector<ObjectCase> cases;
    for (const char* json : {"", "null", "5", "true", "[\"a\"]", "{\"v\":\"a\"}"}) {
        cases.push_back(text<quint8>(AT_STR8, json, {0}));
        cases.push_back(text<char16_t>(AT_STR16, json, {0}));
        cases.push_back(text<char32_t>(AT_STR32, json, {0}));
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(WhatIsNoTextWritesTheTerminatorOnly, ObjectToTag, testing::ValuesIn(noTexts()));
INSTANTIATE_TEST_SUITE_P(TextsIgnoreEntries, ObjectToTag,
                         testing::Values(ObjectCase{AT_STR8, 3, "\"a\"", {'a', 0, OldByte}},
                                         ObjectCase{AT_STR16, -1, "\"a\"", {'a', 0, 0, 0, OldByte}},
                                         ObjectCase{AT_STR32, 1, "\"a\"", {'a', 0, 0, 0, 0, 0, 0, 0, OldByte}}));
INSTANTIATE_TEST_SUITE_P(EndsWithTheSpace, ObjectToTag,
                         testing::Values(ObjectCase{AT_STR8, 0, "\"abcdef\"", {'a', 'b', 'c'}},
                                         ObjectCase{AT_STR16, 0, "\"abcdef\"", {'a', 0, 'b'}},
                                         ObjectCase{AT_STR32, 0, "\"abcdef\"", {'a', 0, 0, 0, 'b', 0}},
                                         ObjectCase{AT_STR8, 0, "\"abc\"", {}}, ObjectCase{AT_STR32, 0, "5", {0, 0}},
                                         ObjectCase{AT_INT32, 0, "67305985", {1, 2, 3}},
                                         ObjectCase{AT_INT32, 2, "[67305985,67305985]", {1, 2, 3, 4, 1, 2}},
                                         ObjectCase{AT_INT32, 3, "[67305985]", {1, 2, 3, 4, 0, 0}},
                                         ObjectCase{AT_UINT8, 0, "5", {}}));
INSTANTIATE_TEST_SUITE_P(OtherTypesDoNothing, ObjectToTag,
                         testing::Values(ObjectCase{AT_NOTYPE, 0, "1", untouched(8)},
                                         ObjectCase{AT_NOTYPE, 1, "[1]", untouched(8)},
                                         ObjectCase{AT_STRUCT, 0, "{}", untouched(8)},
                                         ObjectCase{AT_STRUCT, 2, "[1]", untouched(8)},
                                         ObjectCase{static_cast<ArgType>(13), 0, "1", untouched(8)},
                                         ObjectCase{static_cast<ArgType>(99), 1, "[1]", untouched(8)},
                                         ObjectCase{static_cast<ArgType>(-1), 1, "[1]", untouched(8)}));

class ObjectValue : public ServiceTest
{
protected:
    MQTTManagerServices services;
};

TEST_F(ObjectValue, movesUpBehindANullInATagOfZeros)
{
    Bytes tag(6, 0);
    QJsonObject object = parsed("{\"v\":[1,null,3]}");
    services.JsonObjStringToBufferConversion(object, AT_INT16, "v", 3, charsOf(tag));
    EXPECT_EQ(tag, bytesOf<qint16>({1, 3, 0}));
}

TEST_F(ObjectValue, writesATextThatIsLongerThanItsSlot)
{
    constexpr int Slot = 3;
    Bytes scratch = untouched(8);
    QJsonObject object = parsed("{\"v\":\"abcdef\"}");
    services.JsonObjStringToBufferConversion(object, AT_STR8, "v", 0, charsOf(scratch));
    EXPECT_EQ(scratch[Slot], 'd');
    EXPECT_EQ(scratch, (Bytes{'a', 'b', 'c', 'd', 'e', 'f', 0, OldByte}));
}

TEST_F(ObjectValue, isFoundByItsKey)
{
    QJsonObject object = parsed("{\"b\":2,\"a\":1,\"\":3,\"\\u00e4\":4}");
    Bytes tag = untouched(4);
    services.JsonObjStringToBufferConversion(object, AT_UINT8, "a", 0, charsOf(tag));
    services.JsonObjStringToBufferConversion(object, AT_UINT8, "b", 0, charsOf(tag) + 1);
    services.JsonObjStringToBufferConversion(object, AT_UINT8, "", 0, charsOf(tag) + 2);
    services.JsonObjStringToBufferConversion(object, AT_UINT8, QString(QChar(0xE4)), 0, charsOf(tag) + 3);
    EXPECT_EQ(tag, (Bytes{1, 2, 3, 4}));
}

TEST_F(ObjectValue, standsInTheObjectAsNullOnceItWasMissing)
{
    QJsonObject object = parsed("{\"a\":1}");
    const QJsonObject copy = object;
    Bytes tag = untouched(1);
    services.JsonObjStringToBufferConversion(object, AT_UINT8, "v", 0, charsOf(tag));
    EXPECT_EQ(object, parsed("{\"a\":1,\"v\":null}"));
    EXPECT_EQ(copy, parsed("{\"a\":1}"));
}

TEST_F(ObjectValue, maybeANumberBeyondAllIntegers)
{
    for (const char* json : {"{\"v\":1e300}", "{\"v\":-1e300}", "{\"v\":9223372036854775808}"}) {
        QJsonObject object = parsed(json);
        Bytes tag = untouched(8);
        services.JsonObjStringToBufferConversion(object, AT_UINT32, "v", 0, charsOf(tag));
        EXPECT_EQ(Bytes(tag.begin() + 4, tag.end()), untouched(4)) << json;
    }
}

TEST_F(ObjectValue, hasOneConversionForEachTypeAndFormButStructs)
{
    for (const auto& row : services.m_jObjSConversions) {
        for (int type = 0; type < ARG_TYPES; ++type)
            EXPECT_EQ(row[type] == nullptr, type == AT_STRUCT) << type;
    }
    EXPECT_EQ(services.m_jObjSConversions[0][AT_STR32], services.m_jObjSConversions[1][AT_STR32]);
    EXPECT_NE(services.m_jObjSConversions[0][AT_BOOL], services.m_jObjSConversions[1][AT_BOOL]);
}

} // namespace
