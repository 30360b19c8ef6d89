#include "unittest.h"
#include "Utils/sharedtext.h"

#include <string>

namespace {

using Text = SharedText<8>;

std::u16string fieldOf(const Text& text)
{
    char16_t field[8];
    text.copyTo(field);
    return {field, 8};
}

std::u16string padded(std::u16string text)
{
    text.resize(8, u'\0');
    return text;
}

TEST(SharedTextField, holdsATextOfEveryLengthWithItsTerminator)
{
    for (const char* text : {"", "1", "12", "123", "1234", "12345", "123456", "1234567"}) {
        Text field;
        EXPECT_TRUE(field.store(text));
        EXPECT_EQ(fieldOf(field), padded(QString(text).toStdU16String()));
    }
}

TEST(SharedTextField, cutsWhatIsLonger)
{
    Text field;
    EXPECT_FALSE(field.store("12345678"));
    EXPECT_EQ(fieldOf(field), padded(u"1234567"));
}

TEST(SharedTextField, endsAShorterTextAheadOfTheOldOne)
{
    Text field;
    field.store("1234567");
    field.store("ab");
    EXPECT_EQ(fieldOf(field).substr(0, 3), std::u16string(u"ab\0", 3));
}

TEST(SharedTextField, canBeCleared)
{
    Text field;
    field.store("1234567");
    field.clear();
    EXPECT_EQ(fieldOf(field), padded(u""));
}

} // namespace
