#include "Services/mqttmanagerservices.h"
#include "tagbytes.h"

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace {

struct TextCase
{
    ArgType type;
    int length;
    int entries;
    Bytes bytes;
    QString text;
};

std::string appended(const MQTTManagerServices& services, Bytes bytes, ArgType type, int length, int entries)
{
    std::string memory(10'000, 'x');
    BoundedText text(memory.data(), memory.size());
    services.AppendTagText(text, charsOf(bytes), static_cast<qint64>(bytes.size()), type, length, entries);
    EXPECT_TRUE(text.fits());
    return std::string(text.text());
}

class TagText : public ServiceTest, public testing::WithParamInterface<TextCase>
{
};

TEST_P(TagText, isTheValueInJsonInBothForms)
{
    const TextCase& c = GetParam();
    const MQTTManagerServices services;
    Bytes bytes = c.bytes;
    EXPECT_EQ(services.BufferToQStringConversion(charsOf(bytes), c.type, c.length, c.entries).toStdU16String(),
              c.text.toStdU16String());
    EXPECT_EQ(appended(services, c.bytes, c.type, c.length, c.entries), c.text.toUtf8().toStdString());
}

template<typename Value>
TextCase numbers(ArgType type, int entries, const std::vector<Value>& values, const char* text)
{
    return {type, NO_DATA_LEN, entries, bytesOf<Value>(values), text};
}

TextCase real(float value, const char* text)
{
    return numbers<float>(AT_REAL, 0, {value}, text);
}

TextCase text8(const std::string& slot, int length, const QString& text)
{
    return {AT_STR8, length, 0, Bytes(slot.begin(), slot.end()), text};
}

TextCase text16(const std::vector<char16_t>& slot, int length, const QString& text)
{
    return {AT_STR16, length, 0, bytesOf<char16_t>(slot), text};
}

TextCase text32(const std::vector<char32_t>& slot, int length, const QString& text)
{
    return {AT_STR32, length, 0, bytesOf<char32_t>(slot), text};
}

INSTANTIATE_TEST_SUITE_P(
    Arrays, TagText,
    testing::Values(numbers<quint8>(AT_BOOL, 3, {1, 0, 1}, "[true,false,true]"),
                    numbers<qint8>(AT_INT8, 5, {-12, 1, 2, 3, 120}, "[-12,1,2,3,120]"),
                    numbers<quint8>(AT_UINT8, 4, {255, 0, 13, 66}, "[255,0,13,66]"),
                    numbers<qint16>(AT_INT16, 5, {-2020, 800, 0, -555, 777}, "[-2020,800,0,-555,777]"),
                    numbers<quint16>(AT_UINT16, 4, {65000, 0, 1, 49123}, "[65000,0,1,49123]"),
                    numbers<qint32>(AT_INT32, 5, {-100000, 800, 0, -123456, 777}, "[-100000,800,0,-123456,777]"),
                    numbers<quint32>(AT_UINT32, 4, {300000, 0, 1, 300001}, "[300000,0,1,300001]"),
                    numbers<float>(AT_REAL, 3, {3.14F, 2.1F, 15}, "[3.14,2.1,15]"),
                    numbers<qint16>(AT_INT16, 1, {-7}, "[-7]")));
INSTANTIATE_TEST_SUITE_P(
    OneValue, TagText,
    testing::Values(numbers<quint8>(AT_BOOL, 0, {1}, "true"), numbers<quint8>(AT_BOOL, 0, {0}, "false"),
                    numbers<qint8>(AT_INT8, 0, {-128}, "-128"), numbers<quint8>(AT_UINT8, 0, {255}, "255"),
                    numbers<qint16>(AT_INT16, 0, {-32768}, "-32768"), numbers<quint16>(AT_UINT16, 0, {65535}, "65535"),
                    numbers<quint32>(AT_UINT32, 0, {4294967295U}, "4294967295"),
                    numbers<qint32>(AT_INT32, 0, {std::numeric_limits<qint32>::min()}, "-2147483648")));
INSTANTIATE_TEST_SUITE_P(OnlyOneIsTrue, TagText,
                         testing::Values(numbers<quint8>(AT_BOOL, 0, {2}, "false"),
                                         numbers<quint8>(AT_BOOL, 0, {255}, "false"),
                                         numbers<quint8>(AT_BOOL, 3, {2, 1, 255}, "[false,true,false]")));
INSTANTIATE_TEST_SUITE_P(Reals, TagText,
                         testing::Values(real(0.0F, "0"), real(1.5F, "1.5"), real(-2.25F, "-2.25"), real(0.1F, "0.1"),
                                         real(100000.0F, "100000"), real(999999.0F, "999999"),
                                         real(1000000.0F, "1e+06"), real(-1000000.0F, "-1e+06"),
                                         real(1234567.0F, "1.23457e+06"), real(0.0001F, "0.0001"),
                                         real(0.00001F, "1e-05"),
                                         real(std::numeric_limits<float>::max(), "3.40282e+38"),
                                         real(std::numeric_limits<float>::min(), "1.17549e-38"),
                                         real(std::numeric_limits<float>::denorm_min(), "1.4013e-45"),
                                         real(std::numeric_limits<float>::quiet_NaN(), "nan"),
                                         real(std::numeric_limits<float>::infinity(), "inf"),
                                         real(-std::numeric_limits<float>::infinity(), "-inf"),
                                         numbers<float>(AT_REAL, 2, {1000000.0F, 0.5F}, "[1e+06,0.5]")));
INSTANTIATE_TEST_SUITE_P(NegativeEntriesGiveAClosingBracketAlone, TagText,
                         testing::Values(numbers<quint8>(AT_BOOL, -1, {1, 1}, "]"),
                                         numbers<qint32>(AT_INT32, -5, {1, 2}, "]"),
                                         numbers<float>(AT_REAL, std::numeric_limits<int>::min(), {1}, "]")));
INSTANTIATE_TEST_SUITE_P(StructsAndUnknownTypesGiveZero, TagText,
                         testing::Values(numbers<quint8>(AT_STRUCT, 0, {7, 7}, "0"),
                                         numbers<quint8>(AT_STRUCT, 2, {7, 7}, "0"),
                                         numbers<quint8>(AT_NOTYPE, 0, {7, 7}, "0"),
                                         numbers<quint8>(static_cast<ArgType>(13), 0, {7}, "0"),
                                         numbers<quint8>(static_cast<ArgType>(99), 3, {7}, "0"),
                                         numbers<quint8>(static_cast<ArgType>(-1), 0, {7}, "0")));
INSTANTIATE_TEST_SUITE_P(
    Texts8, TagText,
    testing::Values(text8(std::string("cola\0\0", 6), 5, "\"cola\""), text8("colas", 5, "\"colas\""),
                    text8("colas and more", 5, "\"colas\""), text8(std::string("a\0b\0", 4), 3, "\"a\""),
                    text8("abc", 0, "\"\""), text8("abc", NO_DATA_LEN, "\"\""),
                    text8("abc", std::numeric_limits<int>::min(), "\"\""),
                    text8("say \"hi\" \\o/", 12, "\"say \"hi\" \\o/\""),
                    text8("\xC3\xA4\xE2\x82\xAC", 5, QString("\"") + QChar(0xE4) + QChar(0x20AC) + '"'),
                    text8("\xFFz", 2, QString("\"") + QChar(QChar::ReplacementCharacter) + "z\"")));
INSTANTIATE_TEST_SUITE_P(Texts16, TagText,
                         testing::Values(text16({'c', 'o', 'l', 'a', 0}, 4, "\"cola\""),
                                         text16({'a', 0, 'b', 0}, 3, "\"a\""), text16({'a', 'b', 'c', 0}, 2, "\"ab\""),
                                         text16({'a', 0}, 0, "\"\""), text16({'a', 0}, NO_DATA_LEN, "\"\""),
                                         text16({0x20AC, 0xD83D, 0xDE00, 0}, 3,
                                                QString::fromUtf8("\"\xE2\x82\xAC\xF0\x9F\x98\x80\"")),
                                         text16({0xD83D, 'x', 0}, 2, QString("\"") + QChar(0xD83D) + "x\"")));
INSTANTIATE_TEST_SUITE_P(Texts32, TagText,
                         testing::Values(text32({'c', 'o', 'l', 'a', 0}, 4, "\"cola\""),
                                         text32({'a', 0, 'b', 0}, 3, "\"a\""), text32({'a', 'b', 'c', 0}, 2, "\"ab\""),
                                         text32({'a', 0}, 0, "\"\""), text32({'a', 0}, NO_DATA_LEN, "\"\""),
                                         text32({0x1F600, 0x20AC, 0}, 2,
                                                QString::fromUtf8("\"\xF0\x9F\x98\x80\xE2\x82\xAC\""))));
INSTANTIATE_TEST_SUITE_P(TextsIgnoreEntries, TagText,
                         testing::Values(TextCase{AT_STR8, 2, 7, {'h', 'i', 0}, "\"hi\""},
                                         TextCase{AT_STR8, 2, -7, {'h', 'i', 0}, "\"hi\""}));
INSTANTIATE_TEST_SUITE_P(NumbersIgnoreLength, TagText,
                         testing::Values(TextCase{AT_UINT8, 5, 0, {200}, "200"},
                                         TextCase{AT_UINT8, 0, 2, {200, 3}, "[200,3]"}));

class TagToText : public ServiceTest
{
protected:
    // The text of one REAL as Qt writes it, beside the service's.
    void expectAsQtWrites(float value) const
    {
        const std::string expected = QString::number(double{value}, 'g', 6).toStdString();
        ASSERT_EQ(appended(services, bytesOf<float>({value}), AT_REAL, NO_DATA_LEN, 0), expected)
            << std::hexfloat << value;
    }

    MQTTManagerServices services;
};

TEST_F(TagToText, writesSpecialRealsAsQtDoes)
{
    using Limits = std::numeric_limits<float>;
    for (const float value :
         {0.0F, -0.0F, Limits::quiet_NaN(), -Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(),
          Limits::denorm_min(), -Limits::denorm_min(), Limits::min(), Limits::max(), Limits::lowest(), 1e6F, 1e-5F,
          9999995.0F, 999999.5F, 999999.44F, 99999.95F, 0.00009999995F})
        expectAsQtWrites(value);
}

TEST_F(TagToText, writesRealsOfAnyBitPatternAsQtDoes)
{
    std::mt19937 random(20240229);
    for (int i = 0; i < 200'000; ++i)
        expectAsQtWrites(std::bit_cast<float>(static_cast<quint32>(random())));
}

TEST_F(TagToText, roundsRealsBetweenTwoTextsAsQtDoes)
{
    // Every value here has a seventh digit of 5 and nothing behind it, at another position of the point.
    for (int sixDigits = 100'000; sixDigits < 1'000'000; sixDigits += 97) {
        expectAsQtWrites(static_cast<float>(sixDigits) + 0.5F);
        expectAsQtWrites(-static_cast<float>(sixDigits) - 0.5F);
        expectAsQtWrites(static_cast<float>(sixDigits) * 10 + 5);
    }
    for (int quarters = 40'001; quarters < 400'000; quarters += 10)
        expectAsQtWrites(static_cast<float>(quarters) / 4);
    for (int eighths = 8'001; eighths < 80'000; eighths += 2)
        expectAsQtWrites(static_cast<float>(eighths) / 8);
}

TEST_F(TagToText, appendsToWhatTheTextHolds)
{
    char memory[100];
    BoundedText text(memory, sizeof memory);
    text.append("{\"speed\":");
    const Bytes bytes = {0x39, 0x30};
    services.AppendTagText(text, reinterpret_cast<const char*>(bytes.data()), 2, AT_INT16, NO_DATA_LEN, 0);
    EXPECT_EQ(text.text(), "{\"speed\":12345");
}

TEST_F(TagToText, readsBytesPastTheSizeAsZero)
{
    EXPECT_EQ(appended(services, {1, 0, 2}, AT_INT16, NO_DATA_LEN, 3), "[1,2,0]");
    EXPECT_EQ(appended(services, {0xFF}, AT_INT32, NO_DATA_LEN, 0), "255");
    EXPECT_EQ(appended(services, {}, AT_BOOL, NO_DATA_LEN, 2), "[false,false]");
    EXPECT_EQ(appended(services, {}, AT_REAL, NO_DATA_LEN, 0), "0");
    EXPECT_EQ(appended(services, {'h', 'i'}, AT_STR8, 10, 0), "\"hi\"");
    EXPECT_EQ(appended(services, {'h', 0, 'i'}, AT_STR16, 10, 0), "\"hi\"");
    EXPECT_EQ(appended(services, {'h', 0, 0, 0, 'i'}, AT_STR32, 10, 0), "\"hi\"");
    EXPECT_EQ(appended(services, {}, AT_STR32, 10, 0), "\"\"");
}

TEST_F(TagToText, readsNothingWhereTheSizeIsNegativeOrTheBytesAreMissing)
{
    for (const ArgType type : {AT_UINT8, AT_STR8, AT_STR16, AT_STR32}) {
        char memory[100];
        BoundedText text(memory, sizeof memory);
        services.AppendTagText(text, nullptr, 0, type, 5, 0);
        services.AppendTagText(text, nullptr, -1, type, 5, 0);
        EXPECT_EQ(text.text(), type == AT_UINT8 ? "00" : "\"\"\"\"") << type;
    }
}

TEST_F(TagToText, endsWithTheBytesHoweverLongATextMayBe)
{
    constexpr int Longest = std::numeric_limits<int>::max();
    EXPECT_EQ(appended(services, {'h', 'i'}, AT_STR8, Longest, 0), "\"hi\"");
    EXPECT_EQ(appended(services, {'h', 0, 'i', 0}, AT_STR16, Longest, 0), "\"hi\"");
    EXPECT_EQ(appended(services, {'h', 0, 0, 0}, AT_STR32, Longest, 0), "\"h\"");
}

TEST_F(TagToText, stopsOnceTheTextDoesNotFit)
{
    constexpr int Most = std::numeric_limits<int>::max();
    const Bytes ones = {1, 1, 1, 1};
    for (const ArgType type : {AT_BOOL, AT_INT8, AT_UINT8, AT_INT16, AT_UINT16, AT_UINT32, AT_INT32, AT_REAL}) {
        char memory[5000];
        BoundedText text(memory, sizeof memory);
        services.AppendTagText(text, reinterpret_cast<const char*>(ones.data()), 4, type, NO_DATA_LEN, Most);
        EXPECT_FALSE(text.fits()) << type;
    }
}

TEST_F(TagToText, fitsToTheLastByte)
{
    const Bytes bytes = {1, 2, 3};
    for (const std::size_t size : {6U, 7U}) {
        char memory[7];
        BoundedText text(memory, size);
        services.AppendTagText(text, reinterpret_cast<const char*>(bytes.data()), 3, AT_UINT8, NO_DATA_LEN, 3);
        EXPECT_EQ(text.fits(), size == 7);
        EXPECT_EQ(text.text(), size == 7 ? "[1,2,3]" : "[1,2,3");
    }
}

TEST_F(TagToText, readsTagsAtAnyAddress)
{
    const Bytes tag = Bytes{0} + bytesOf<float>({1.5F, -2}) + bytesOf<char32_t>({'h', 'i', 0});
    const char* odd = reinterpret_cast<const char*>(tag.data()) + 1;
    char memory[100];
    BoundedText text(memory, sizeof memory);
    services.AppendTagText(text, odd, 20, AT_REAL, NO_DATA_LEN, 2);
    services.AppendTagText(text, odd + 8, 12, AT_STR32, 2, 0);
    EXPECT_EQ(text.text(), "[1.5,-2]\"hi\"");
}

TEST_F(TagToText, encodesAsQtWhatIsNoUnicode)
{
    const Bytes lone = bytesOf<char16_t>({0xD83D, 'x', 0xDE00, 0});
    Bytes bytes = lone;
    const QString text = services.BufferToQStringConversion(charsOf(bytes), AT_STR16, 3, 0);
    ASSERT_EQ(text.size(), 5);
    EXPECT_EQ(text.at(1), QChar(0xD83D));
    EXPECT_EQ(text.at(3), QChar(0xDE00));
    EXPECT_EQ(appended(services, lone, AT_STR16, 3, 0), text.toUtf8().toStdString());
}

} // namespace
