#include "fuzzing.h"
#include "memoryfile.h"
#include "Services/mqttXmlParser.h"

// The general configuration file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static MemoryFile file;
    file.setContent({reinterpret_cast<const char*>(data), static_cast<int>(size)});
    QString version;
    unsigned int statistics = 1;
    unsigned int general = 1;
    const bool isRead = MQTTXmlParser::instance()->ParseXMLFileGeneralCfg(file.path(), version, statistics, general);
    Fuzzing::require(isRead || (statistics == 1 && general == 1), "a file that can't be used gives no address");
    return 0;
}
