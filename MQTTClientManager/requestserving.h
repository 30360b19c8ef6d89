#pragma once

#include "mqttclientmanager.h"

// What the handlers of requests have in common. For the rooms of MQTTClientManager that hold them.

inline QString beginText(const MQTTRequestMsg& request)
{
    return QString("Enter function (ID=%1)").arg(request.uniqueID);
}

inline QString endText(StatusCodes result)
{
    return QString("End function (rtnstatus is %1)").arg(int{result});
}

template<typename Entity, typename Work>
StatusCodes MQTTClientManager::serve(const MQTTRequestMsg& request, const EntityList<Entity>& list, Work work)
{
    // Taken ahead of the look at the status: what a process that isn't paused works with is complete. A pause and a
    // start may come in between; the entities of before then stay until this is done, and answer as not connected.
    const auto entities = list.current();
    return answer(request.statusAddress,
                  [&] { return isPaused() ? SC_AC_ERROR_PAUSED : workOnEntity(*entities, request.uniqueID, work); });
}

template<typename Entity, typename Work>
StatusCodes MQTTClientManager::workOnEntity(QList<Entity>& entities, int id, Work work)
{
    const int index = indexOfId(entities, id);
    return index == -1 ? SC_AC_ERROR_INVALID_ID : work(entities[index]);
}
