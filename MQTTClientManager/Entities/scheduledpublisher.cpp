#include "Entities/scheduledpublisher.h"

#include "Entities/publisher.h"
#include "processending.h"
#include "Services/mqttStatusLogManager.h"

ScheduledPublisher::ScheduledPublisher() : m_StatusLogManager(MQTTStatusLogManager::instance()) {}

void ScheduledPublisher::setPublisher(Publisher* publisher)
{
    m_Publisher = publisher;
    m_UniqueID = publisher->m_UniqueID;
}

void ScheduledPublisher::ScheduledPublish()
{
    if (ProcessEnding::hasBegun() || !m_PublishEnabled)
        return;
    if (m_Publisher->Publish() == PSC_OK)
        m_StatusLogManager->UpdatePublicationSent();
}
