#include "Entities/clientbroker.h"
#include "entityfile.h"

// The brokers' configuration file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QList<ClientBroker> brokers = Fuzzing::readEntities(&MQTTXmlParser::ParseXMLFileBrokers, data, size);
    for (const ClientBroker& broker : brokers) {
        Fuzzing::require(!broker.ClientID.isEmpty(), "every broker has an identifier");
        Fuzzing::require(broker.AddressingMode == 0 || broker.AddressingMode == 1, "an address is a number or a name");
    }
    return 0;
}
