#include "Services/mqttmanagerservices.h"
#include "unittest.h"

#include <limits>

namespace {

struct SizeCase
{
    int type;
    int length;
    int entries;
    int size;
};

class TypeSize : public ServiceTest, public testing::WithParamInterface<SizeCase>
{
};

TEST_P(TypeSize, isUnitTimesElements)
{
    const SizeCase& c = GetParam();
    EXPECT_EQ(MQTTManagerServices::instance()->GetTypeSizeInBytes(static_cast<ArgType>(c.type), c.length, c.entries),
              c.size);
}

constexpr int Largest = std::numeric_limits<int>::max();

INSTANTIATE_TEST_SUITE_P(OneValue, TypeSize,
                         testing::Values(SizeCase{0, -1, 1, -1}, SizeCase{1, -1, 1, 1}, SizeCase{2, -1, 1, 1},
                                         SizeCase{3, -1, 1, 1}, SizeCase{4, -1, 1, 2}, SizeCase{5, -1, 1, 2},
                                         SizeCase{6, -1, 1, 4}, SizeCase{7, -1, 1, 4}, SizeCase{8, -1, 1, 4},
                                         SizeCase{10, -1, 1, -1}, SizeCase{13, -1, 1, -1}, SizeCase{-1, -1, 1, -1},
                                         SizeCase{99, 5, 5, -1}));
INSTANTIATE_TEST_SUITE_P(NoEntriesCountAsOne, TypeSize,
                         testing::Values(SizeCase{1, -1, 0, 1}, SizeCase{4, -1, 0, 2}, SizeCase{8, -1, 0, 4}));
INSTANTIATE_TEST_SUITE_P(Arrays, TypeSize,
                         testing::Values(SizeCase{2, -1, 5, 5}, SizeCase{4, -1, 3, 6}, SizeCase{6, -1, 4, 16},
                                         SizeCase{6, 77, 4, 16}, SizeCase{2, -1, -5, -5}, SizeCase{6, -1, -3, -12},
                                         SizeCase{6, -1, 1073741824, -1}, SizeCase{6, -1, Largest / 4, 2147483644}));
INSTANTIATE_TEST_SUITE_P(Texts, TypeSize,
                         testing::Values(SizeCase{11, 5, 1, 6}, SizeCase{12, 5, 1, 12}, SizeCase{9, 5, 1, 24},
                                         SizeCase{11, 5, 9, 6}, SizeCase{11, -1, 0, 0}, SizeCase{12, -1, 1, 0},
                                         SizeCase{9, -1, 1, 0}, SizeCase{11, Largest, 1, -1},
                                         SizeCase{9, Largest, 1, -1}));
INSTANTIATE_TEST_SUITE_P(StructHasNone, TypeSize,
                         testing::Values(SizeCase{10, 5, 1, -1}, SizeCase{10, -1, 0, -1}, SizeCase{10, 0, 7, -1}));

class TypeModel : public ServiceTest
{
protected:
    MQTTManagerServices services;
};

TEST_F(TypeModel, namesEveryTypeButNoType)
{
    const char* names[] = {"",         "AT_BOOL", "AT_INT8",  "AT_UINT8",  "AT_INT16", "AT_UINT16", "AT_UINT32",
                           "AT_INT32", "AT_REAL", "AT_STR32", "AT_STRUCT", "AT_STR8",  "AT_STR16",  ""};
    for (int type = 0; type < 14; ++type)
        EXPECT_EQ(services.GetTypeName(static_cast<ArgType>(type)).toStdString(), names[type]) << type;
}

TEST_F(TypeModel, holdsElevenSizesAndTwelveNames)
{
    EXPECT_EQ(services.m_typeSizes.size(), 11);
    EXPECT_EQ(services.m_typeNames.size(), 12);
}

TEST_F(TypeModel, leavesTheConversionOfOperandAddressesToTagMemory)
{
    EXPECT_EQ(services.OperandAddr2OffsetConversion(65536), 0x7F410000UL);
}

} // namespace
