#include "Services/mqttmanagerservices.h"

#include "tagmemory.h"

#include <limits>

MQTTManagerServices* MQTTManagerServices::m_instance = nullptr;

MQTTManagerServices* MQTTManagerServices::instance()
{
    if (!m_instance)
        m_instance = new MQTTManagerServices;
    return m_instance;
}

MQTTManagerServices::MQTTManagerServices()
    : m_typeSizes{{AT_INT8, 1}, {AT_UINT8, 1}, {AT_INT16, 2}, {AT_UINT16, 2}, {AT_INT32, 4}, {AT_UINT32, 4},
                  {AT_REAL, 4}, {AT_STR8, 1},  {AT_STR16, 2}, {AT_STR32, 4},  {AT_BOOL, 1}},
      m_typeNames{{AT_INT8, "AT_INT8"},   {AT_UINT8, "AT_UINT8"},   {AT_INT16, "AT_INT16"},   {AT_UINT16, "AT_UINT16"},
                  {AT_INT32, "AT_INT32"}, {AT_UINT32, "AT_UINT32"}, {AT_REAL, "AT_REAL"},     {AT_STR8, "AT_STR8"},
                  {AT_STR16, "AT_STR16"}, {AT_STR32, "AT_STR32"},   {AT_STRUCT, "AT_STRUCT"}, {AT_BOOL, "AT_BOOL"}},
      m_plcSerial("00000000000"), m_plcMac("00000000000")
{
    fillConversionTables();
}

void MQTTManagerServices::fillConversionTables()
{
    m_jSSConversions = {{
        {&MQTTManagerServices::jSSToBufferConversion_NOP, &MQTTManagerServices::jSSToBufferConversion_BOOL_NENTRY,
         &MQTTManagerServices::jSSToBufferConversion_INT8_NENTRY,
         &MQTTManagerServices::jSSToBufferConversion_UINT8_NENTRY,
         &MQTTManagerServices::jSSToBufferConversion_INT16_NENTRY,
         &MQTTManagerServices::jSSToBufferConversion_UINT16_NENTRY,
         &MQTTManagerServices::jSSToBufferConversion_UINT32_NENTRY,
         &MQTTManagerServices::jSSToBufferConversion_INT32_NENTRY,
         &MQTTManagerServices::jSSToBufferConversion_REAL_NENTRY,
         &MQTTManagerServices::jSSToBufferConversion_STR32_ENTRY, nullptr,
         &MQTTManagerServices::jSSToBufferConversion_STR8_ENTRY,
         &MQTTManagerServices::jSSToBufferConversion_STR16_ENTRY},
        {&MQTTManagerServices::jSSToBufferConversion_NOP, &MQTTManagerServices::jSSToBufferConversion_BOOL_ENTRY,
         &MQTTManagerServices::jSSToBufferConversion_INT8_ENTRY,
         &MQTTManagerServices::jSSToBufferConversion_UINT8_ENTRY,
         &MQTTManagerServices::jSSToBufferConversion_INT16_ENTRY,
         &MQTTManagerServices::jSSToBufferConversion_UINT16_ENTRY,
         &MQTTManagerServices::jSSToBufferConversion_UINT32_ENTRY,
         &MQTTManagerServices::jSSToBufferConversion_INT32_ENTRY,
         &MQTTManagerServices::jSSToBufferConversion_REAL_ENTRY,
         &MQTTManagerServices::jSSToBufferConversion_STR32_ENTRY, nullptr,
         &MQTTManagerServices::jSSToBufferConversion_STR8_ENTRY,
         &MQTTManagerServices::jSSToBufferConversion_STR16_ENTRY},
    }};
    m_jObjSConversions = {{
        {&MQTTManagerServices::jObjSToBufferConversion_NOP, &MQTTManagerServices::jObjSToBufferConversion_BOOL_NENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_INT8_NENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_UINT8_NENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_INT16_NENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_UINT16_NENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_UINT32_NENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_INT32_NENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_REAL_NENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_STR32_ENTRY, nullptr,
         &MQTTManagerServices::jObjSToBufferConversion_STR8_ENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_STR16_ENTRY},
        {&MQTTManagerServices::jObjSToBufferConversion_NOP, &MQTTManagerServices::jObjSToBufferConversion_BOOL_ENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_INT8_ENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_UINT8_ENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_INT16_ENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_UINT16_ENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_UINT32_ENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_INT32_ENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_REAL_ENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_STR32_ENTRY, nullptr,
         &MQTTManagerServices::jObjSToBufferConversion_STR8_ENTRY,
         &MQTTManagerServices::jObjSToBufferConversion_STR16_ENTRY},
    }};
}

void MQTTManagerServices::SetVerboseMode(bool verbose)
{
    m_verboseMode = verbose;
}

int MQTTManagerServices::GetTypeSizeInBytes(ArgType type, int length, int entries) const
{
    const auto unit = m_typeSizes.constFind(type);
    if (unit == m_typeSizes.constEnd())
        return -1;
    const bool isText = type == AT_STR8 || type == AT_STR16 || type == AT_STR32;
    const qint64 units = isText ? qint64{length} + 1 : (entries == 0 ? 1 : entries);
    const qint64 size = units * unit.value();
    return size > std::numeric_limits<int>::max() || size < std::numeric_limits<int>::min() ? -1
                                                                                            : static_cast<int>(size);
}

QString MQTTManagerServices::GetTypeName(ArgType type) const
{
    return m_typeNames.value(type);
}

unsigned long MQTTManagerServices::OperandAddr2OffsetConversion(unsigned long address) const
{
    return TagMemory::OperandAddr2OffsetConversion(address);
}
