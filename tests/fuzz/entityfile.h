#pragma once

#include "fuzzing.h"
#include "memoryfile.h"
#include "Services/mqttXmlParser.h"

namespace Fuzzing {

// The entities that a parser of the service reads from a file with this content.
template<typename Entity>
QList<Entity> readEntities(bool (MQTTXmlParser::*parse)(QString, QList<Entity>&, QString&), const std::uint8_t* data,
                           std::size_t size)
{
    static MemoryFile file;
    file.setContent({reinterpret_cast<const char*>(data), static_cast<int>(size)});
    QString version;
    QList<Entity> entities;
    const bool isRead = (MQTTXmlParser::instance()->*parse)(file.path(), entities, version);
    require(isRead || entities.isEmpty(), "a file that can't be used gives no entity");
    return entities;
}

} // namespace Fuzzing
