#pragma once

#include "Entities/clientbroker.h"
#include "Entities/publisher.h"
#include "Entities/subscriber.h"

#include <algorithm>
#include <atomic>
#include <initializer_list>
#include <memory>
#include <QList>

// All entities that one reading of the configuration has made. They point to one another, so they live and go together.
struct EntityGeneration
{
    QList<Subscriber> subscriptions;
    QList<Publisher> publications;
    QList<ClientBroker> brokers; // last, so the first to go: their clients must not call what is gone
};

inline int uniqueIdOf(const ClientBroker& broker)
{
    return broker.UniqueID;
}

inline int uniqueIdOf(const MQTTCallerBase& caller)
{
    return caller.m_UniqueID;
}

// One of the manager's lists, in file order. The main thread replaces it as a whole when the configuration is read
// again; whoever works with an entity on another thread takes the list first and keeps it for as long as that takes.
// Entities stay where they are for their whole life: a list is complete before the first of them is pointed to, and
// is never copied.
template<typename Entity>
class EntityList
{
public:
    using List = QList<Entity>;

    EntityList() : m_list(std::make_shared<List>()) {}
    EntityList(const EntityList&) = delete;
    EntityList& operator=(const EntityList&) = delete;

    // The list as it stands. It, and with it its whole generation, lives as long as the result. Any thread.
    [[nodiscard]] std::shared_ptr<List> current() const { return std::atomic_load(&m_list); }

    // The rest is the main thread's: nobody else may replace the list.
    void replace(std::shared_ptr<List> list) { std::atomic_store(&m_list, std::move(list)); }
    EntityList& operator=(std::initializer_list<Entity> entities)
    {
        replace(std::make_shared<List>(entities));
        return *this;
    }
    void append(const Entity& entity) { m_list->append(entity); }

    [[nodiscard]] int size() const { return m_list->size(); }
    [[nodiscard]] bool isEmpty() const { return m_list->isEmpty(); }
    [[nodiscard]] const Entity& at(int index) const { return m_list->at(index); }
    Entity& operator[](int index) { return (*m_list)[index]; }
    auto begin() { return m_list->begin(); }
    auto end() { return m_list->end(); }
    auto begin() const { return m_list->constBegin(); }
    auto end() const { return m_list->constEnd(); }

private:
    std::shared_ptr<List> m_list;
};

// Index of the first entity with this unique ID; -1 when there is none.
template<typename Entity>
int indexOfId(const QList<Entity>& entities, int id)
{
    const auto found = std::find_if(entities.constBegin(), entities.constEnd(),
                                    [id](const Entity& entity) { return uniqueIdOf(entity) == id; });
    return found == entities.constEnd() ? -1 : static_cast<int>(found - entities.constBegin());
}
