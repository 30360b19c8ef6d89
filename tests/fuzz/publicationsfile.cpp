#include "Entities/publisher.h"
#include "entityfile.h"
#include "guardedtagmemory.h"

#include <algorithm>

// The publications' configuration file, and the JSON text of the first of them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QList<Publisher> publishers = Fuzzing::readEntities(&MQTTXmlParser::ParseXMLFilePublications, data, size);
    if (publishers.isEmpty())
        return 0;

    Publisher& publisher = publishers.first();
    GuardedTagMemory::reset({});
    GuardedTagMemory::setContent("\x01\x02text\xFF\x7F");
    QByteArray buffer(std::clamp(publisher.m_DataSize, 0, 65535), '\0');
    const QByteArray text = publisher.assembleJsonByteArrayFromBuffer(buffer.data(), publisher.m_DataSize);
    Fuzzing::require(publisher.m_DataType != AT_STRUCT || text.isNull() || text.endsWith('}'),
                     "a struct's text is closed, or found too long");
    return 0;
}
