#include "Communication/cominterface.h"
#include "fakemessagequeue.h"
#include "requesttest.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <QCoreApplication>
#include <QThread>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using namespace std::chrono_literals;

class RequestInterface : public RequestTest
{
protected:
    RequestInterface()
    {
        FakeMessageQueue::state() = {};
        addBroker(1);
        createClients();
    }

    void handle(const std::string& bytes)
    {
        alignas(8) char buffer[RequestRecordSize] = {};
        std::memcpy(buffer, bytes.data(), bytes.size());
        interface.handleRequestMsg(buffer);
    }

    static std::string bytesOf(std::initializer_list<int> bytes)
    {
        std::string text;
        for (const int byte : bytes)
            text += static_cast<char>(byte);
        return text;
    }

    ComInterface interface;
};

TEST_F(RequestInterface, opensTheRuntimesQueueForReading)
{
    FakeMessageQueue::state().descriptor = open("/dev/null", O_RDONLY);
    const LogCapture log;
    EXPECT_EQ(interface.m_queue, 0);
    interface.InitReceiver();
    EXPECT_EQ(FakeMessageQueue::state().name, "/MQTTQueue");
    EXPECT_EQ(FakeMessageQueue::state().flags, O_RDONLY);
    EXPECT_EQ(interface.m_queue, FakeMessageQueue::state().descriptor);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RequestInterface, aMissingQueueIsAnErrorLineAndMinusOne)
{
    const LogCapture log;
    interface.InitReceiver();
    EXPECT_EQ(interface.m_queue, -1);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR mq_open error No such file or directory"));
}

TEST_F(RequestInterface, closesItsQueueOnce)
{
    const int descriptor = open("/dev/null", O_RDONLY);
    FakeMessageQueue::state().descriptor = descriptor;
    interface.InitReceiver();
    interface.Finalize();
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    const int next = open("/dev/null", O_RDONLY); // gets the same number
    interface.Finalize();
    EXPECT_NE(fcntl(next, F_GETFD), -1);
    close(next);
}

TEST_F(RequestInterface, doesNotCloseTheStandardInput)
{
    const int input = dup(STDIN_FILENO);
    interface.Finalize();
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD) == -1, fcntl(input, F_GETFD) == -1);
    close(input);
}

TEST_F(RequestInterface, readsTheFieldsAtTheirOffsets)
{
    const LogCapture log;
    // Connect (4) broker 1, status at operand 8208 (0x2010).
    handle(bytesOf({0xAA, 0xBB, 4, 0, 1, 0, 0, 0, 0x10, 0x20, 0, 0}));
    EXPECT_THAT(log.lines()[0], "DEBUG reqId:4");
    EXPECT_TRUE(log.contains("DEBUG Enter function (ID=1)"));
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0}));
}

TEST_F(RequestInterface, takesAnIdAsUnsigned)
{
    const LogCapture log;
    handle(bytesOf({0, 0, 5, 0, 0xFF, 0xFF, 0, 0, 0x10, 0x20, 0, 0}));
    EXPECT_TRUE(log.contains("DEBUG Enter function (ID=65535)"));
}

TEST_F(RequestInterface, servesEveryOpcodeThatHasAHandler)
{
    constexpr std::uint8_t NoSuchId = 0xFE;
    constexpr std::uint8_t NotPaused = 0xFC;
    const auto answered = [this](int opcode, std::uint8_t answer) {
        FakeTagMemory::state().writes.clear();
        handle(bytesOf({0, 0, opcode, 0, 0x0F, 0x27, 1, 0, 0x10, 0x20, 0, 0}));
        EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{answer})) << opcode;
    };
    for (const int opcode : {0, 1, 2, 3, 4, 5, 6, 7, 9, 11, 15})
        answered(opcode, NoSuchId);
    for (const int opcode : {8, 10, 12})
        answered(opcode, NotPaused);
    const LogCapture log;
    FakeTagMemory::state().writes.clear();
    handle(bytesOf({0, 0, 16, 0}));
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG reqId:16", "DEBUG Enter function", "DEBUG End function (rtnstatus is 1)"));
    EXPECT_THAT(FakeTagMemory::state().writes, IsEmpty());
}

TEST_F(RequestInterface, anUnknownOpcodeIsAnErrorLineWithTheSystemsTextForItsNumber)
{
    const LogCapture log;
    handle(bytesOf({0, 0, 17, 0, 1, 0, 0, 0, 0x10, 0x20, 0, 0}));
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG reqId:17", "ERROR invalid sub opcode is: File exists"));
    EXPECT_THAT(statusTag(), IsEmpty());
}

// Opcode and address of a state request, as the main thread gets it.
TEST_F(RequestInterface, pauseAndStartGoToTheMainThreadWithTheirAddressAndHoldTheQueueForTwoSeconds)
{
    std::vector<std::pair<QString, quint32>> emitted;
    QObject::connect(
        &interface, &ComInterface::SignalPauseMQTT, &interface,
        [&](quint32 address) { emitted.emplace_back("pause", address); }, Qt::DirectConnection);
    QObject::connect(
        &interface, &ComInterface::SignalStartMQTT, &interface,
        [&](quint32 address) { emitted.emplace_back("start", address); }, Qt::DirectConnection);
    handle(bytesOf({0, 0, 13, 0, 0x78, 0x56, 0x34, 0x12}));
    handle(bytesOf({0, 0, 14, 0, 0x10, 0x20, 0, 0}));
    EXPECT_THAT(emitted, ElementsAre(testing::Pair("pause", 0x12345678U), testing::Pair("start", 8208U)));
    EXPECT_THAT(FakeSleep::waits(), ElementsAre(2000ms, 2000ms));
}

TEST_F(RequestInterface, livesInAThreadOfItsOwnThatIsNotStartedYet)
{
    EXPECT_EQ(interface.thread(), interface.m_thread);
    EXPECT_FALSE(interface.isRunning());
    EXPECT_EQ(interface.m_thread->parent(), nullptr);
}

} // namespace
