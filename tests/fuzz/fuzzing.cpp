#include "fuzzing.h"

#include "logging.h"
#include "Services/mqttmanagerservices.h"

#include <limits>
#include <plog/Init.h>
#include <QHash>

namespace {

constexpr int Smallest = std::numeric_limits<int>::min();
constexpr int Largest = std::numeric_limits<int>::max();

constexpr ArgType Types[16] = {AT_NOTYPE, AT_BOOL,     AT_INT8,     AT_UINT8,   AT_INT16,  AT_UINT16,
                               AT_UINT32, AT_INT32,    AT_REAL,     AT_STR32,   AT_STRUCT, AT_STR8,
                               AT_STR16,  ArgType{13}, ArgType{-1}, ArgType{99}};

// 255 and 510 values of four or two bytes are the 1020 bytes of one chunk.
constexpr int Entries[16] = {0, 1, 2, 3, 4, 5, 8, 16, 255, 510, 1020, 1021, -1, 1 << 30, Smallest, Largest};

constexpr int Lengths[16] = {NO_DATA_LEN, 0, 1, 2, 3, 5, 8, 16, 63, 254, 1019, 1020, 5000, -2, Smallest, Largest};

constexpr unsigned int Offsets[16] = {0,    1,    2,    4,    8,     16,         32,         64,
                                      1000, 1019, 1020, 5000, 65535, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

constexpr const char* Keys[16] = {
    "a", "b", "c", "d", "e", "f", "g", "h", "", "\"", "\\", "x y", "\xC3\xA4\n", "\xF0\x9F\x98\x80", "a.b[0]", "null"};

// Lines are formed as in verbose mode, from whatever the input holds, and dropped.
class Nowhere : public plog::IAppender
{
public:
    void write(const plog::Record& record) override { static_cast<void>(record.getMessage()); }
};

} // namespace

namespace Fuzzing {

char Input::take()
{
    if (m_size == 0)
        return '0';
    --m_size;
    return *m_data++;
}

Datum::Datum(Input& input) : type(input.choose(Types)), entries(input.choose(Entries)), length(input.choose(Lengths)) {}

unsigned int chooseOffset(Input& input)
{
    return input.choose(Offsets);
}

QString chooseKey(Input& input)
{
    return QString::fromUtf8(input.choose(Keys));
}

} // namespace Fuzzing

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    static Nowhere nowhere;
    plog::init(plog::debug, &nowhere);
    qSetGlobalQHashSeed(0);
    // As if the device's scripts had answered, so that no input starts one; a value that holds another variable.
    MQTTManagerServices::instance()->m_plcSerial = "4711";
    MQTTManagerServices::instance()->m_plcMac = "{PLC.SN}-mac";
    return 0;
}
