#include "Services/mqttmanagerservices.h"
#include "tagbytes.h"

#include <limits>

namespace {

constexpr int Address = 5000;

// No two neighbours are alike, nor are bytes 1020 apart.
QByteArray payload(int length)
{
    QByteArray data(length, 0);
    for (int i = 0; i < length; ++i)
        data[i] = static_cast<char>(i % 251 + 1);
    return data;
}

struct ChunkCase
{
    int length;
    std::vector<int> chunks;
};

class Chunks : public ServiceTest, public testing::WithParamInterface<ChunkCase>
{
};

TEST_P(Chunks, areWrittenOneBehindTheOther)
{
    const ChunkCase& c = GetParam();
    const QByteArray data = payload(c.length);
    std::vector<FakeTagMemory::WriteRecord> expected;
    int written = 0;
    for (const int chunk : c.chunks) {
        const auto first = data.begin() + written;
        expected.push_back({static_cast<unsigned long>(Address + written), {first, first + chunk}});
        written += chunk;
    }
    EXPECT_EQ(MQTTManagerServices().WriteBufferToMemory(c.length, Address, data.constData()), 0);
    EXPECT_EQ(FakeTagMemory::state().writes, expected);
}

INSTANTIATE_TEST_SUITE_P(OfAtMost1020Bytes, Chunks,
                         testing::Values(ChunkCase{0, {0}}, ChunkCase{1, {1}}, ChunkCase{500, {500}},
                                         ChunkCase{1019, {1019}}, ChunkCase{1021, {1020, 1}},
                                         ChunkCase{2000, {1020, 980}}, ChunkCase{2041, {1020, 1020, 1}},
                                         ChunkCase{3000, {1020, 1020, 960}}));
INSTANTIATE_TEST_SUITE_P(WithoutTheLastOfAMultiple, Chunks,
                         testing::Values(ChunkCase{1020, {0, 0}}, ChunkCase{2040, {1020, 0, 0}},
                                         ChunkCase{3060, {1020, 1020, 0, 0}}));

class WriteBuffer : public ServiceTest
{
protected:
    MQTTManagerServices services;
};

TEST_F(WriteBuffer, returnsTheResultOfAWriteOfNothing)
{
    FakeTagMemory::state().writeResults = {-7};
    EXPECT_EQ(services.WriteBufferToMemory(0, Address, ""), -7);
    EXPECT_EQ(FakeTagMemory::state().writes.size(), 1U);
}

TEST_F(WriteBuffer, endsWithTheFirstChunkThatFails)
{
    FakeTagMemory::state().writeResults = {0, 42};
    const QByteArray data = payload(3000);
    EXPECT_EQ(services.WriteBufferToMemory(data.size(), Address, data.constData()), 42);
    EXPECT_EQ(FakeTagMemory::state().writes.size(), 2U);
    EXPECT_EQ(FakeTagMemory::bytesAt(Address, 1020), Bytes(data.begin(), data.begin() + 1020));
    EXPECT_EQ(FakeTagMemory::bytesAt(Address + 1020, 1980), Bytes(1980, 0));
}

TEST_F(WriteBuffer, logsEachChunkAndHowManyAreToGo)
{
    const LogCapture log;
    services.WriteBufferToMemory(3000, Address, payload(3000).constData());
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "DEBUG 3) wrote '1020' bytes to address '5000'. Result is '0'",
                               "DEBUG 2) wrote '1020' bytes to address '6020'. Result is '0'",
                               "DEBUG 1) wrote '960' bytes to address '7040'. Result is '0'",
                           }));
}

TEST_F(WriteBuffer, logsAlsoTheChunkThatFails)
{
    const LogCapture log;
    FakeTagMemory::state().writeResults = {-3};
    services.WriteBufferToMemory(2000, Address, payload(2000).constData());
    EXPECT_EQ(log.lines(), std::vector<std::string>{"DEBUG 2) wrote '1020' bytes to address '5000'. Result is '-3'"});
}

TEST_F(WriteBuffer, takesAnAddressFor32BitsWithoutASign)
{
    const LogCapture log;
    services.WriteBufferToMemory(1021, static_cast<int>(0x80000010U), payload(1021).constData());
    ASSERT_EQ(FakeTagMemory::state().writes.size(), 2U);
    EXPECT_EQ(FakeTagMemory::state().writes[0].address, 0x80000010UL);
    EXPECT_EQ(FakeTagMemory::state().writes[1].address, 0x8000040CUL);
    EXPECT_TRUE(log.contains("DEBUG 2) wrote '1020' bytes to address '2147483664'. Result is '0'"));
}

TEST_F(WriteBuffer, writesNothingOfANegativeLength)
{
    for (const int length : {-1, -1019}) {
        EXPECT_EQ(services.WriteBufferToMemory(length, Address, ""), 0) << length;
        EXPECT_EQ(FakeTagMemory::state().writes.back(), (FakeTagMemory::WriteRecord{Address, {}})) << length;
    }
}

TEST_F(WriteBuffer, refusesANegativeLengthOfOneChunk)
{
    for (const int length : {-1020, -1021, -2039})
        EXPECT_EQ(services.WriteBufferToMemory(length, Address, ""), -1) << length;
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
}

TEST_F(WriteBuffer, hasNoPassForALengthBelowThat)
{
    for (const int length : {-2040, std::numeric_limits<int>::min()})
        EXPECT_EQ(services.WriteBufferToMemory(length, Address, ""), 0) << length;
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
}

} // namespace
