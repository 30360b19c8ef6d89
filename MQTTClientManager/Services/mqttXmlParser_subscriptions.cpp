#include "Services/mqttXmlParser.h"

#include "Entities/subscriber.h"

bool MQTTXmlParser::ParseXMLFileSubscriptions(QString fileName, QList<Subscriber>& subscribers, QString& version)
{
    constexpr EntityFile Layout{"SubscriptionsConf", "Subscriptions", "SubscriptionConf", "Subscriptions Config_file"};
    return parseEntityFile(fileName, Layout, version,
                           [&](const QDomElement& element) { subscribers.append(readSubscription(element)); });
}

Subscriber MQTTXmlParser::readSubscription(const QDomElement& element) const
{
    const auto flag = [&element](const char* attribute) { return element.attribute(attribute).toInt() != 0; };

    Subscriber subscriber;
    subscriber.m_CallerType = CT_SUBSCRIBER;
    readCaller(element, subscriber);
    subscriber.m_BufferedFlag = flag("IsBuffered");
    subscriber.m_SubscribeAtBootTime = flag("SubscribeAtBoot");
    subscriber.m_SubAddr = element.attribute("SubAddr").toUInt();
    subscriber.CalcDataSize();
    return subscriber;
}
